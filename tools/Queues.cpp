#include "Queues.h"

#include <fcntl.h>

#include <cerrno>
#include <ctime>
#include <utility>

namespace control {
namespace {

using Clock = std::chrono::system_clock;  // what the kernel's queue calls count in

timespec pointInTime(Clock::time_point when)
{
    using std::chrono::duration_cast;
    using std::chrono::nanoseconds;
    using std::chrono::seconds;
    const auto sinceEpoch = when.time_since_epoch();
    const auto whole = duration_cast<seconds>(sinceEpoch);
    timespec point = {};
    point.tv_sec = static_cast<time_t>(whole.count());
    point.tv_nsec = static_cast<long>(duration_cast<nanoseconds>(sinceEpoch - whole).count());
    return point;
}

}  // namespace

Queue::Queue(const std::string& name, Direction direction)
{
    const int access = direction == Direction::kSend ? O_WRONLY : O_RDONLY;
    handle_ = ::mq_open(name.c_str(), access | O_CLOEXEC);
    mq_attr attributes = {};
    if (!isOpen() || ::mq_getattr(handle_, &attributes) != 0) {
        error_ = errno;
        return;
    }
    messageBytes_ = static_cast<size_t>(attributes.mq_msgsize);
}

Queue::~Queue()
{
    if (isOpen()) {
        ::mq_close(handle_);
    }
}

Queue::Queue(Queue&& other) noexcept
    : handle_(std::exchange(other.handle_, kClosed)), messageBytes_(other.messageBytes_), error_(other.error_)
{
}

bool Queue::send(const Frame& frame, Duration patience)
{
    const timespec deadline = pointInTime(Clock::now() + patience);
    const auto* text = frame.empty() ? "" : reinterpret_cast<const char*>(frame.data());
    const bool sent = ::mq_timedsend(handle_, text, frame.size(), 0, &deadline) == 0;
    error_ = sent ? 0 : errno;
    return sent;
}

std::optional<Frame> Queue::receive(Duration patience)
{
    Frame frame(messageBytes_);
    const timespec deadline = pointInTime(Clock::now() + patience);
    auto* text = reinterpret_cast<char*>(frame.data());
    const ssize_t received = ::mq_timedreceive(handle_, text, frame.size(), nullptr, &deadline);
    if (received < 0) {
        error_ = errno;
        return std::nullopt;
    }
    error_ = 0;
    frame.resize(static_cast<size_t>(received));
    return frame;
}

std::optional<Status> Queue::receiveStatus(Duration patience)
{
    const auto deadline = Clock::now() + patience;
    while (Clock::now() <= deadline) {
        const auto frame = receive(std::chrono::duration_cast<Duration>(deadline - Clock::now()));
        if (!frame) {
            return std::nullopt;
        }
        const auto packet = decode(*frame);
        const auto status = packet ? readStatus(*packet) : std::nullopt;
        if (status) {
            return status;
        }
    }
    error_ = ETIMEDOUT;
    return std::nullopt;
}

bool Queue::discardOld(Duration patience)
{
    mq_attr attributes = {};
    if (::mq_getattr(handle_, &attributes) != 0) {
        error_ = errno;
        return false;
    }
    // Behind a full queue the daemon waits with one report more, which is as old as the rest.
    const bool senderWaits = attributes.mq_curmsgs >= attributes.mq_maxmsg;
    for (long old = attributes.mq_curmsgs + (senderWaits ? 1 : 0); old > 0; --old) {
        if (!receive(patience)) {
            return false;
        }
    }
    return true;
}

}  // namespace control
