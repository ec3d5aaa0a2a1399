#include "lib/VideoWriter.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace {

// A shorter file cannot hold a header and a frame, so there is nothing in it to continue.
constexpr off_t kSmallestRecording = 200;  // bytes

constexpr mode_t kFileMode = 0777;

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

    fd = ::open(path, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, kFileMode);
    firstFrame = true;
    return fd != -1;
}

bool VideoWriter::outputBuffer(const char* data, unsigned int length, int padding)
{
    if (fd == -1) {
        return true;
    }
    while (length > 0) {
        const ssize_t written = ::write(fd, data, length);
        if (written < 0 && errno == EINTR) {
            continue;  // a signal on its way (SIGINT ends the daemon in order) is no reason to cut a frame
        }
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
        [[maybe_unused]] const ssize_t ignored = ::write(fd, &zero, 1);
    }
    return true;
}
