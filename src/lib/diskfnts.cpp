#include "lib/diskfnts.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstdio>
#include <memory>
#include <vector>

#include "lib/interrupted.h"

// The interface takes paths by value.
// NOLINTBEGIN(performance-unnecessary-value-param)

namespace {

constexpr mode_t kDirectoryMode = 0755;
constexpr mode_t kFileMode = 0666;
constexpr mode_t kCopyMode = 0774;

constexpr size_t kBlockBytes = 4096;
constexpr int kBlocksPerSync = 3000;

constexpr size_t kChecksumBytes = 40;

/// An open file, closed at the end of its scope.
class Descriptor {
public:
    Descriptor(const std::string& path, int flags, mode_t mode = 0)
        : fd_(retryInterrupted([&] { return ::open(path.c_str(), flags | O_CLOEXEC, mode); }))
    {
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor(Descriptor&&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    Descriptor& operator=(Descriptor&&) = delete;
    ~Descriptor()
    {
        if (isOpen()) {
            ::close(fd_);
        }
    }

    bool isOpen() const { return fd_ != -1; }
    int get() const { return fd_; }

private:
    int fd_;
};

bool writeAll(int fd, const char* data, size_t length)
{
    while (length > 0) {
        const ssize_t written = retryInterrupted([&] { return ::write(fd, data, length); });
        if (written <= 0) {
            return false;
        }
        data += written;
        length -= static_cast<size_t>(written);
    }
    return true;
}

/// The mode of what `path` leads to, 0 (no kind of file at all) when there is nothing.
mode_t modeOf(const std::string& path)
{
    struct stat status = {};
    return ::stat(path.c_str(), &status) == 0 ? status.st_mode : 0;
}

/// A plain word of another thread's, read whole and anew each time.
bool isSet(const bool* flag)
{
    return flag != nullptr && __atomic_load_n(flag, __ATOMIC_RELAXED);
}

bool copyBlocks(int source, int destination, unsigned int* ticks, const bool* cancel)
{
    const auto block = std::make_unique<char[]>(kBlockBytes);
    for (int untilSync = kBlocksPerSync;;) {
        const ssize_t length = retryInterrupted([&] { return ::read(source, block.get(), kBlockBytes); });
        if (length <= 0) {
            return true;
        }
        if (isSet(cancel)) {
            return false;
        }
        if (!writeAll(destination, block.get(), static_cast<size_t>(length))) {
            return false;
        }
        if (ticks != nullptr) {
            ++*ticks;
        }
        if (--untilSync == 0) {
            ::syncfs(destination);  // keeps a long copy from filling the memory with unwritten pages
            untilSync = kBlocksPerSync;
        }
    }
}

}  // namespace

bool diskfnts::isDirectory(std::string path)
{
    return S_ISDIR(modeOf(path));
}

bool diskfnts::isFile(std::string path)
{
    return S_ISREG(modeOf(path));
}

bool diskfnts::isDevNode(std::string path)
{
    const mode_t mode = modeOf(path);
    return S_ISCHR(mode) || S_ISBLK(mode);
}

bool diskfnts::isLink(std::string path, std::string* target)
{
    struct stat status = {};
    if (::lstat(path.c_str(), &status) != 0 || !S_ISLNK(status.st_mode)) {
        return false;
    }
    if (target == nullptr) {
        return true;
    }
    std::vector<char> text(static_cast<size_t>(status.st_size) + 1);
    if (::readlink(path.c_str(), text.data(), text.size()) > 0) {
        text.back() = '\0';  // the link may have become longer meanwhile
        *target = text.data();
    }
    return true;
}

bool diskfnts::makeDir(std::string path)
{
    return ::mkdir(path.c_str(), kDirectoryMode) == 0;
}

int diskfnts::fileMTime(std::string path)
{
    struct stat status = {};
    return ::stat(path.c_str(), &status) == 0 ? static_cast<int>(status.st_mtime) : 0;
}

long diskfnts::fileSize(std::string path)
{
    struct stat status = {};
    if (::stat(path.c_str(), &status) != 0) {
        return 0;
    }
    return static_cast<long>(std::min<off_t>(status.st_size, LONG_MAX));
}

bool diskfnts::getFileContents(std::string path, std::string& out)
{
    const Descriptor file(path, O_RDONLY);
    if (!file.isOpen()) {
        return false;
    }
    struct stat status = {};
    const bool measured = ::fstat(file.get(), &status) == 0 && S_ISREG(status.st_mode);
    out.assign(measured ? static_cast<size_t>(status.st_size) : 0, '\0');
    for (size_t position = 0; position < out.size();) {
        const ssize_t length =
            retryInterrupted([&] { return ::read(file.get(), &out[position], out.size() - position); });
        if (length <= 0) {
            break;
        }
        position += static_cast<size_t>(length);
    }
    return true;
}

bool diskfnts::writeFileContents(std::string path, const std::string& contents, bool append)
{
    const Descriptor file(path, O_WRONLY | O_CREAT | (append ? O_APPEND : O_TRUNC), kFileMode);
    if (!file.isOpen()) {
        return false;
    }
    writeAll(file.get(), contents.data(),
             contents.size());  // a full disk is not reported: the answer is about opening
    return true;
}

bool diskfnts::writeFileContents(std::string path, const std::string& contents)
{
    return writeFileContents(path, contents, false);
}

bool diskfnts::renameFile(std::string from, std::string to)
{
    return std::rename(from.c_str(), to.c_str()) == 0;
}

bool diskfnts::removeFile(std::string path)
{
    return std::remove(path.c_str()) == 0;
}

bool diskfnts::linkFile(std::string target, std::string linkPath)
{
    return ::symlink(target.c_str(), linkPath.c_str()) == 0;
}

bool diskfnts::copyFile(std::string source, std::string destination, bool append, unsigned int* ticks,
                        const bool* cancel)
{
    const Descriptor from(source, O_RDONLY);
    if (!from.isOpen()) {
        return false;
    }
    const Descriptor to(destination, O_WRONLY | O_CREAT | (append ? 0 : O_TRUNC), kCopyMode);
    if (!to.isOpen() || (append && ::lseek(to.get(), 0, SEEK_END) == -1)) {
        return false;
    }
    return copyBlocks(from.get(), to.get(), ticks, cancel);
}

bool diskfnts::copyFile(std::string source, std::string destination)
{
    return copyFile(source, destination, false, nullptr, nullptr);
}

bool diskfnts::moveFile(std::string source, std::string destination, unsigned int* ticks)
{
    return copyFile(source, destination, false, ticks, nullptr) && removeFile(source);
}

bool diskfnts::moveFile(std::string source, std::string destination)
{
    return moveFile(source, destination, nullptr);
}

bool diskfnts::addTGZChecksum(std::string path, std::string& checksum)
{
    std::string contents;
    if (checksum.size() != kChecksumBytes || !getFileContents(path, contents)) {
        return false;
    }
    return writeFileContents(path + "s", contents + checksum);
}

bool diskfnts::splitTGZChecksum(std::string path, std::string& checksum)
{
    std::string contents;
    if (!getFileContents(path, contents) || contents.size() < kChecksumBytes) {
        return false;
    }
    const size_t payloadBytes = contents.size() - kChecksumBytes;
    checksum = contents.substr(payloadBytes);
    contents.resize(payloadBytes);
    return writeFileContents(path + ".tgz", contents);
}

// NOLINTEND(performance-unnecessary-value-param)
