#include "OutputFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <system_error>

namespace recording {
namespace {

constexpr size_t kBufferBytes = 1048576;
constexpr mode_t kMode = 0644;

}  // namespace

OutputFile::~OutputFile()
{
    if (file_ != nullptr) {
        std::fclose(file_);  // NOLINT(cert-err33-c): the file is about to go
    }
    if (!temporary_.empty()) {
        ::unlink(temporary_.c_str());
    }
}

bool OutputFile::prepare(const std::string& path, const std::string& input, Existing existing)
{
    path_ = path;
    existing_ = existing;
    return mayTake(input) && makeTemporary();
}

bool OutputFile::mayTake(const std::string& input)
{
    struct stat there = {};
    struct stat source = {};
    if (::stat(path_.c_str(), &there) != 0) {
        return errno == ENOENT || failed(errno);
    }
    if (::stat(input.c_str(), &source) == 0 && source.st_dev == there.st_dev &&
        source.st_ino == there.st_ino) {
        error_ = "is the input itself; give another name";
    } else if (!S_ISREG(there.st_mode)) {
        error_ = "is there and no regular file; give another name";
    } else if (existing_ == Existing::kRefuse) {
        error_ = "exists; give another name, or --force to replace it";
    }
    return error_.empty();
}

bool OutputFile::makeTemporary()
{
    std::string pattern = path_ + ".part-XXXXXX";
    const int file = ::mkostemp(pattern.data(), O_CLOEXEC);
    if (file == -1) {
        return failed(errno);
    }
    temporary_ = pattern;
    file_ = ::fdopen(file, "wb");
    if (file_ == nullptr) {
        const int error = errno;
        ::close(file);
        return failed(error);
    }
    ::fchmod(file, kMode);  // stays the owner's alone if refused, which harms nobody
    std::setvbuf(file_, nullptr, _IOFBF, kBufferBytes);
    return true;
}

bool OutputFile::write(Bytes bytes)
{
    return std::fwrite(bytes.data, 1, bytes.size, file_) == bytes.size || failed(errno);
}

bool OutputFile::commit()
{
    std::FILE* file = file_;
    file_ = nullptr;
    if (std::fclose(file) != 0) {
        return failed(errno);
    }
    const char* from = temporary_.c_str();
    const unsigned int flags = existing_ == Existing::kRefuse ? RENAME_NOREPLACE : 0;
    if (::renameat2(AT_FDCWD, from, AT_FDCWD, path_.c_str(), flags) != 0) {
        // Some file systems of memory sticks do not know the flag.
        const bool unknownFlag = errno == EINVAL && flags != 0;
        if (!unknownFlag || ::rename(from, path_.c_str()) != 0) {
            return failed(errno);
        }
    }
    temporary_.clear();
    return true;
}

bool OutputFile::failed(int error)
{
    error_ = std::generic_category().message(error);
    return false;
}

}  // namespace recording
