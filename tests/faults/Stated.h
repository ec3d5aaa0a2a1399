#pragma once

#include <string>
#include <vector>

#include "Drive.h"
#include "Plan.h"

namespace faults {

/// What becomes of the daemon.
enum class Effect {
    kGoesOn,          ///< through all states, recording where it should, until it is interrupted
    kWithoutCameras,  ///< the same, but it neither shows nor records
    kEnds,            ///< by itself, in order: two passes of the frame loop have failed
    kRefuses          ///< to start
};
const char* nameOf(Effect effect);

/// What became of it.
Effect effectOf(const Result& result);

/// All that is not as it is stated for this fault; empty when everything is.
std::vector<std::string> judge(const Fault& fault, const Result& result);

}  // namespace faults
