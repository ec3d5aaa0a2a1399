#include "Child.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>

#include "Folder.h"

namespace support {
namespace {

constexpr int kCannotRun = 127;
constexpr int kSignalBase = 128;

/// In the child, between fork and exec: nothing but system calls.
[[noreturn]] void become(char* const* arguments, const char* outputFile, int outputPipe,
                         const char* errorFile, const sigset_t& signals)
{
    constexpr mode_t kMode = 0644;
    constexpr int kFlags = O_WRONLY | O_CREAT | O_TRUNC;
    ::setpgid(0, 0);
    ::signal(SIGINT, SIG_DFL);  // a shell's background jobs ignore it, and tests may be such
    ::pthread_sigmask(SIG_SETMASK, &signals, nullptr);
    // A test that is killed from outside leaves nothing running behind.
    ::prctl(PR_SET_PDEATHSIG, SIGINT);
    const int input = ::open("/dev/null", O_RDONLY);
    const int output = outputPipe != -1 ? outputPipe : ::open(outputFile, kFlags, kMode);
    const int error = ::open(errorFile, kFlags, kMode);
    const bool connected = ::dup2(input, STDIN_FILENO) != -1 && ::dup2(output, STDOUT_FILENO) != -1 &&
                           ::dup2(error, STDERR_FILENO) != -1;
    if (connected) {
        ::execv(arguments[0], arguments);
    }
    ::_exit(kCannotRun);
}

}  // namespace

std::string program(const std::string& name)
{
    return std::string(VELCAM_BIN) + "/" + name;
}

Child::Child(const Command& command, const std::string& outputFile, const std::string& errorFile)
{
    std::vector<std::string> copy = command;
    std::vector<char*> arguments;
    arguments.reserve(copy.size() + 1);
    for (std::string& argument : copy) {
        arguments.push_back(argument.data());
    }
    arguments.push_back(nullptr);

    std::array<int, 2> pipe{-1, -1};
    if (outputFile == kPipe && ::pipe2(pipe.data(), O_CLOEXEC) != 0) {
        status_ = kCannotRun;
        return;
    }
    // Held back, so that an interrupt is not lost that comes before the child wants it.
    sigset_t interrupt;
    sigset_t former;
    sigemptyset(&interrupt);
    sigaddset(&interrupt, SIGINT);
    ::pthread_sigmask(SIG_BLOCK, &interrupt, &former);
    process_ = ::fork();
    if (process_ == 0) {
        become(arguments.data(), outputFile.c_str(), pipe[1], errorFile.c_str(), former);
    }
    ::pthread_sigmask(SIG_SETMASK, &former, nullptr);
    if (process_ == -1) {
        status_ = kCannotRun;
    } else {
        ::setpgid(process_, process_);  // here as well: whoever comes first
    }
    if (pipe[1] != -1) {
        ::close(pipe[1]);
    }
    output_ = pipe[0];
}

Child::~Child()
{
    if (!status()) {
        ::kill(-process_, SIGKILL);
        ::waitpid(process_, nullptr, 0);
    }
    if (output_ != -1) {
        ::close(output_);
    }
}

void Child::signal(int number) const
{
    if (!status_) {
        ::kill(process_, number);
    }
}

std::optional<int> Child::status()
{
    int raw = 0;
    if (!status_ && ::waitpid(process_, &raw, WNOHANG) == process_) {
        status_ = WIFSIGNALED(raw) ? kSignalBase + WTERMSIG(raw) : WEXITSTATUS(raw);
    }
    return status_;
}

std::optional<int> Child::wait(Duration limit)
{
    waitUntil([&] { return status().has_value(); }, limit);
    return status_;
}

Outcome runToEnd(const Command& command, Duration limit)
{
    const Folder folder;
    Child child(command, folder.file("output"), folder.file("error"));
    const auto status = child.wait(limit);
    return {status, readFile(folder.file("output")), readFile(folder.file("error"))};
}

}  // namespace support
