#include "lib/VideoWriter.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstring>

#include "lib/interrupted.h"

namespace {

// A shorter file cannot hold a header and a frame, so there is nothing in it to continue.
constexpr off_t kSmallestRecording = 200;  // bytes

constexpr mode_t kFileMode = 0777;

/// What is still to be written, in its order.
class Parts {
public:
    void add(const char* data, size_t length)
    {
        parts_[count_++] = {const_cast<char*>(data), length};  // writev only reads it
    }

    const iovec* first() const { return parts_.data() + begin_; }
    int count() const { return static_cast<int>(count_ - begin_); }

    /// Leaves out what has been written.
    void advance(size_t written)
    {
        while (begin_ < count_ && written >= parts_[begin_].iov_len) {
            written -= parts_[begin_++].iov_len;
        }
        if (begin_ < count_) {
            parts_[begin_].iov_base = static_cast<char*>(parts_[begin_].iov_base) + written;
            parts_[begin_].iov_len -= written;
        }
    }

private:
    std::array<iovec, 3> parts_{};
    size_t begin_ = 0, count_ = 0;
};

}  // namespace

void VideoWriter::writeToHeader(const char* data, unsigned int length)
{
    if (length > kHeaderCapacity - headerLength) {
        std::printf("Codec header of %u bytes is above the limit of %u\n", headerLength + length,
                    kHeaderCapacity);
        return;
    }
    if (length > 0) {
        std::memcpy(header + headerLength, data, length);
        headerLength += length;
    }
}

void VideoWriter::stop()
{
    if (fd != -1) {
        ::close(fd);
        fd = -1;
    }
}

bool VideoWriter::open_file(const char* path)
{
    struct stat status = {};  // stays zero for a new file
    const bool found = ::stat(path, &status) == 0;
    append = found && S_ISREG(status.st_mode) && status.st_size > kSmallestRecording;
    std::printf("File Size: %lu\n", static_cast<unsigned long>(status.st_size));
    std::printf("Append: %d\n", append ? 1 : 0);

    stop();  // a file whose header could not be written is still open
    fd = retryInterrupted([&] { return ::open(path, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, kFileMode); });
    firstFrame = true;
    return fd != -1;
}

bool VideoWriter::outputBuffer(const char* data, unsigned int length, int padding)
{
    if (fd == -1) {
        return true;
    }
    while (length > 0) {
        // A signal on its way (SIGINT ends the daemon in order) is no reason to cut a frame.
        const ssize_t written = retryInterrupted([&] { return ::write(fd, data, length); });
        if (written <= 0) {
            return false;
        }
        data += written;
        length -= static_cast<unsigned int>(written);
    }
    for (; padding > 0; --padding) {
        const char zero = 0;
        // Not checked: a reader finds the next chunk by its tag if the padding is cut, and the next frame
        // reports the disk.
        retryInterrupted([&] { return ::write(fd, &zero, 1); });
    }
    return true;
}

bool VideoWriter::outputChunk(const char* head, unsigned int headLength, const char* data,
                              unsigned int length, unsigned int padding)
{
    if (fd == -1) {
        return true;
    }
    constexpr std::array<char, kMaxPadding> kZeros{};
    Parts parts;
    parts.add(head, headLength);
    parts.add(data, length);
    parts.add(kZeros.data(), padding);
    size_t needed = size_t{headLength} + length;
    while (parts.count() > 0) {
        const ssize_t written = retryInterrupted([&] { return ::writev(fd, parts.first(), parts.count()); });
        if (written <= 0) {
            return needed == 0;  // missing padding is no failure, as in outputBuffer()
        }
        const auto out = static_cast<size_t>(written);
        needed -= out < needed ? out : needed;
        parts.advance(out);
    }
    return true;
}
