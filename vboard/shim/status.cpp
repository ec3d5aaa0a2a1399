// Entry points that look at files by path.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "shim/EntryPoints.h"
#include "shim/MappedPath.h"
#include "shim/Next.h"

using shim::Call;

namespace {

template <typename Operation>
int look(const char* path, Operation operation)
{
    return shim::onPath(Call::kStat, path, operation);
}

}  // namespace

extern "C" {

int stat(const char* path, struct stat* record) noexcept
{
    return look(path, [&](const char* there) { return NEXT(stat)(there, record); });
}

int stat64(const char* path, struct stat64* record) noexcept
{
    return look(path, [&](const char* there) { return NEXT(stat64)(there, record); });
}

int lstat(const char* path, struct stat* record) noexcept
{
    return look(path, [&](const char* there) { return NEXT(lstat)(there, record); });
}

int lstat64(const char* path, struct stat64* record) noexcept
{
    return look(path, [&](const char* there) { return NEXT(lstat64)(there, record); });
}

int fstatat(int directory, const char* path, struct stat* record, int flags) noexcept
{
    return look(path, [&](const char* there) { return NEXT(fstatat)(directory, there, record, flags); });
}

int fstatat64(int directory, const char* path, struct stat64* record, int flags) noexcept
{
    return look(path, [&](const char* there) { return NEXT(fstatat64)(directory, there, record, flags); });
}

int statx(int directory, const char* path, int flags, unsigned mask, struct statx* record) noexcept
{
    return look(path, [&](const char* there) { return NEXT(statx)(directory, there, flags, mask, record); });
}

int __xstat(int version, const char* path, struct stat* record) noexcept
{
    return look(path, [&](const char* there) { return NEXT(__xstat)(version, there, record); });
}

int __xstat64(int version, const char* path, struct stat64* record) noexcept
{
    return look(path, [&](const char* there) { return NEXT(__xstat64)(version, there, record); });
}

int __lxstat(int version, const char* path, struct stat* record) noexcept
{
    return look(path, [&](const char* there) { return NEXT(__lxstat)(version, there, record); });
}

int __lxstat64(int version, const char* path, struct stat64* record) noexcept
{
    return look(path, [&](const char* there) { return NEXT(__lxstat64)(version, there, record); });
}

int __fxstatat(int version, int directory, const char* path, struct stat* record, int flags) noexcept
{
    return look(
        path, [&](const char* there) { return NEXT(__fxstatat)(version, directory, there, record, flags); });
}

int __fxstatat64(int version, int directory, const char* path, struct stat64* record, int flags) noexcept
{
    return look(path, [&](const char* there) {
        return NEXT(__fxstatat64)(version, directory, there, record, flags);
    });
}

int access(const char* path, int mode) noexcept
{
    return look(path, [&](const char* there) { return NEXT(access)(there, mode); });
}

int eaccess(const char* path, int mode) noexcept
{
    return look(path, [&](const char* there) { return NEXT(eaccess)(there, mode); });
}

int euidaccess(const char* path, int mode) noexcept
{
    return look(path, [&](const char* there) { return NEXT(euidaccess)(there, mode); });
}

int faccessat(int directory, const char* path, int mode, int flags) noexcept
{
    return look(path, [&](const char* there) { return NEXT(faccessat)(directory, there, mode, flags); });
}

}  // extern "C"
