#include "capture/PipeSource.h"

#include <fcntl.h>
#include <poll.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <mutex>
#include <string>

#include "board/Real.h"

namespace board {
namespace {

constexpr unsigned kTickMs = 100;

/// A picture is larger than a pipe takes at once: readers of one camera must not cut into each other's.
std::mutex& readersOf(uint32_t camera)
{
    static std::array<std::mutex, kCameras> readers;
    return readers[camera];
}

}  // namespace

PipeSource::PipeSource(const Board& board, uint32_t camera) : board_(board), camera_(camera)
{
}

PipeSource::~PipeSource()
{
    if (pipe_ >= 0) {
        real::close(pipe_);
    }
}

bool PipeSource::draw(uint64_t frameNumber, uint8_t* nv12)
{
    const std::lock_guard<std::mutex> whole(readersOf(camera_));
    return ensureOpen() && catchUp(frameNumber, nv12) && readPicture(nv12);
}

/// Throws pictures away for the frames that nobody took, as far as they are there already: waiting for them
/// would lose the next ones, too.
bool PipeSource::catchUp(uint64_t frameNumber, uint8_t* scratch)
{
    constexpr uint64_t kMostBehind = 300;
    constexpr int kMostAtOnce = 2;
    const uint64_t missed = nextFrame_ != 0 && frameNumber > nextFrame_ ? frameNumber - nextFrame_ : 0;
    behind_ = std::min(behind_ + missed, kMostBehind);
    nextFrame_ = frameNumber + 1;
    bool whole = true;
    for (int i = 0; whole && i < kMostAtOnce && behind_ > 0 && real::waitReadable(pipe_, 0) > 0; ++i) {
        whole = readPicture(scratch);
        --behind_;
    }
    return whole;
}

bool PipeSource::ensureOpen()
{
    if (pipe_ < 0) {
        const std::string path = board_.file("camera") + std::to_string(camera_ + 1);
        // Without O_NONBLOCK the open itself would wait for a writer that may never come.
        pipe_ = real::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    }
    return pipe_ >= 0;
}

bool PipeSource::readPicture(uint8_t* nv12)
{
    size_t done = 0;
    while (done < kPictureBytes) {
        if (!waitForBytes()) {
            return false;
        }
        const ssize_t got = real::read(pipe_, nv12 + done, kPictureBytes - done);
        if (got == 0 || (got < 0 && got != -EAGAIN && got != -EINTR)) {
            return false;
        }
        done += got > 0 ? static_cast<size_t>(got) : 0;
    }
    return true;
}

bool PipeSource::waitForBytes() const
{
    const std::atomic<uint32_t>& lost = board_.state().cameras[camera_].sourceLost;
    while (true) {
        const bool last = lost != 0;  // asked before the poll: what was written before the loss is still read
        const auto events = static_cast<unsigned>(real::waitReadable(pipe_, last ? 0 : kTickMs));
        if ((events & POLLIN) != 0) {
            return true;
        }
        if (last || events != 0) {
            return false;
        }
    }
}

}  // namespace board
