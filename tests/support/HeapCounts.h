#pragma once

#include <atomic>
#include <cstdint>

namespace support {

/// What `heapwatch` keeps in its file: how often a program's main thread took memory from the heap on a
/// board, what the board itself took in the same thread left out.
struct HeapCounts {
    std::atomic<uint64_t> mainThread;
};

}  // namespace support
