#pragma once

#include <array>
#include <string>
#include <string_view>

/// What reads bytes from outside, each part as a function that takes any bytes at all.
///
/// A coverage-guided fuzzer drives one of them a program; an ordinary test runs all of them over the inputs
/// that were found to be worth keeping (corpus/NAME).
///
/// Threads: one.
namespace fuzz {

/// What the part did wrong with the input, empty when nothing. Crashes and hangs are the caller's to see.
using Run = std::string (*)(std::string_view input);

std::string aviContinuation(std::string_view input);  ///< the writer goes on with a file that holds anything
std::string boardPaths(std::string_view input);  ///< what belongs to the virtual board, and where it lies
std::string cameraStatus(std::string_view input);
std::string checksumTrailer(std::string_view input);
std::string commandLine(std::string_view input);  ///< the virtual board's launcher, cameras included
std::string configuration(std::string_view input);
std::string faultRules(std::string_view input);
std::string packets(std::string_view input);         ///< frames on the request queue, until they are requests
std::string recording(std::string_view input);       ///< velcamrec's walk over a file
std::string recordingVerbs(std::string_view input);  ///< what velcamrec makes of a file

struct Target {
    const char* name;
    Run run;
};

inline constexpr std::array kTargets{
    Target{"aviContinuation", aviContinuation},
    Target{"boardPaths", boardPaths},
    Target{"cameraStatus", cameraStatus},
    Target{"checksumTrailer", checksumTrailer},
    Target{"commandLine", commandLine},
    Target{"configuration", configuration},
    Target{"faultRules", faultRules},
    Target{"packets", packets},
    Target{"recording", recording},
    Target{"recordingVerbs", recordingVerbs},
};

}  // namespace fuzz
