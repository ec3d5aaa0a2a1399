#pragma once

#include <array>
#include <cstddef>

namespace shim {

/// What the fault plan can name of the calls that the entry points answer. One name stands for a family: the
/// same thing done by path or by directory handle, with 32 or 64 bits, checked or not.
enum class Call : size_t {
    kOpen,  ///< open, openat, creat, fopen, freopen
    kClose,
    kRead,       ///< read, pread
    kWrite,      ///< write, pwrite, writev
    kMmap,       ///< of a descriptor
    kSync,       ///< fsync, fdatasync, syncfs
    kStat,       ///< stat, lstat, fstatat, statx, access, faccessat
    kStatvfs,    ///< statvfs, statfs
    kMkdir,      ///< mkdir, mkdirat
    kUnlink,     ///< unlink, unlinkat, remove, rmdir
    kRename,     ///< rename, renameat; the target is the old name
    kTruncate,   ///< by path
    kOpendir,    ///< opendir, scandir
    kExec,       ///< exec..., posix_spawn...
    kFork,       ///< fork; the target is the program or library that calls it
    kThread,     ///< pthread_create; the target likewise
    kMqOpen,     ///< mq_open
    kMqUnlink,   ///< mq_unlink
    kMqSend,     ///< mq_send, mq_timedsend
    kMqReceive,  ///< mq_receive, mq_timedreceive
    kNone        ///< cannot be named
};

constexpr std::array kCallNames{"open",           "close",    "read",      "write",   "mmap",
                                "fsync",          "stat",     "statvfs",   "mkdir",   "unlink",
                                "rename",         "truncate", "opendir",   "exec",    "fork",
                                "pthread_create", "mq_open",  "mq_unlink", "mq_send", "mq_receive"};
static_assert(kCallNames.size() == static_cast<size_t>(Call::kNone), "one name for each");

}  // namespace shim
