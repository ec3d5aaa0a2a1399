#pragma once

#include <cerrno>

/// Repeats a system call for as long as a signal interrupts it, and gives its result; errno is the last
/// call's.
///
/// Device calls are not given up for a signal: what they wait for comes within a frame, and then the loop
/// that made the call looks at its halt flag.
template <typename Call>
auto retryInterrupted(Call call)
{
    auto result = call();
    while (result == -1 && errno == EINTR) {
        result = call();
    }
    return result;
}
