#include "cli/ChildProcess.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>

#include "cli/BoardFiles.h"

namespace cli {
namespace {

constexpr int kSignalStatus = 128;

void useAs(int fd, int standard)
{
    if (fd >= 0) {
        ::dup2(fd, standard);
    }
}

/// The child's side. What fails is told to the parent through the pipe, which the program's start closes.
[[noreturn]] void becomeProgram(const ChildSetup& setup, pid_t launcher, int failurePipe)
{
    if (setup.signalAtLaunchersEnd != 0) {
        ::prctl(PR_SET_PDEATHSIG, setup.signalAtLaunchersEnd);
        if (::getppid() != launcher) {
            ::_exit(1);  // it ended before the line above
        }
    }
    useAs(setup.output, STDOUT_FILENO);
    useAs(setup.error, STDERR_FILENO);
    if (setup.processId != nullptr) {
        *setup.processId = ::getpid();
    }
    sigset_t none;
    sigemptyset(&none);
    ::pthread_sigmask(SIG_SETMASK, &none, nullptr);
    const int error = replaceProcess(setup.command, setup.environment);
    [[maybe_unused]] const ssize_t told = ::write(failurePipe, &error, sizeof(error));
    ::_exit(1);
}

/// 0 when the program has begun, the errno of the failed start otherwise.
int awaitStart(int failurePipe)
{
    int error = 0;
    ssize_t got = 0;
    do {
        got = ::read(failurePipe, &error, sizeof(error));
    } while (got == -1 && errno == EINTR);
    return got == sizeof(error) ? error : 0;
}

}  // namespace

int replaceProcess(const Command& command, const Environment& environment)
{
    for (const auto& [name, value] : environment) {
        // NOLINTNEXTLINE(concurrency-mt-unsafe): this process has one thread
        ::setenv(name.c_str(), value.c_str(), 1);
    }
    std::vector<char*> arguments;
    for (const std::string& argument : command) {
        arguments.push_back(const_cast<char*>(argument.c_str()));
    }
    arguments.push_back(nullptr);
    ::execvp(arguments[0], arguments.data());
    return errno;
}

std::optional<ChildProcess> ChildProcess::start(const ChildSetup& setup, int& error)
{
    std::array<int, 2> pipe{};
    if (::pipe2(pipe.data(), O_CLOEXEC) == -1) {
        error = errno;
        return std::nullopt;
    }
    const Descriptor readingEnd(pipe[0]);
    Descriptor writingEnd(pipe[1]);
    const pid_t launcher = ::getpid();
    const pid_t process = ::fork();
    if (process == 0) {
        becomeProgram(setup, launcher, writingEnd.get());
    }
    if (process == -1) {
        error = errno;
        return std::nullopt;
    }
    ChildProcess child(process);
    writingEnd = Descriptor();
    error = awaitStart(readingEnd.get());
    return error == 0 ? std::optional<ChildProcess>(std::move(child)) : std::nullopt;
}

ChildProcess::~ChildProcess()
{
    if (process_ > 0 && !status()) {
        ::kill(process_, SIGKILL);
        ::waitpid(process_, nullptr, 0);
    }
}

void ChildProcess::signal(int number) const
{
    if (process_ > 0) {
        ::kill(process_, number);
    }
}

std::optional<int> ChildProcess::status()
{
    int status = 0;
    if (process_ > 0 && ::waitpid(process_, &status, WNOHANG) == process_) {
        process_ = -1;
        status_ = WIFSIGNALED(status) ? kSignalStatus + WTERMSIG(status) : WEXITSTATUS(status);
    }
    return status_;
}

}  // namespace cli
