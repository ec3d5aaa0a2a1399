// Entry points that read and write: only the fault plan has a say here.

#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>

#include "faults/FaultPlan.h"
#include "shim/EntryPoints.h"
#include "shim/Faults.h"
#include "shim/Journaling.h"
#include "shim/Next.h"

namespace {

using shim::Call;

template <typename Operation>
ssize_t transfer(Call call, int fd, size_t bytes, Operation operation)
{
    const shim::Transfer planned = shim::planTransfer(call, fd, bytes);
    const ssize_t moved = planned.fails ? -1 : operation(planned.bytes);
    if (planned.kills) {
        board::FaultPlan::killProcess();
    }
    return moved;
}

size_t bytesOf(const iovec* parts, int count)
{
    size_t bytes = 0;
    for (int i = 0; i < count && parts != nullptr; ++i) {
        bytes += parts[i].iov_len;
    }
    return bytes;
}

ssize_t writeNoted(int fd, const void* data, size_t bytes)
{
    const shim::journaling::Step step;
    const ssize_t written = NEXT(write)(fd, data, bytes);
    shim::journaling::written(fd, data, written);
    return written;
}

/// The parts are noted as writes of their own.
ssize_t writeParts(int fd, const iovec* parts, int count)
{
    const shim::journaling::Step step;
    const ssize_t written = NEXT(writev)(fd, parts, count);
    const int64_t end = written > 0 && shim::journaling::isOn() ? ::lseek64(fd, 0, SEEK_CUR) : 0;
    int64_t at = end - written;
    for (int i = 0; i < count && at < end; ++i) {
        const auto length = static_cast<int64_t>(parts[i].iov_len);
        const int64_t taken = length < end - at ? length : end - at;
        shim::journaling::written(fd, parts[i].iov_base, static_cast<ssize_t>(taken), at);
        at += taken;
    }
    return written;
}

/// Writes the first `bytes` of what the parts hold, as far as they are in the first of these.
ssize_t writeStart(int fd, const iovec* parts, int count, size_t bytes)
{
    constexpr int kMostParts = 16;
    iovec start[kMostParts];
    int used = 0;
    for (; used < count && used < kMostParts && bytes > 0; ++used) {
        start[used] = parts[used];
        start[used].iov_len = std::min(start[used].iov_len, bytes);
        bytes -= start[used].iov_len;
    }
    return writeParts(fd, start, used);
}

template <typename Operation>
ssize_t writeAt(int fd, const void* data, int64_t offset, Operation operation)
{
    const shim::journaling::Step step;
    const ssize_t written = operation();
    shim::journaling::written(fd, data, written, offset);
    return written;
}

}  // namespace

extern "C" {

ssize_t read(int fd, void* data, size_t bytes)
{
    return transfer(Call::kRead, fd, bytes, [&](size_t allowed) { return NEXT(read)(fd, data, allowed); });
}

ssize_t __read_chk(int fd, void* data, size_t bytes, size_t room)
{
    return transfer(Call::kRead, fd, bytes,
                    [&](size_t allowed) { return NEXT(__read_chk)(fd, data, allowed, room); });
}

ssize_t pread(int fd, void* data, size_t bytes, off_t offset)
{
    return transfer(Call::kRead, fd, bytes,
                    [&](size_t allowed) { return NEXT(pread)(fd, data, allowed, offset); });
}

ssize_t pread64(int fd, void* data, size_t bytes, off64_t offset)
{
    return transfer(Call::kRead, fd, bytes,
                    [&](size_t allowed) { return NEXT(pread64)(fd, data, allowed, offset); });
}

ssize_t __pread_chk(int fd, void* data, size_t bytes, off_t offset, size_t room)
{
    return transfer(Call::kRead, fd, bytes,
                    [&](size_t allowed) { return NEXT(__pread_chk)(fd, data, allowed, offset, room); });
}

ssize_t __pread64_chk(int fd, void* data, size_t bytes, off64_t offset, size_t room)
{
    return transfer(Call::kRead, fd, bytes,
                    [&](size_t allowed) { return NEXT(__pread64_chk)(fd, data, allowed, offset, room); });
}

ssize_t write(int fd, const void* data, size_t bytes)
{
    return transfer(Call::kWrite, fd, bytes, [&](size_t allowed) { return writeNoted(fd, data, allowed); });
}

ssize_t pwrite(int fd, const void* data, size_t bytes, off_t offset)
{
    return transfer(Call::kWrite, fd, bytes, [&](size_t allowed) {
        return writeAt(fd, data, offset, [&] { return NEXT(pwrite)(fd, data, allowed, offset); });
    });
}

ssize_t pwrite64(int fd, const void* data, size_t bytes, off64_t offset)
{
    return transfer(Call::kWrite, fd, bytes, [&](size_t allowed) {
        return writeAt(fd, data, offset, [&] { return NEXT(pwrite64)(fd, data, allowed, offset); });
    });
}

ssize_t writev(int fd, const iovec* parts, int count)
{
    const size_t all = bytesOf(parts, count);
    return transfer(Call::kWrite, fd, all, [&](size_t allowed) {
        return allowed < all ? writeStart(fd, parts, count, allowed) : writeParts(fd, parts, count);
    });
}

}  // extern "C"
