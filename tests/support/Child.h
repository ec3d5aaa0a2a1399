#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

#include "Wait.h"

namespace support {

using Command = std::vector<std::string>;

inline Command operator+(Command left, const Command& right)
{
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

/// A program of this build by its name: "velcamd", "vboard", "velcamctl".
std::string program(const std::string& name);

/// A child process in a process group of its own, so that what it starts can be ended with it.
///
/// Threads:  the one that made it; it must outlive the child, which is interrupted when that thread ends.
/// Lifetime: a child still running when its owner goes is killed with its group, and collected.
class Child {
public:
    /// Standard output and error go to the files given; an output of kPipe can be read from output().
    static constexpr const char* kPipe = "";

    Child(const Command& command, const std::string& outputFile, const std::string& errorFile);
    ~Child();
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    pid_t id() const { return process_; }
    int output() const { return output_; }
    void signal(int number) const;
    /// The exit status, 128 + the signal's number for a child that a signal ended; nothing while it runs.
    std::optional<int> status();
    /// Waits for the end, at most as long as given.
    std::optional<int> wait(Duration limit = kGenerous);

private:
    pid_t process_ = -1;
    int output_ = -1;
    std::optional<int> status_;
};

/// How a program that was run to its end came out.
struct Outcome {
    std::optional<int> status;  ///< nothing: it did not end in time, and was killed
    std::string output;
    std::string error;
};
Outcome runToEnd(const Command& command, Duration limit = kGenerous);

}  // namespace support
