#pragma once

#include <mqueue.h>

#include <chrono>
#include <optional>
#include <string>

#include "Protocol.h"

namespace control {

/// An existing message queue, opened for one direction; it is never created here: that is the daemon's, with
/// its own attributes.
///
/// Threads:  one at a time.
/// Lifetime: closed with its owner, never unlinked.
/// Errors:   an open that failed leaves the object closed, and error() says why (errno); so does a failed
///           send or receive, with ETIMEDOUT when the time ran out and EINTR when a signal arrived.
class Queue {
public:
    using Duration = std::chrono::milliseconds;
    enum class Direction { kSend, kReceive };

    Queue(const std::string& name, Direction direction);
    ~Queue();
    Queue(const Queue&) = delete;
    Queue& operator=(const Queue&) = delete;
    Queue(Queue&& other) noexcept;
    Queue& operator=(Queue&&) = delete;

    bool isOpen() const { return handle_ != kClosed; }
    int error() const { return error_; }

    /// Waits for room, at most as long as given.
    bool send(const Frame& frame, Duration patience);
    /// The next message, whatever it holds; waits for one at most as long as given.
    std::optional<Frame> receive(Duration patience);
    /// The next complete status report; other messages on the way are dropped.
    std::optional<Status> receiveStatus(Duration patience);
    /// Takes away all that was reported before this call, also the report that its sender, blocked by a full
    /// queue, is still holding. False when that sender did not come forward in the given time.
    bool discardOld(Duration patience);

private:
    static constexpr mqd_t kClosed = static_cast<mqd_t>(-1);

    mqd_t handle_ = kClosed;
    size_t messageBytes_ = 0;
    int error_ = 0;
};

}  // namespace control
