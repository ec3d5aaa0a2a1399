// Entry points on open descriptors: closing, duplicating, device requests, mapping.

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>

#include "shim/Devices.h"
#include "shim/EntryPoints.h"
#include "shim/Faults.h"
#include "shim/Handles.h"
#include "shim/Journaling.h"
#include "shim/Next.h"

namespace {

using shim::Call;
namespace handles = shim::handles;

/// Forgets a descriptor; the device hears of its handle's end.
void forget(int fd)
{
    const auto ended = handles::release(fd);
    if (ended) {
        shim::devices::closed(*ended);
    }
}

/// After a successful duplication: what the new number was before is gone.
int duplicated(int from, int to)
{
    if (to >= 0 && to != from) {
        forget(to);
        handles::duplicate(from, to);
    }
    return to;
}

void forgetAll(unsigned first, unsigned last)
{
    for (unsigned fd = first; fd <= last && fd < handles::kDescriptors; ++fd) {
        forget(static_cast<int>(fd));
    }
}

template <typename Operation>
int synced(int fd, Operation operation)
{
    if (shim::failsByPlan(Call::kSync, fd)) {
        return -1;
    }
    const shim::journaling::Syncing syncing(fd);
    return syncing.done(operation());
}

template <typename Function>
int control(Function* next, int fd, int command, void* argument)
{
    const int result = next(fd, command, argument);
    const bool duplicates = command == F_DUPFD || command == F_DUPFD_CLOEXEC;
    return duplicates ? duplicated(fd, result) : result;
}

}  // namespace

#define LAST_ARGUMENT(before)                  \
    va_list arguments;                         \
    va_start(arguments, before);               \
    void* argument = va_arg(arguments, void*); \
    va_end(arguments);

extern "C" {

int close(int fd)
{
    const bool fails = shim::failsByPlan(Call::kClose, fd);
    const int planned = errno;
    // Before the number is free for others.
    forget(fd);
    const int result = NEXT(close)(fd);
    if (fails) {
        errno = planned;  // the descriptor is closed all the same, as the kernel does it
        return -1;
    }
    return result;
}

int close_range(unsigned first, unsigned last, int flags) noexcept
{
    if ((static_cast<unsigned>(flags) & CLOSE_RANGE_CLOEXEC) == 0) {
        forgetAll(first, last);
    }
    return NEXT(close_range)(first, last, flags);
}

void closefrom(int first) noexcept
{
    forgetAll(first < 0 ? 0 : static_cast<unsigned>(first), handles::kDescriptors);
    NEXT(closefrom)(first);
}

int dup(int fd) noexcept
{
    return duplicated(fd, NEXT(dup)(fd));
}

int dup2(int fd, int other) noexcept
{
    return duplicated(fd, NEXT(dup2)(fd, other));
}

int dup3(int fd, int other, int flags) noexcept
{
    return duplicated(fd, NEXT(dup3)(fd, other, flags));
}

int fcntl(int fd, int command, ...)
{
    LAST_ARGUMENT(command)
    return control(NEXT(fcntl), fd, command, argument);
}

int fcntl64(int fd, int command, ...)
{
    LAST_ARGUMENT(command)
    return control(NEXT(fcntl64), fd, command, argument);
}

int ioctl(int fd, unsigned long request, ...) noexcept
{
    LAST_ARGUMENT(request)
    const auto node = handles::nodeOf(fd);
    return node ? shim::devices::call(*node, request, argument) : NEXT(ioctl)(fd, request, argument);
}

void* mmap(void* start, size_t bytes, int protection, int flags, int fd, off_t offset) noexcept
{
    return shim::failsByPlan(Call::kMmap, fd) ? MAP_FAILED
                                              : NEXT(mmap)(start, bytes, protection, flags, fd, offset);
}

void* mmap64(void* start, size_t bytes, int protection, int flags, int fd, off64_t offset) noexcept
{
    return shim::failsByPlan(Call::kMmap, fd) ? MAP_FAILED
                                              : NEXT(mmap64)(start, bytes, protection, flags, fd, offset);
}

int fsync(int fd)
{
    return synced(fd, [fd] { return NEXT(fsync)(fd); });
}

int fdatasync(int fd)
{
    return synced(fd, [fd] { return NEXT(fdatasync)(fd); });
}

int syncfs(int fd) noexcept
{
    return shim::failsByPlan(Call::kSync, fd) ? -1 : NEXT(syncfs)(fd);
}

}  // extern "C"
