#pragma once

#include <sys/types.h>

#include <cstddef>

struct stat;
struct stat64;

/// Names that programs are linked with and no header declares: the checking variants of a fortified build,
/// and what `stat` was before glibc 2.33. Every other entry point is declared by libc's own headers.
// NOLINTBEGIN(bugprone-reserved-identifier): the names are libc's
extern "C" {

int __open_2(const char* path, int flags);
int __open64_2(const char* path, int flags);
int __openat_2(int directory, const char* path, int flags);
int __openat64_2(int directory, const char* path, int flags);

ssize_t __read_chk(int fd, void* data, size_t bytes, size_t room);
ssize_t __pread_chk(int fd, void* data, size_t bytes, off_t offset, size_t room);
ssize_t __pread64_chk(int fd, void* data, size_t bytes, off64_t offset, size_t room);
ssize_t __readlink_chk(const char* path, char* target, size_t bytes, size_t room) noexcept;
ssize_t __readlinkat_chk(int directory, const char* path, char* target, size_t bytes, size_t room) noexcept;

int __xstat(int version, const char* path, struct stat* record) noexcept;
int __xstat64(int version, const char* path, struct stat64* record) noexcept;
int __lxstat(int version, const char* path, struct stat* record) noexcept;
int __lxstat64(int version, const char* path, struct stat64* record) noexcept;
int __fxstatat(int version, int directory, const char* path, struct stat* record, int flags) noexcept;
int __fxstatat64(int version, int directory, const char* path, struct stat64* record, int flags) noexcept;

}  // extern "C"
// NOLINTEND(bugprone-reserved-identifier)
