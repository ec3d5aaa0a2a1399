// Entry points on directories and file systems.

#include <dirent.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include "shim/EntryPoints.h"
#include "shim/MappedPath.h"
#include "shim/Next.h"

using shim::Call;
using shim::onPath;

extern "C" {

int mkdir(const char* path, mode_t mode) noexcept
{
    return onPath(Call::kMkdir, path, [&](const char* there) { return NEXT(mkdir)(there, mode); });
}

int mkdirat(int directory, const char* path, mode_t mode) noexcept
{
    return onPath(Call::kMkdir, path,
                  [&](const char* there) { return NEXT(mkdirat)(directory, there, mode); });
}

int rmdir(const char* path) noexcept
{
    return onPath(Call::kUnlink, path, [](const char* there) { return NEXT(rmdir)(there); });
}

int chdir(const char* path) noexcept
{
    return onPath(Call::kNone, path, [](const char* there) { return NEXT(chdir)(there); });
}

DIR* opendir(const char* path)
{
    return onPath(Call::kOpendir, path, [](const char* there) { return NEXT(opendir)(there); });
}

int scandir(const char* path, dirent*** list, int (*filter)(const dirent*),
            int (*compare)(const dirent**, const dirent**))
{
    return onPath(Call::kOpendir, path,
                  [&](const char* there) { return NEXT(scandir)(there, list, filter, compare); });
}

int scandir64(const char* path, dirent64*** list, int (*filter)(const dirent64*),
              int (*compare)(const dirent64**, const dirent64**))
{
    return onPath(Call::kOpendir, path,
                  [&](const char* there) { return NEXT(scandir64)(there, list, filter, compare); });
}

int statvfs(const char* path, struct statvfs* record) noexcept
{
    return onPath(Call::kStatvfs, path, [&](const char* there) { return NEXT(statvfs)(there, record); });
}

int statvfs64(const char* path, struct statvfs64* record) noexcept
{
    return onPath(Call::kStatvfs, path, [&](const char* there) { return NEXT(statvfs64)(there, record); });
}

int statfs(const char* path, struct statfs* record) noexcept
{
    return onPath(Call::kStatvfs, path, [&](const char* there) { return NEXT(statfs)(there, record); });
}

int statfs64(const char* path, struct statfs64* record) noexcept
{
    return onPath(Call::kStatvfs, path, [&](const char* there) { return NEXT(statfs64)(there, record); });
}

}  // extern "C"
