// Entry points of 32-bit programs whose time has 64 bits. Their records are only handed on.

#include <features.h>
#include <mqueue.h>
#include <sys/types.h>

#include <cstdarg>

#include "shim/Devices.h"
#include "shim/EntryPoints.h"
#include "shim/Handles.h"
#include "shim/MappedPath.h"
#include "shim/Next.h"

#if __TIMESIZE == 32 && __GLIBC_PREREQ(2, 34)

extern "C" {
int __ioctl_time64(int fd, unsigned long request, ...) noexcept;
int __fcntl_time64(int fd, int command, ...);
int __stat64_time64(const char* path, void* record) noexcept;
int __lstat64_time64(const char* path, void* record) noexcept;
int __fstatat64_time64(int directory, const char* path, void* record, int flags) noexcept;
int __utime64(const char* path, const void* times) noexcept;
int __utimes64(const char* path, const void* times) noexcept;
int __utimensat64(int directory, const char* path, const void* times, int flags) noexcept;
int __mq_timedsend_time64(mqd_t queue, const char* message, size_t bytes, unsigned priority,
                          const void* until);
ssize_t __mq_timedreceive_time64(mqd_t queue, char* message, size_t bytes, unsigned* priority,
                                 const void* until);
}

namespace {

using shim::Call;
using shim::onPath;

}  // namespace

extern "C" {

int __ioctl_time64(int fd, unsigned long request, ...) noexcept
{
    va_list arguments;
    va_start(arguments, request);
    void* argument = va_arg(arguments, void*);
    va_end(arguments);
    const auto node = shim::handles::nodeOf(fd);
    return node ? shim::devices::call(*node, request, argument) : NEXT(__ioctl_time64)(fd, request, argument);
}

int __fcntl_time64(int fd, int command, ...)
{
    va_list arguments;
    va_start(arguments, command);
    void* argument = va_arg(arguments, void*);
    va_end(arguments);
    return ::fcntl64(fd, command, argument);  // no command that the two differ in is the board's
}

int __stat64_time64(const char* path, void* record) noexcept
{
    return onPath(Call::kStat, path, [&](const char* there) { return NEXT(__stat64_time64)(there, record); });
}

int __lstat64_time64(const char* path, void* record) noexcept
{
    return onPath(Call::kStat, path,
                  [&](const char* there) { return NEXT(__lstat64_time64)(there, record); });
}

int __fstatat64_time64(int directory, const char* path, void* record, int flags) noexcept
{
    return onPath(Call::kStat, path, [&](const char* there) {
        return NEXT(__fstatat64_time64)(directory, there, record, flags);
    });
}

int __utime64(const char* path, const void* times) noexcept
{
    return onPath(Call::kNone, path, [&](const char* there) { return NEXT(__utime64)(there, times); });
}

int __utimes64(const char* path, const void* times) noexcept
{
    return onPath(Call::kNone, path, [&](const char* there) { return NEXT(__utimes64)(there, times); });
}

int __utimensat64(int directory, const char* path, const void* times, int flags) noexcept
{
    return onPath(Call::kNone, path,
                  [&](const char* there) { return NEXT(__utimensat64)(directory, there, times, flags); });
}

int __mq_timedsend_time64(mqd_t queue, const char* message, size_t bytes, unsigned priority,
                          const void* until)
{
    return shim::failsByPlan(Call::kMqSend, queue)
               ? -1
               : NEXT(__mq_timedsend_time64)(queue, message, bytes, priority, until);
}

ssize_t __mq_timedreceive_time64(mqd_t queue, char* message, size_t bytes, unsigned* priority,
                                 const void* until)
{
    return shim::failsByPlan(Call::kMqReceive, queue)
               ? -1
               : NEXT(__mq_timedreceive_time64)(queue, message, bytes, priority, until);
}

}  // extern "C"

#endif
