#include "FileWindow.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <ctime>
#include <system_error>
#include <thread>

namespace recording {
namespace {

constexpr size_t kSparseBytes = 512;
constexpr size_t kWholeBytes = 1048576;

// A frame comes every 33 ms; several may be on their way to the disk together.
constexpr std::chrono::milliseconds kGrowthStep{20};
constexpr int kGrowthSteps = 50;
constexpr time_t kRecent = 2;  // seconds

std::string errorText(int error)
{
    return std::generic_category().message(error);
}

}  // namespace

FileWindow::~FileWindow()
{
    if (file_ != -1) {
        ::close(file_);
    }
}

bool FileWindow::open(const std::string& path, Pace pace)
{
    // Not blocking: the name may be that of a pipe, which nobody may ever write to.
    file_ = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    struct stat status = {};
    if (file_ == -1 || ::fstat(file_, &status) != 0) {
        error_ = errorText(errno);
        return false;
    }
    if (!S_ISREG(status.st_mode)) {
        error_ = "not a regular file";
        return false;
    }
    size_ = status.st_size;
    pace_ = pace;
    return true;
}

Bytes FileWindow::view(off_t offset, size_t length)
{
    if (offset < 0 || offset >= size_) {
        return {};
    }
    const auto rest = static_cast<uint64_t>(size_ - offset);
    length = static_cast<size_t>(std::min<uint64_t>(length, rest));
    const off_t end = offset + static_cast<off_t>(length);
    if (offset < start_ || end > start_ + static_cast<off_t>(filled_)) {
        const size_t ahead = pace_ == Pace::kWhole ? kWholeBytes : kSparseBytes;
        load(offset, static_cast<size_t>(std::min<uint64_t>(std::max(length, ahead), rest)));
    }
    const auto skipped = static_cast<size_t>(offset - start_);
    return {buffer_.data() + skipped, std::min(length, filled_ - skipped)};
}

Bytes FileWindow::nextPiece(off_t offset, size_t least, size_t length)
{
    const off_t bufferEnd = start_ + static_cast<off_t>(filled_);
    if (offset >= start_ && offset + static_cast<off_t>(least) <= bufferEnd) {
        length = static_cast<size_t>(std::min<uint64_t>(length, static_cast<uint64_t>(bufferEnd - offset)));
    }
    return view(offset, length);
}

bool FileWindow::holds(off_t offset, Bytes expected)
{
    if (offset >= size_) {
        return true;
    }
    std::array<uint8_t, 16> bytes{};
    const auto rest = static_cast<uint64_t>(size_ - offset);
    const auto length = static_cast<size_t>(std::min<uint64_t>({expected.size, rest, bytes.size()}));
    const ssize_t got = ::pread(file_, bytes.data(), length, offset);
    return got == static_cast<ssize_t>(length) &&
           std::equal(bytes.begin(), bytes.begin() + got, expected.data);
}

void FileWindow::load(off_t offset, size_t length)
{
    if (buffer_.size() < length) {
        buffer_.resize(length);
    }
    start_ = offset;
    filled_ = 0;
    while (filled_ < length) {
        const ssize_t got =
            ::pread(file_, buffer_.data() + filled_, length - filled_, offset + static_cast<off_t>(filled_));
        if (got < 0 && errno == EINTR) {
            continue;
        }
        if (got <= 0) {
            error_ = got < 0 ? errorText(errno) : "the file has become shorter";
            return;
        }
        filled_ += static_cast<size_t>(got);
    }
}

bool FileWindow::isGrowing() const
{
    for (int i = 0; i < kGrowthSteps; ++i) {
        struct stat status = {};
        if (::fstat(file_, &status) != 0) {
            return false;
        }
        if (status.st_size > size_) {
            return true;
        }
        if (status.st_mtime + kRecent < std::time(nullptr)) {
            return false;
        }
        std::this_thread::sleep_for(kGrowthStep);
    }
    return false;
}

}  // namespace recording
