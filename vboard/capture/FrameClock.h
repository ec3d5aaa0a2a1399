#pragma once

#include <cstdint>

#include "board/State.h"

namespace board {

/// The instants at which all cameras of the board deliver a frame: epoch + k / frame rate.
///
/// Threads: any; the rate and the epoch stay as they are while the board is up.
class FrameClock {
public:
    explicit FrameClock(const State& state) : epochUs_(state.epochUs), rateMilli_(state.frameRateMilli) {}

    /// False: the cameras are not paced and deliver as fast as they are asked.
    bool paced() const { return rateMilli_ != 0; }

    /// Monotonic microseconds of instant k.
    uint64_t at(uint64_t instant) const { return epochUs_ + instant * kMicrosecondsMilli / rateMilli_; }

    /// The first instant after a time.
    uint64_t firstAfter(uint64_t timeUs) const
    {
        if (timeUs < epochUs_) {
            return 0;
        }
        uint64_t instant = (timeUs - epochUs_) * rateMilli_ / kMicrosecondsMilli;
        while (at(instant) <= timeUs) {
            ++instant;
        }
        return instant;
    }

private:
    static constexpr uint64_t kMicrosecondsMilli = 1000000000;  // in 1000 s, the unit of the rate

    uint64_t epochUs_;
    uint32_t rateMilli_;
};

}  // namespace board
