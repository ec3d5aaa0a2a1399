#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace support {

/// What `heapwatch` keeps in its file: how often a program on the board took memory from the heap, what the
/// board itself took in the same process left out.
struct HeapCounts {
    static constexpr size_t kFrames = 24;

    std::atomic<uint64_t> mainThread;
    std::atomic<uint64_t> otherThreads;

    // The callers of the main thread's last allocation, the innermost first: objects and offsets in them.
    uint32_t lastDepth;
    uint64_t lastOffsets[kFrames];
    char lastObjects[kFrames][128];
};

}  // namespace support
