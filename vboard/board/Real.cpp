#include "board/Real.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <ctime>

namespace real {
namespace {

/// Runs a system call, gives its result or the negative errno, and keeps the caller's errno.
template <typename... Arguments>
long call(long number, Arguments... arguments)
{
    const int saved = errno;
    const long result = ::syscall(number, arguments...);
    const long answer = (result == -1) ? -errno : result;
    errno = saved;
    return answer;
}

#ifdef SYS_mmap2
constexpr long kMapCall = SYS_mmap2;
constexpr off_t kMapOffsetUnit = 4096;  // mmap2 counts in pages, so that 32 bits reach beyond 4 GiB
#else
constexpr long kMapCall = SYS_mmap;
constexpr off_t kMapOffsetUnit = 1;
#endif

constexpr uint64_t kUsPerSecond = 1000000;
constexpr long kNsPerUs = 1000;

}  // namespace

int openAt(int directory, const char* path, int flags, mode_t mode)
{
    return static_cast<int>(call(SYS_openat, directory, path, flags | O_LARGEFILE, mode));
}

int open(const char* path, int flags, mode_t mode)
{
    return openAt(AT_FDCWD, path, flags, mode);
}

int close(int fd)
{
    return static_cast<int>(call(SYS_close, fd));
}

ssize_t read(int fd, void* data, size_t bytes)
{
    return call(SYS_read, fd, data, bytes);
}

ssize_t write(int fd, const void* data, size_t bytes)
{
    return call(SYS_write, fd, data, bytes);
}

int truncate(int fd, off_t bytes)
{
    // glibc passes a 64-bit length in the register pair that each processor wants; ftruncate is not taken
    // over.
    const int saved = errno;
    const int answer = (::ftruncate(fd, bytes) == -1) ? -errno : 0;
    errno = saved;
    return answer;
}

int kill(pid_t process, int signal)
{
    return static_cast<int>(call(SYS_kill, process, signal));
}

int unlink(const char* path)
{
    return static_cast<int>(call(SYS_unlinkat, AT_FDCWD, path, 0));
}

pid_t processId()
{
    return static_cast<pid_t>(call(SYS_getpid));
}

pid_t threadId()
{
    return static_cast<pid_t>(call(SYS_gettid));
}

namespace {

void* map(int fd, size_t bytes, int protection, off_t offset)
{
    const long answer = call(kMapCall, nullptr, bytes, protection, MAP_SHARED, fd,
                             static_cast<long>(offset / kMapOffsetUnit));
    constexpr long kLastErrno = 4095;
    const bool failed = answer < 0 && answer >= -kLastErrno;
    // NOLINTNEXTLINE(performance-no-int-to-ptr): that is how the kernel gives an address
    return failed ? nullptr : reinterpret_cast<void*>(answer);
}

}  // namespace

void* mapShared(int fd, size_t bytes, off_t offset)
{
    return map(fd, bytes, PROT_READ | PROT_WRITE, offset);
}

const void* mapReadOnly(int fd, size_t bytes)
{
    return map(fd, bytes, PROT_READ, 0);
}

void unmap(const void* start, size_t bytes)
{
    call(SYS_munmap, start, bytes);
}

off_t fileSize(const char* path)
{
    const int fd = open(path, O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        return -1;
    }
    const off_t bytes = ::lseek(fd, 0, SEEK_END);  // not taken over
    close(fd);
    return bytes;
}

bool exists(const char* path)
{
    return call(SYS_faccessat, AT_FDCWD, path, F_OK) == 0;
}

std::string pathOf(int fd)
{
    const std::string link = "/proc/self/fd/" + std::to_string(fd);
    std::array<char, PATH_MAX> target{};
    const long length = call(SYS_readlinkat, AT_FDCWD, link.c_str(), target.data(), target.size());
    return length > 0 ? std::string(target.data(), static_cast<size_t>(length)) : std::string();
}

uint64_t monotonicUs()
{
    timespec now{};
    ::clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<uint64_t>(now.tv_sec) * kUsPerSecond + static_cast<uint64_t>(now.tv_nsec / kNsPerUs);
}

bool sleepUs(uint64_t microseconds)
{
    // Not libc's call: that one is a cancellation point, and a thread must not be unwound out of the board.
    // The kernel's record has the processor's long, whatever time_t is.
    const std::array<long, 2> span{static_cast<long>(microseconds / kUsPerSecond),
                                   static_cast<long>(microseconds % kUsPerSecond) * kNsPerUs};
    return call(SYS_clock_nanosleep, CLOCK_MONOTONIC, 0, span.data(), nullptr) == 0;
}

short waitReadable(int fd, unsigned milliseconds)
{
    constexpr unsigned kMsPerSecond = 1000;
    constexpr long kNsPerMs = 1000000;
    const std::array<long, 2> span{static_cast<long>(milliseconds / kMsPerSecond),
                                   static_cast<long>(milliseconds % kMsPerSecond) * kNsPerMs};
    pollfd waiting{fd, POLLIN, 0};
    call(SYS_ppoll, &waiting, 1, span.data(), nullptr, 0);
    return waiting.revents;
}

void waitForSignal()
{
    call(SYS_ppoll, nullptr, 0, nullptr, nullptr, 0);
}

}  // namespace real
