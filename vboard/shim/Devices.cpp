#include "shim/Devices.h"

#include <fcntl.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <memory>
#include <mutex>

#include "board/Real.h"
#include "capture/CaptureDevice.h"
#include "framebuffer/FramebufferDevice.h"
#include "ipu/IpuDevice.h"
#include "shim/Attachment.h"
#include "shim/Handles.h"

namespace shim::devices {
namespace {

using board::Board;
using board::Device;
using board::paths::Node;

struct Maker {
    std::unique_ptr<Device> (*make)(Board& board, unsigned index);
    unsigned index;
};

std::unique_ptr<Device> makeIpu(Board& board, unsigned /*index*/)
{
    return board::makeIpuDevice(board);
}

/// In the order of Node.
constexpr std::array kMakers{Maker{board::makeCaptureDevice, 0},
                             Maker{board::makeCaptureDevice, 1},
                             Maker{board::makeCaptureDevice, 2},
                             Maker{board::makeCaptureDevice, 3},
                             Maker{makeIpu, 0},
                             Maker{board::makeFramebufferDevice, 0},
                             Maker{board::makeFramebufferDevice, 1}};

std::array<std::atomic<Device*>, kMakers.size()> made;
std::mutex making;

/// Devices stay for the life of the process, so that calls during its exit still find them.
Device& device(Board& board, Node node)
{
    const auto index = static_cast<size_t>(node);
    Device* known = made[index].load(std::memory_order_acquire);
    if (known == nullptr) {
        const std::lock_guard<std::mutex> guard(making);
        known = made[index].load();
        if (known == nullptr) {
            known = kMakers[index].make(board, kMakers[index].index).release();
            made[index].store(known, std::memory_order_release);
        }
    }
    return *known;
}

int answer(int result, int savedErrno)
{
    errno = result < 0 ? -result : savedErrno;
    return result < 0 ? -1 : result;
}

int openBacking(const Board& board, Device& device, Node node, int flags)
{
    const int fd =
        real::open(board.file(device.backingFile()).c_str(), flags & (O_ACCMODE | O_CLOEXEC | O_NONBLOCK));
    if (fd >= 0 && !handles::add(fd, node)) {
        real::close(fd);
        return -EMFILE;
    }
    return fd;
}

}  // namespace

int open(Node node, int flags)
{
    const int saved = errno;
    Board& board = *attachedBoard();
    Device& opened = device(board, node);
    board.countCall(opened.name(), "open");
    const int allowed = opened.open();
    if (allowed < 0) {
        return answer(allowed, saved);
    }
    const int fd = openBacking(board, opened, node, flags);
    if (fd < 0) {
        opened.close();
    }
    return answer(fd, saved);
}

int call(Node node, unsigned long request, void* argument)
{
    const int saved = errno;
    return answer(device(*attachedBoard(), node).ioctl(request, argument), saved);
}

void closed(Node node)
{
    const int saved = errno;
    Device& ended = device(*attachedBoard(), node);
    attachedBoard()->countCall(ended.name(), "close");
    ended.close();
    errno = saved;
}

}  // namespace shim::devices
