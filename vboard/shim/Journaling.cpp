#include "shim/Journaling.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <mutex>
#include <optional>

#include "board/Real.h"
#include "medium/Journal.h"
#include "paths/Paths.h"
#include "shim/Attachment.h"

namespace shim::journaling {
namespace {

using board::journal::Kind;
using board::journal::Record;
using board::journal::Writer;

/// Leaves `errno` as the call has left it.
class KeepErrno {
public:
    KeepErrno() = default;
    ~KeepErrno() { errno = kept_; }
    KeepErrno(const KeepErrno&) = delete;
    KeepErrno& operator=(const KeepErrno&) = delete;

private:
    const int kept_ = errno;
};

/// How the program names a file of the journal's part of the board; empty for any other file.
std::string nameOf(const std::string& there)
{
    const std::string name = board::paths::nameOnBoard(attachedBoard()->folder(), there);
    return name != there && name.compare(0, board::journal::kTree.size(), board::journal::kTree) == 0
               ? name
               : std::string();
}

/// The file behind a descriptor, if the journal is about it.
std::optional<struct stat> fileBehind(int fd, mode_t type)
{
    struct stat status = {};
    const bool right = isOn() && ::fstat(fd, &status) == 0 && (status.st_mode & S_IFMT) == type &&
                       !nameOf(real::pathOf(fd)).empty();
    return right ? std::optional(status) : std::nullopt;
}

void add(Kind kind, uint64_t inode, int64_t offset, const void* data, size_t bytes)
{
    Record record{};
    record.kind = kind;
    record.inode = inode;
    record.offset = static_cast<uint64_t>(offset);
    record.bytes = static_cast<uint32_t>(bytes);
    Writer(*attachedBoard()).add(record, data);
}

std::mutex noting;

}  // namespace

bool isOn()
{
    const board::Board* board = attachedBoard();
    return board != nullptr && Writer(*board).isKept();
}

Step::Step() : held_(isOn())
{
    if (held_) {
        noting.lock();
    }
}

Step::~Step()
{
    if (held_) {
        noting.unlock();
    }
}

Opening::Opening(const char* there, int flags)
{
    if (there != nullptr && isOn()) {
        const bool exists = real::exists(there);
        creates_ = (flags & O_CREAT) != 0 && !exists;
        empties_ = (flags & O_TRUNC) != 0 && exists;
    }
}

void Opening::done(int fd) const
{
    if (fd < 0 || (!creates_ && !empties_)) {
        return;
    }
    const KeepErrno kept;
    const auto file = fileBehind(fd, S_IFREG);
    if (file && creates_) {
        Writer(*attachedBoard()).addText(Kind::kCreate, file->st_ino, nameOf(real::pathOf(fd)));
    } else if (file) {
        add(Kind::kTruncate, file->st_ino, 0, nullptr, 0);
    }
}

void written(int fd, const void* data, ssize_t bytes, int64_t offset)
{
    const KeepErrno kept;
    const auto file = bytes > 0 ? fileBehind(fd, S_IFREG) : std::nullopt;
    if (file) {
        const int64_t at = offset >= 0 ? offset : ::lseek(fd, 0, SEEK_CUR) - bytes;
        add(Kind::kWrite, file->st_ino, at, data, static_cast<size_t>(bytes));
    }
}

void truncated(const char* there, int64_t bytes)
{
    const KeepErrno kept;
    const int fd = isOn() ? real::open(there, O_RDONLY | O_CLOEXEC) : -1;
    if (fd >= 0) {
        if (const auto file = fileBehind(fd, S_IFREG)) {
            add(Kind::kTruncate, file->st_ino, bytes, nullptr, 0);
        }
        real::close(fd);
    }
}

void renamed(const char* from, const char* to)
{
    if (!isOn()) {
        return;
    }
    const KeepErrno kept;
    const std::string before = nameOf(from);
    const std::string after = nameOf(to);
    if (!before.empty() && !after.empty()) {
        Writer(*attachedBoard()).addText(Kind::kRename, 0, before + '\0' + after);
    }
}

void removed(const char* there)
{
    if (!isOn()) {
        return;
    }
    const KeepErrno kept;
    const std::string name = nameOf(there);
    if (!name.empty()) {
        Writer(*attachedBoard()).addText(Kind::kRemove, 0, name);
    }
}

Syncing::Syncing(int fd)
{
    const KeepErrno kept;
    const Step step;
    if (const auto file = fileBehind(fd, S_IFREG)) {
        inode_ = file->st_ino;
        noted_ = true;
    } else if (fileBehind(fd, S_IFDIR)) {
        folder_ = nameOf(real::pathOf(fd));
        noted_ = true;
    }
    note(true);
}

int Syncing::done(int result) const
{
    if (result == 0) {
        const KeepErrno kept;
        note(false);
    }
    return result;
}

void Syncing::note(bool begins) const
{
    if (!noted_) {
        return;
    }
    if (folder_.empty()) {
        add(begins ? Kind::kSyncs : Kind::kSynced, inode_, 0, nullptr, 0);
    } else {
        Writer(*attachedBoard()).addText(begins ? Kind::kSyncsNames : Kind::kSyncedNames, inode_, folder_);
    }
}

}  // namespace shim::journaling
