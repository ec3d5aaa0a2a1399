#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace board {

/// The frame that a capture buffer received.
struct CapturedFrame {
    uint64_t number;    ///< what the picture source is asked for
    uint32_t sequence;  ///< since streaming began, lost frames counted
    uint64_t timeUs;    ///< monotonic
};

/// One buffer of a capture device, wherever its memory is.
struct CaptureBuffer {
    enum class State {
        kDequeued,  ///< the program's
        kQueued,    ///< waits for a frame
        kDone,      ///< has a frame, waits for the program
        kHandedOut  ///< its frame is being put into memory for the program
    };

    State state = State::kDequeued;
    uint32_t physical = 0;   ///< address, 0 when the driver does not know it yet
    uint64_t userStart = 0;  ///< the program's pointer, kept and given back
    uint32_t length = 0;
    CapturedFrame frame{};
};

/// The buffers of a capture device and their way through it: queued, filled, handed out, in order.
///
/// Threads: guarded by its owner.
class BufferQueue {
public:
    static constexpr uint32_t kMostBuffers = 8;

    void resize(uint32_t count);
    uint32_t count() const { return count_; }
    CaptureBuffer& operator[](uint32_t index) { return buffers_[index]; }

    void queue(uint32_t index);
    bool anyQueued() const { return !queued_.empty(); }
    bool anyDone() const { return !done_.empty(); }

    /// Puts a frame into the buffer that was queued first; false when none is queued.
    bool fill(const CapturedFrame& frame);
    /// The buffer that was filled first, which is handed out now. anyDone() must hold.
    uint32_t takeDone();
    /// Takes a buffer that could not be handed out back to the head of those that wait for a frame.
    void putBack(uint32_t index);
    /// All buffers become the program's, and what they received is forgotten.
    void reset();

private:
    std::array<CaptureBuffer, kMostBuffers> buffers_{};
    uint32_t count_ = 0;
    std::vector<uint32_t> queued_, done_;  // oldest first
};

}  // namespace board
