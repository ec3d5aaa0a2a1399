// Entry points that read and write: only the fault plan has a say here.

#include <sys/uio.h>
#include <unistd.h>

#include "shim/EntryPoints.h"
#include "shim/Faults.h"
#include "shim/Next.h"

namespace {

using shim::Call;

template <typename Operation>
ssize_t transfer(Call call, int fd, size_t bytes, Operation operation)
{
    const shim::Transfer planned = shim::planTransfer(call, fd, bytes);
    return planned.fails ? -1 : operation(planned.bytes);
}

size_t bytesOf(const iovec* parts, int count)
{
    size_t bytes = 0;
    for (int i = 0; i < count && parts != nullptr; ++i) {
        bytes += parts[i].iov_len;
    }
    return bytes;
}

/// Writes the first bytes of what the parts hold: of the first part that is not empty, as much as allowed.
ssize_t writeStart(int fd, const iovec* parts, size_t bytes)
{
    while (parts->iov_len == 0) {
        ++parts;
    }
    return NEXT(write)(fd, parts->iov_base, bytes < parts->iov_len ? bytes : parts->iov_len);
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
    return transfer(Call::kWrite, fd, bytes, [&](size_t allowed) { return NEXT(write)(fd, data, allowed); });
}

ssize_t pwrite(int fd, const void* data, size_t bytes, off_t offset)
{
    return transfer(Call::kWrite, fd, bytes,
                    [&](size_t allowed) { return NEXT(pwrite)(fd, data, allowed, offset); });
}

ssize_t pwrite64(int fd, const void* data, size_t bytes, off64_t offset)
{
    return transfer(Call::kWrite, fd, bytes,
                    [&](size_t allowed) { return NEXT(pwrite64)(fd, data, allowed, offset); });
}

ssize_t writev(int fd, const iovec* parts, int count)
{
    const size_t all = bytesOf(parts, count);
    return transfer(Call::kWrite, fd, all, [&](size_t allowed) {
        return allowed < all ? writeStart(fd, parts, allowed) : NEXT(writev)(fd, parts, count);
    });
}

}  // extern "C"
