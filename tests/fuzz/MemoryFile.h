#pragma once

#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <string>
#include <string_view>

namespace fuzz {

/// A file without a folder, for what takes a path: no disk is reached, so thousands are made a second.
class MemoryFile {
public:
    explicit MemoryFile(std::string_view content) : file_(::memfd_create("fuzz", MFD_CLOEXEC))
    {
        while (!content.empty()) {
            const ssize_t written = ::write(file_, content.data(), content.size());
            if (written <= 0) {
                break;
            }
            content.remove_prefix(static_cast<size_t>(written));
        }
        // Long ago: nobody is waited for who may still be writing it.
        const std::array<timespec, 2> longAgo{timespec{1, 0}, timespec{1, 0}};
        ::futimens(file_, longAgo.data());
    }
    ~MemoryFile() { ::close(file_); }
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;

    std::string path() const { return "/proc/self/fd/" + std::to_string(file_); }

    std::string content() const
    {
        struct stat status = {};
        ::fstat(file_, &status);
        std::string bytes(static_cast<size_t>(status.st_size), '\0');
        const ssize_t length = ::pread(file_, bytes.data(), bytes.size(), 0);
        bytes.resize(length < 0 ? 0 : static_cast<size_t>(length));
        return bytes;
    }

private:
    int file_;
};

}  // namespace fuzz
