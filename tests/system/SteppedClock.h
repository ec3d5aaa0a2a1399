#pragma once

#include <sys/mman.h>

#include <atomic>
#include <cstdint>
#include <ctime>

/// A wall clock that a test sets while the program under it runs: shared by the test and by the library that
/// is preloaded into the program (stepped_clock.cpp). The monotonic clock stays what it is.
struct SteppedClock {
    static constexpr const char* kVariable = "STEPPED_CLOCK";  ///< names the file

    std::atomic<int64_t> offsetS{0};    ///< added to the machine's time
    std::atomic<int64_t> extraRate{0};  ///< seconds more with each second since `sinceS`
    std::atomic<int64_t> sinceS{0};

    int64_t shownAt(int64_t machineS) const { return machineS + offsetS + extraRate * (machineS - sinceS); }

    /// The clock in a file that holds it; null when it cannot be mapped.
    static SteppedClock* map(int file)
    {
        void* start = ::mmap(nullptr, sizeof(SteppedClock), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
        return start == MAP_FAILED ? nullptr : static_cast<SteppedClock*>(start);
    }
};
static_assert(std::atomic<int64_t>::is_always_lock_free, "shared between processes");
