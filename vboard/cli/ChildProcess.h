#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "cli/CommandLine.h"

namespace cli {

using Environment = std::vector<std::pair<std::string, std::string>>;

/// Goes on as another program, looked for in PATH, with variables added to this process's. Returns only when
/// that failed, with the errno.
int replaceProcess(const Command& command, const Environment& environment);

/// How a child is started.
struct ChildSetup {
    Command command;  ///< as for replaceProcess()
    Environment environment;
    int output = -1, error = -1;            ///< descriptors for its standard output and error; -1: as here
    int signalAtLaunchersEnd = 0;           ///< what it gets when the launcher is gone, however that ended
    volatile int32_t* processId = nullptr;  ///< where it notes its process id before the program begins
};

/// A process that this one has started, waited for by its id.
///
/// Lifetime: a child that still runs when its owner goes is killed and collected.
/// Threads:  the one that made it.
class ChildProcess {
public:
    /// Null when it could not be started; `error` is the errno then.
    static std::optional<ChildProcess> start(const ChildSetup& setup, int& error);
    ~ChildProcess();
    ChildProcess(ChildProcess&& other) noexcept
        : process_(std::exchange(other.process_, -1)), status_(other.status_)
    {
    }
    ChildProcess& operator=(ChildProcess&&) = delete;
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    void signal(int number) const;
    /// Exit status, or 128 and the signal that ended it; nothing while it runs. Does not wait.
    std::optional<int> status();

private:
    explicit ChildProcess(pid_t process) : process_(process) {}

    pid_t process_;  // -1 when it has been collected
    std::optional<int> status_;
};

}  // namespace cli
