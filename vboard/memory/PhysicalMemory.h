#pragma once

#include <cstddef>
#include <cstdint>

#include "board/Board.h"

namespace board {

/// The board's physical memory: whole pages, first fit, each allocation with an owner.
///
/// An address is good only inside a live allocation or the overlay's memory; devices ask at() before they
/// touch anything and fail the call when it says null.
///
/// Threads: any, of any process of the board.
class PhysicalMemory {
public:
    explicit PhysicalMemory(const Board& board) : board_(board) {}

    /// Physical address of `bytes` bytes (rounded up to pages), zeroed; 0 when there is no room.
    uint32_t allocate(uint32_t bytes, const char* owner) const;

    /// Gives an allocation back by its first address; false when there is none.
    bool release(uint32_t address) const;

    /// Gives back what `owner` holds in this process.
    void releaseAll(const char* owner) const;

    /// Where `bytes` bytes at a physical address lie in this process; null unless one live allocation, or the
    /// overlay's memory, holds all of them.
    uint8_t* at(uint32_t address, size_t bytes) const;

private:
    const Board& board_;
};

}  // namespace board
