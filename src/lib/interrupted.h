#pragma once

#include <cerrno>
#include <fstream>

/// Repeats a system call for as long as a signal interrupts it, and gives its result; errno is the last
/// call's.
///
/// Device calls are not given up for a signal: what they wait for comes within a frame, and then the loop
/// that made the call looks at its halt flag. (A camera may stop for good: cam_v4l waits in its own way.)
template <typename Call>
auto retryInterrupted(Call call)
{
    auto result = call();
    while (result == -1 && errno == EINTR) {
        result = call();
    }
    return result;
}

/// Opens a stream for reading, however often a signal interrupts that; is_open() says whether it worked.
inline void openInterrupted(std::ifstream& stream, const char* path)
{
    const auto open = [&] {
        errno = 0;  // a stream says nothing of why it did not open
        stream.open(path);
        return stream.is_open() ? 0 : -1;
    };
    retryInterrupted(open);
}
