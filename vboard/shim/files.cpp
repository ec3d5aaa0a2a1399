// Entry points that change or name files by path.

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/xattr.h>
#include <unistd.h>
#include <utime.h>

#include <cstdio>

#include "shim/EntryPoints.h"
#include "shim/Journaling.h"
#include "shim/MappedPath.h"
#include "shim/Next.h"

using shim::Call;
using shim::onPath;
using shim::onPaths;

namespace {

/// Makes a call, and a note of it when it has worked.
template <typename Operation, typename Note>
int noted(Operation operation, Note note)
{
    const shim::journaling::Step step;
    const int result = operation();
    if (result == 0) {
        note();
    }
    return result;
}

template <typename Operation>
int removing(const char* there, Operation operation)
{
    return noted(operation, [&] { shim::journaling::removed(there); });
}

template <typename Operation>
int renaming(const char* from, const char* to, Operation operation)
{
    return noted(operation, [&] { shim::journaling::renamed(from, to); });
}

template <typename Operation>
int truncating(const char* there, off64_t bytes, Operation operation)
{
    return noted(operation, [&] { shim::journaling::truncated(there, bytes); });
}

}  // namespace

extern "C" {

int unlink(const char* path) noexcept
{
    return onPath(Call::kUnlink, path,
                  [](const char* there) { return removing(there, [&] { return NEXT(unlink)(there); }); });
}

int unlinkat(int directory, const char* path, int flags) noexcept
{
    return onPath(Call::kUnlink, path, [&](const char* there) {
        return removing(there, [&] { return NEXT(unlinkat)(directory, there, flags); });
    });
}

int remove(const char* path) noexcept
{
    return onPath(Call::kUnlink, path,
                  [](const char* there) { return removing(there, [&] { return NEXT(remove)(there); }); });
}

int rename(const char* from, const char* to) noexcept
{
    return onPaths(Call::kRename, from, to, [](const char* source, const char* target) {
        return renaming(source, target, [&] { return NEXT(rename)(source, target); });
    });
}

int renameat(int fromDirectory, const char* from, int toDirectory, const char* to) noexcept
{
    return onPaths(Call::kRename, from, to, [&](const char* source, const char* target) {
        return renaming(source, target,
                        [&] { return NEXT(renameat)(fromDirectory, source, toDirectory, target); });
    });
}

int renameat2(int fromDirectory, const char* from, int toDirectory, const char* to, unsigned flags) noexcept
{
    return onPaths(Call::kRename, from, to, [&](const char* source, const char* target) {
        return renaming(source, target,
                        [&] { return NEXT(renameat2)(fromDirectory, source, toDirectory, target, flags); });
    });
}

int link(const char* from, const char* to) noexcept
{
    return onPaths(Call::kNone, from, to,
                   [](const char* source, const char* target) { return NEXT(link)(source, target); });
}

int linkat(int fromDirectory, const char* from, int toDirectory, const char* to, int flags) noexcept
{
    return onPaths(Call::kNone, from, to, [&](const char* source, const char* target) {
        return NEXT(linkat)(fromDirectory, source, toDirectory, target, flags);
    });
}

// The text of a link is turned as well: the kernel follows it.

int symlink(const char* text, const char* path) noexcept
{
    return onPaths(Call::kNone, text, path,
                   [](const char* target, const char* there) { return NEXT(symlink)(target, there); });
}

int symlinkat(const char* text, int directory, const char* path) noexcept
{
    return onPaths(Call::kNone, text, path, [&](const char* target, const char* there) {
        return NEXT(symlinkat)(target, directory, there);
    });
}

ssize_t readlink(const char* path, char* target, size_t bytes) noexcept
{
    return onPath(Call::kNone, path, [&](const char* there) { return NEXT(readlink)(there, target, bytes); });
}

ssize_t readlinkat(int directory, const char* path, char* target, size_t bytes) noexcept
{
    return onPath(Call::kNone, path,
                  [&](const char* there) { return NEXT(readlinkat)(directory, there, target, bytes); });
}

ssize_t __readlink_chk(const char* path, char* target, size_t bytes, size_t room) noexcept
{
    return onPath(Call::kNone, path,
                  [&](const char* there) { return NEXT(__readlink_chk)(there, target, bytes, room); });
}

ssize_t __readlinkat_chk(int directory, const char* path, char* target, size_t bytes, size_t room) noexcept
{
    return onPath(Call::kNone, path, [&](const char* there) {
        return NEXT(__readlinkat_chk)(directory, there, target, bytes, room);
    });
}

int truncate(const char* path, off_t bytes) noexcept
{
    return onPath(Call::kTruncate, path, [&](const char* there) {
        return truncating(there, bytes, [&] { return NEXT(truncate)(there, bytes); });
    });
}

int truncate64(const char* path, off64_t bytes) noexcept
{
    return onPath(Call::kTruncate, path, [&](const char* there) {
        return truncating(there, bytes, [&] { return NEXT(truncate64)(there, bytes); });
    });
}

int chmod(const char* path, mode_t mode) noexcept
{
    return onPath(Call::kNone, path, [&](const char* there) { return NEXT(chmod)(there, mode); });
}

int fchmodat(int directory, const char* path, mode_t mode, int flags) noexcept
{
    return onPath(Call::kNone, path,
                  [&](const char* there) { return NEXT(fchmodat)(directory, there, mode, flags); });
}

int chown(const char* path, uid_t user, gid_t group) noexcept
{
    return onPath(Call::kNone, path, [&](const char* there) { return NEXT(chown)(there, user, group); });
}

int lchown(const char* path, uid_t user, gid_t group) noexcept
{
    return onPath(Call::kNone, path, [&](const char* there) { return NEXT(lchown)(there, user, group); });
}

int fchownat(int directory, const char* path, uid_t user, gid_t group, int flags) noexcept
{
    return onPath(Call::kNone, path,
                  [&](const char* there) { return NEXT(fchownat)(directory, there, user, group, flags); });
}

int utime(const char* path, const utimbuf* times) noexcept
{
    return onPath(Call::kNone, path, [&](const char* there) { return NEXT(utime)(there, times); });
}

int utimes(const char* path, const timeval* times) noexcept
{
    return onPath(Call::kNone, path, [&](const char* there) { return NEXT(utimes)(there, times); });
}

int utimensat(int directory, const char* path, const timespec* times, int flags) noexcept
{
    return onPath(Call::kNone, path,
                  [&](const char* there) { return NEXT(utimensat)(directory, there, times, flags); });
}

ssize_t getxattr(const char* path, const char* name, void* value, size_t bytes) noexcept
{
    return onPath(Call::kNone, path,
                  [&](const char* there) { return NEXT(getxattr)(there, name, value, bytes); });
}

ssize_t lgetxattr(const char* path, const char* name, void* value, size_t bytes) noexcept
{
    return onPath(Call::kNone, path,
                  [&](const char* there) { return NEXT(lgetxattr)(there, name, value, bytes); });
}

ssize_t listxattr(const char* path, char* list, size_t bytes) noexcept
{
    return onPath(Call::kNone, path, [&](const char* there) { return NEXT(listxattr)(there, list, bytes); });
}

ssize_t llistxattr(const char* path, char* list, size_t bytes) noexcept
{
    return onPath(Call::kNone, path, [&](const char* there) { return NEXT(llistxattr)(there, list, bytes); });
}

}  // extern "C"
