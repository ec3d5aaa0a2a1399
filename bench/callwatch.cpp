// Preloaded before the board's library: notes when which call of the program came back. Kept in the file that
// WATCH_FILE names (CallLog), so that nothing is written while a frame is in work.

#include <dlfcn.h>
#include <fcntl.h>
#include <linux/fb.h>
#include <linux/videodev2.h>
#include <mqueue.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdlib>
#include <ctime>

#include "CallLog.h"

namespace {

using bench::CallLog;
using bench::Event;
using bench::Kind;

CallLog* callLog = nullptr;

uint64_t now()
{
    timespec time = {};
    clock_gettime(CLOCK_MONOTONIC, &time);
    constexpr uint64_t kNanosecondsASecond = 1000000000;
    return static_cast<uint64_t>(time.tv_sec) * kNanosecondsASecond + static_cast<uint64_t>(time.tv_nsec);
}

void note(Kind kind, int64_t result, uint32_t request = 0, uint64_t frameNs = 0, uint64_t argument = 0)
{
    if (callLog == nullptr) {
        return;
    }
    const uint64_t index = callLog->used.fetch_add(1);
    if (index < CallLog::kEvents) {
        callLog->events[index] = {now(), frameNs, static_cast<uint32_t>(kind), request, result, argument};
    }
}

template <typename Function>
Function* next(const char* name)
{
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

__attribute__((constructor)) void begin()
{
    const char* path = std::getenv("WATCH_FILE");          // NOLINT(concurrency-mt-unsafe): before main
    const char* executed = std::getenv("WATCH_EXECUTED");  // NOLINT(concurrency-mt-unsafe): before main
    const int fd =
        path == nullptr ? -1 : static_cast<int>(syscall(SYS_openat, AT_FDCWD, path, O_RDWR | O_CLOEXEC));
    if (fd < 0) {
        return;
    }
    void* const mapped = mmap(nullptr, sizeof(CallLog), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    callLog = mapped == MAP_FAILED ? nullptr : static_cast<CallLog*>(mapped);
    note(Kind::kLoaded, 0, 0, 0, executed == nullptr ? 0 : std::strtoull(executed, nullptr, 10));
}

}  // namespace

extern "C" {

int ioctl(int fd, unsigned long request, ...) noexcept
{
    va_list arguments;
    va_start(arguments, request);
    void* argument = va_arg(arguments, void*);
    va_end(arguments);
    static auto* const real = next<int(int, unsigned long, ...)>("ioctl");
    const int result = real(fd, request, argument);
    uint64_t frameNs = 0;
    if (request == VIDIOC_DQBUF && result == 0) {
        const auto& stamp = static_cast<v4l2_buffer*>(argument)->timestamp;
        frameNs =
            static_cast<uint64_t>(stamp.tv_sec) * 1000000000U + static_cast<uint64_t>(stamp.tv_usec) * 1000U;
    }
    note(Kind::kIoctl, result, static_cast<uint32_t>(request), frameNs,
         request == FBIOBLANK ? reinterpret_cast<uintptr_t>(argument) : 0);
    return result;
}

ssize_t writev(int fd, const iovec* parts, int count)
{
    static auto* const real = next<ssize_t(int, const iovec*, int)>("writev");
    const ssize_t result = real(fd, parts, count);
    note(Kind::kWrite, result);
    return result;
}

int mq_timedsend(mqd_t queue, const char* data, size_t bytes, unsigned priority, const timespec* until)
{
    static auto* const real =
        next<int(mqd_t, const char*, size_t, unsigned, const timespec*)>("mq_timedsend");
    const int result = real(queue, data, bytes, priority, until);
    note(Kind::kSend, result);
    return result;
}

int mq_send(mqd_t queue, const char* data, size_t bytes, unsigned priority)
{
    static auto* const real = next<int(mqd_t, const char*, size_t, unsigned)>("mq_send");
    const int result = real(queue, data, bytes, priority);
    note(Kind::kSend, result);
    return result;
}

ssize_t mq_receive(mqd_t queue, char* data, size_t bytes, unsigned* priority)
{
    static auto* const real = next<ssize_t(mqd_t, char*, size_t, unsigned*)>("mq_receive");
    const ssize_t result = real(queue, data, bytes, priority);
    note(Kind::kReceive, result);
    return result;
}

}  // extern "C"
