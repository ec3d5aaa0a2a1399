#include "lib/WriteBack.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "lib/interrupted.h"
#include "types/CancelWindow.h"

namespace {

constexpr useconds_t kFarewellPollUs = 10000;

/// Runs a call that brings something to the medium; a file system without that notion has nothing to bring.
template <typename Call>
bool reachesMedium(Call call)
{
    return retryInterrupted(call) == 0 || errno == EINVAL;
}

}  // namespace

WriteBack::WriteBack(std::string folder, const std::string& name)
    : folder_(std::move(folder)), path_(folder_ + name), wake_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))
{
}

WriteBack::~WriteBack()
{
    finish();
    reap();
    close();
    if (wake_ != -1) {
        ::close(wake_);
    }
}

void WriteBack::run()
{
    const CancelShield shield;  // a descriptor would be lost, and the last pass
    while (!haltThread) {
        pass();
        rest();
    }
    pass();
    close();
    ended_ = true;
}

/// The pause between two passes; on the clock that nobody sets.
void WriteBack::rest() const
{
    pollfd waiting{wake_, POLLIN, 0};
    ::poll(&waiting, 1, kPauseMs);  // a signal ends it early, and so an extra pass is made
}

void WriteBack::finish()
{
    sendHalt();
    const eventfd_t once = 1;
    ::eventfd_write(wake_, once);  // if it fails the pause runs to its end
}

void WriteBack::retire(std::unique_ptr<WriteBack> object)
{
    if (object == nullptr) {
        return;
    }
    object->finish();
    if (!object->leave()) {
        // The thread still uses it. The kernel goes on with what it was asked for, also without the process.
        [[maybe_unused]] const WriteBack* const abandoned = object.release();
    }
}

/// False when the thread does not end in time; then it is nobody's any more.
bool WriteBack::leave()
{
    if (!isInit()) {
        return true;
    }
    for (useconds_t waited = 0; !ended_ && waited < kFarewellMs * 1000U; waited += kFarewellPollUs) {
        usleep(kFarewellPollUs);
    }
    const bool ended = ended_;  // it may end between two looks
    if (!ended) {
        pthread_detach(_thread);
    }
    return ended;
}

void WriteBack::pass()
{
    const Place now = look();
    const bool followed = follow(now);
    const bool saved = save(now);
    const bool named = saveNames();
    failing_ = !(followed && saved && named);
}

WriteBack::Place WriteBack::look() const
{
    struct stat status = {};
    if (::stat(path_.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) {
        return {};
    }
    return {status.st_dev, status.st_ino, status.st_size};
}

/// When another file has the name now: saves what the former one got last, and lets go of it.
bool WriteBack::follow(const Place& now)
{
    const bool same = now.device == saved_.device && now.inode == saved_.inode && now.bytes >= saved_.bytes;
    if (same) {
        return true;
    }
    const bool saved = fd_ == -1 || reachesMedium([&] { return ::fdatasync(fd_); });
    close();
    saved_ = {now.device, now.inode, kNothing};
    namesSaved_ = false;
    return saved;
}

bool WriteBack::save(const Place& now)
{
    if (now.bytes == saved_.bytes) {
        close();  // nothing new, or no file
        return true;
    }
    if (fd_ == -1 && !open()) {
        return errno == ENOENT;  // it was renamed meanwhile: the next pass finds what has the name then
    }
    if (!reachesMedium([&] { return ::fdatasync(fd_); })) {
        return false;
    }
    saved_.bytes = now.bytes;  // what came since is the next pass's
    return true;
}

bool WriteBack::open()
{
    fd_ = ::open(path_.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    struct stat status = {};
    if (fd_ == -1 || ::fstat(fd_, &status) != 0) {
        return false;
    }
    // The one that was opened, should the name have moved on since it was looked at.
    saved_.device = status.st_dev;
    saved_.inode = status.st_ino;
    namesSaved_ = false;  // while nobody looked the file may have been replaced by one that looks the same
    return true;
}

void WriteBack::close()
{
    if (fd_ != -1) {
        ::close(fd_);
        fd_ = -1;
    }
}

bool WriteBack::saveNames()
{
    if (namesSaved_) {
        return true;
    }
    const int folder = ::open(folder_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (folder == -1) {
        return false;
    }
    namesSaved_ = reachesMedium([&] { return ::fsync(folder); });
    ::close(folder);
    return namesSaved_;
}
