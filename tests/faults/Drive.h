#pragma once

#include <optional>
#include <string>
#include <vector>

#include "Panel.h"

/// The daemon driven through all that it does, with something broken.
namespace faults {

/// What a recording holds, chunk by chunk.
struct Kept {
    bool header = false;
    bool opens = false;  ///< its first frame can be decoded by itself
    uint64_t frames = 0;
    std::vector<std::string> damage;  ///< what a reader cannot use, by kind
};
Kept readKept(const std::string& file);

/// How a run came out.
struct Result {
    std::optional<int> status;  ///< nothing: it hung
    bool finished = false;      ///< it lived until it was interrupted at the end of all states
    bool answered = false;      ///< every request was followed
    std::string output;         ///< standard output, where every log line stands too
    std::string errors;
    support::Report report;
    Kept recording;
};

/// A panel on which the daemon is run again and again, each time from the same beginning.
///
/// Threads: the test's. A run takes about two seconds; one that hangs is given up and killed.
class Drive {
public:
    /// `player`: the program that stands in for the media player.
    explicit Drive(const std::string& player);

    /// Starts the daemon with options of the launcher, asks for each state in turn, and ends it.
    Result run(const support::Command& options);

private:
    void clean();
    bool follow(const control::Packet& packet, const char* said);
    bool followAll();
    bool awaitSaid(const char* text, support::Duration limit);
    void awaitReports(int count);
    void awaitFrames();

    support::Panel panel_;
    bool reports_ = true;
};

}  // namespace faults
