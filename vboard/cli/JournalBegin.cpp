#include "cli/JournalBegin.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <system_error>
#include <vector>

#include "board/Real.h"
#include "cli/BoardFiles.h"
#include "medium/Journal.h"

namespace cli {
namespace {

namespace fs = std::filesystem;
using board::journal::Kind;
using board::journal::Record;
using board::journal::Writer;

/// Notes the bytes from one offset to another; false when they cannot be read.
bool noteBytes(const Writer& journal, const Descriptor& file, uint64_t inode, off_t from, off_t to)
{
    constexpr off_t kPiece = 1 << 20;
    std::vector<char> piece(kPiece);
    while (from < to) {
        const auto wanted = static_cast<size_t>(std::min(kPiece, to - from));
        const ssize_t got = ::pread(file.get(), piece.data(), wanted, from);
        if (got <= 0) {
            return false;
        }
        Record record{};
        record.kind = Kind::kWrite;
        record.inode = inode;
        record.offset = static_cast<uint64_t>(from);
        record.bytes = static_cast<uint32_t>(got);
        journal.add(record, piece.data());
        from += got;
    }
    return true;
}

/// Notes a file's bytes without the holes between them.
bool noteContents(const Writer& journal, const Descriptor& file, const struct stat& status)
{
    off_t at = ::lseek(file.get(), 0, SEEK_DATA);
    while (at >= 0 && at < status.st_size) {
        const off_t end = ::lseek(file.get(), at, SEEK_HOLE);
        if (end < 0 || !noteBytes(journal, file, status.st_ino, at, end)) {
            return false;
        }
        at = ::lseek(file.get(), end, SEEK_DATA);
    }
    Record size{};
    size.kind = Kind::kTruncate;
    size.inode = status.st_ino;
    size.offset = static_cast<uint64_t>(status.st_size);
    journal.add(size, nullptr);
    return true;
}

bool noteFile(const Writer& journal, const std::string& path, const std::string& name)
{
    const Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    struct stat status = {};
    if (!file.isOpen() || ::fstat(file.get(), &status) != 0) {
        return false;
    }
    journal.addText(Kind::kCreate, status.st_ino, name);
    return noteContents(journal, file, status);
}

}  // namespace

std::string beginJournal(const board::Board& board)
{
    const std::string root = board.folder() + "/root";
    std::error_code error;
    {
        const std::string path = board.file(board::journal::kFile);
        fs::remove(path, error);
        constexpr mode_t kMode = 0666;
        const Descriptor made(::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, kMode));
        if (!made.isOpen()) {
            return "cannot make " + path + ": " + std::generic_category().message(errno);
        }
    }
    board.state().journal = 1;
    const Writer journal(board);
    for (const auto& entry :
         fs::recursive_directory_iterator(root + std::string(board::journal::kTree), error)) {
        const std::string path = entry.path().string();
        if (entry.is_regular_file(error) && !noteFile(journal, path, path.substr(root.size()))) {
            return "cannot read " + path + ": " + std::generic_category().message(errno);
        }
    }
    journal.add({0, 0, 0, Kind::kSettled, 0, 0, 0}, nullptr);
    return error || !journal.isKept() ? "cannot write the journal in " + board.folder() : std::string();
}

}  // namespace cli
