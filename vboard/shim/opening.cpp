// Entry points that open files and devices.

#include <fcntl.h>

#include <cstdarg>
#include <cstdio>
#include <optional>

#include "paths/Paths.h"
#include "shim/Attachment.h"
#include "shim/Devices.h"
#include "shim/EntryPoints.h"
#include "shim/Handles.h"
#include "shim/Journaling.h"
#include "shim/MappedPath.h"
#include "shim/Next.h"

namespace {

using shim::Call;

std::optional<board::paths::Node> nodeNamed(const char* path)
{
    const bool onBoard = path != nullptr && path[0] == '/' && shim::attachedBoard() != nullptr;
    return onBoard ? board::paths::node(path) : std::nullopt;
}

/// A descriptor that was closed behind our back may have left its mark on this number.
int fresh(int fd)
{
    const auto ended = shim::handles::release(fd);
    if (ended) {
        shim::devices::closed(*ended);
    }
    return fd;
}

int openAny(int directory, const char* path, int flags, mode_t mode)
{
    const auto node = nodeNamed(path);
    if (node) {
        return shim::failsByPlan(Call::kOpen, path) ? -1 : shim::devices::open(*node, flags);
    }
    return shim::onPath(Call::kOpen, path, [&](const char* there) {
        const shim::journaling::Step step;
        const shim::journaling::Opening opening(there, flags);
        const int fd = fresh(NEXT(openat)(directory, there, flags, mode));
        opening.done(fd);
        return fd;
    });
}

bool takesMode(int flags)
{
    return (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE;
}

constexpr int kCreate = O_CREAT | O_WRONLY | O_TRUNC;

/// The kernel's flag; <fcntl.h> has 0 for it where files are always large.
constexpr int kLargeFile = O_LARGEFILE;

}  // namespace

// NOLINTBEGIN(clang-analyzer-valist.Uninitialized): the analyzer misses va_start in a branch
// The mode is there only when the flags say so.
#define OPTIONAL_MODE(flags)                                     \
    mode_t mode = 0;                                             \
    if (takesMode(flags)) {                                      \
        va_list arguments;                                       \
        va_start(arguments, flags);                              \
        mode = static_cast<mode_t>(va_arg(arguments, unsigned)); \
        va_end(arguments);                                       \
    }

extern "C" {

int open(const char* path, int flags, ...)
{
    OPTIONAL_MODE(flags)
    return openAny(AT_FDCWD, path, flags, mode);
}

int open64(const char* path, int flags, ...)
{
    OPTIONAL_MODE(flags)
    return openAny(AT_FDCWD, path, flags | kLargeFile, mode);
}

int openat(int directory, const char* path, int flags, ...)
{
    OPTIONAL_MODE(flags)
    return openAny(directory, path, flags, mode);
}

int openat64(int directory, const char* path, int flags, ...)
{
    OPTIONAL_MODE(flags)
    return openAny(directory, path, flags | kLargeFile, mode);
}

// NOLINTEND(clang-analyzer-valist.Uninitialized)

int __open_2(const char* path, int flags)
{
    return openAny(AT_FDCWD, path, flags, 0);
}

int __open64_2(const char* path, int flags)
{
    return openAny(AT_FDCWD, path, flags | kLargeFile, 0);
}

int __openat_2(int directory, const char* path, int flags)
{
    return openAny(directory, path, flags, 0);
}

int __openat64_2(int directory, const char* path, int flags)
{
    return openAny(directory, path, flags | kLargeFile, 0);
}

int creat(const char* path, mode_t mode)
{
    return openAny(AT_FDCWD, path, kCreate, mode);
}

int creat64(const char* path, mode_t mode)
{
    return openAny(AT_FDCWD, path, kCreate | kLargeFile, mode);
}

// A stream over a device's node reads and writes the file behind it; it is no handle of the device.

FILE* fopen(const char* path, const char* mode)
{
    return shim::onPath(Call::kOpen, path, [&](const char* there) { return NEXT(fopen)(there, mode); });
}

FILE* fopen64(const char* path, const char* mode)
{
    return shim::onPath(Call::kOpen, path, [&](const char* there) { return NEXT(fopen64)(there, mode); });
}

FILE* freopen(const char* path, const char* mode, FILE* stream)
{
    return shim::onPath(Call::kOpen, path,
                        [&](const char* there) { return NEXT(freopen)(there, mode, stream); });
}

FILE* freopen64(const char* path, const char* mode, FILE* stream)
{
    return shim::onPath(Call::kOpen, path,
                        [&](const char* there) { return NEXT(freopen64)(there, mode, stream); });
}

}  // extern "C"
