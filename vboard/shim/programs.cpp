// Entry points that start programs, processes and threads. Their children are on the board as well: the
// environment says so. Called between fork and exec too, so nothing here allocates.

#include <fcntl.h>
#include <pthread.h>
#include <spawn.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstddef>
#include <utility>

#include "shim/EntryPoints.h"
#include "shim/MappedPath.h"
#include "shim/Next.h"

namespace {

using shim::Call;

/// The arguments of an execl call as the vector that execv takes.
class ArgumentList {
public:
    /// Takes the arguments up to and including the null pointer; what follows that is left to the caller.
    ArgumentList(const char* first, va_list& rest)
    {
        const char* argument = first;
        while (argument != nullptr && count_ < arguments_.size() - 1) {
            arguments_[count_++] = const_cast<char*>(argument);
            // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): the caller has started it
            argument = va_arg(rest, const char*);
        }
        complete_ = argument == nullptr;
    }

    char* const* vector() const { return arguments_.data(); }

    template <typename Operation>
    int run(const char* path, Operation operation) const
    {
        if (!complete_) {
            errno = E2BIG;
            return -1;
        }
        return shim::onPath(Call::kExec, path, operation);
    }

private:
    static constexpr size_t kMost = 1024;
    std::array<char*, kMost> arguments_{};
    size_t count_ = 0;
    bool complete_ = false;
};

/// posix_spawn gives the error itself back instead of -1.
template <typename Operation>
int spawn(const char* path, Operation operation)
{
    int result = 0;
    const int saved = errno;
    const int called = shim::onPath(Call::kExec, path, [&](const char* there) {
        result = operation(there);
        return 0;
    });
    if (called == -1) {
        result = errno;
    }
    errno = saved;
    return result;
}

}  // namespace

extern "C" {

int execve(const char* path, char* const arguments[], char* const environment[]) noexcept
{
    return shim::onPath(Call::kExec, path,
                        [&](const char* there) { return NEXT(execve)(there, arguments, environment); });
}

int execv(const char* path, char* const arguments[]) noexcept
{
    return shim::onPath(Call::kExec, path, [&](const char* there) { return NEXT(execv)(there, arguments); });
}

int execvp(const char* path, char* const arguments[]) noexcept
{
    return shim::onPath(Call::kExec, path, [&](const char* there) { return NEXT(execvp)(there, arguments); });
}

int execvpe(const char* path, char* const arguments[], char* const environment[]) noexcept
{
    return shim::onPath(Call::kExec, path,
                        [&](const char* there) { return NEXT(execvpe)(there, arguments, environment); });
}

int execveat(int directory, const char* path, char* const arguments[], char* const environment[],
             int flags) noexcept
{
    return shim::onPath(Call::kExec, path, [&](const char* there) {
        return NEXT(execveat)(directory, there, arguments, environment, flags);
    });
}

int execl(const char* path, const char* argument, ...) noexcept
{
    va_list rest;
    va_start(rest, argument);
    const ArgumentList arguments(argument, rest);
    va_end(rest);
    return arguments.run(path, [&](const char* there) { return NEXT(execv)(there, arguments.vector()); });
}

int execlp(const char* path, const char* argument, ...) noexcept
{
    va_list rest;
    va_start(rest, argument);
    const ArgumentList arguments(argument, rest);
    va_end(rest);
    return arguments.run(path, [&](const char* there) { return NEXT(execvp)(there, arguments.vector()); });
}

int execle(const char* path, const char* argument, ...) noexcept
{
    va_list rest;
    va_start(rest, argument);
    const ArgumentList arguments(argument, rest);
    char* const* environment = va_arg(rest, char* const*);
    va_end(rest);
    return arguments.run(
        path, [&](const char* there) { return NEXT(execve)(there, arguments.vector(), environment); });
}

int posix_spawn(pid_t* process, const char* path, const posix_spawn_file_actions_t* actions,
                const posix_spawnattr_t* attributes, char* const arguments[], char* const environment[])
{
    return spawn(path, [&](const char* there) {
        return NEXT(posix_spawn)(process, there, actions, attributes, arguments, environment);
    });
}

int posix_spawnp(pid_t* process, const char* path, const posix_spawn_file_actions_t* actions,
                 const posix_spawnattr_t* attributes, char* const arguments[], char* const environment[])
{
    return spawn(path, [&](const char* there) {
        return NEXT(posix_spawnp)(process, there, actions, attributes, arguments, environment);
    });
}

pid_t fork() noexcept
{
    return shim::failsForCaller(Call::kFork, __builtin_return_address(0)) ? -1 : NEXT(fork)();
}

int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*body)(void*),
                   void* argument) noexcept
{
    const int saved = errno;
    if (shim::failsForCaller(Call::kThread, __builtin_return_address(0))) {
        return std::exchange(errno, saved);  // it gives its error back and leaves this one alone
    }
    return NEXT(pthread_create)(thread, attributes, body, argument);
}

}  // extern "C"
