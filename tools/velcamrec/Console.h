#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

namespace recording {

// The exit statuses of every verb.
constexpr int kDone = 0;
constexpr int kFailed = 1;  ///< of check: damage was found
constexpr int kBadUsage = 2;

/// Says what went wrong, in one line on standard error, and gives the status back.
int fail(int status, const std::string& text);

/// SIGINT and SIGTERM end long work in good order: it stops at its next step and leaves nothing half-made.
void catchInterrupt();
bool interrupted();

/// How far long work has come, on standard error when that is a terminal. The line goes with its owner.
class Progress {
public:
    Progress(std::string label, off_t total);
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;
    Progress(Progress&&) = delete;
    Progress& operator=(Progress&&) = delete;

    /// False when the work was interrupted.
    bool step(off_t position);

private:
    void show(off_t position);

    std::string label_;
    off_t total_;
    bool terminal_;
    bool shown_ = false;
    std::chrono::steady_clock::time_point last_;
};

/// "1 frame", "2 frames".
std::string count(uint64_t number, const char* singular);

/// Seconds with milliseconds, as "[h:]mm:ss.mmm".
std::string clockText(double seconds);

/// A time from the beginning of a recording: seconds, "mm:ss" or "h:mm:ss", with decimals; nothing for
/// anything else.
std::optional<double> parseTime(const std::string& text);

}  // namespace recording
