#pragma once

#include <atomic>
#include <cstdint>

namespace bench {

enum class Kind : uint32_t { kLoaded, kIoctl, kWrite, kSend, kReceive, kOpen, kMain };

/// One call of a program on a board, as `callwatch` saw it return.
struct Event {
    uint64_t endNs;    ///< CLOCK_MONOTONIC
    uint64_t frameNs;  ///< of a dequeued frame: its own time stamp
    uint32_t kind;     ///< Kind
    uint32_t request;  ///< of an ioctl
    int64_t result;
    uint64_t argument;  ///< of FBIOBLANK, else 0; of kLoaded: when the program was executed
};
static_assert(sizeof(Event) == 40, "read by bench/calls.py");

/// The file that `callwatch` fills: this, then the events.
struct CallLog {
    static constexpr uint64_t kEvents = 1U << 20U;

    std::atomic<uint64_t> used;  ///< may exceed kEvents: the later ones are lost then
    Event events[kEvents];
};

}  // namespace bench
