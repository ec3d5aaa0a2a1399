#include "memory/PhysicalMemory.h"

#include <algorithm>
#include <cstring>

#include "board/Real.h"

namespace board {
namespace {

bool contains(uint32_t base, uint32_t size, uint32_t address, size_t bytes)
{
    return address >= base && address - base <= size && bytes <= size - (address - base);
}

/// The lowest address at or after `candidate` where no allocation is in the way.
uint32_t firstGap(const State& state, uint32_t bytes)
{
    uint32_t candidate = kMemoryBase;
    bool moved = true;
    while (moved) {
        moved = false;
        for (const Allocation& held : state.allocations) {
            if (held.bytes != 0 && candidate < held.base + held.bytes && held.base < candidate + bytes) {
                candidate = held.base + held.bytes;
                moved = true;
            }
        }
    }
    return candidate;
}

}  // namespace

uint32_t PhysicalMemory::allocate(uint32_t bytes, const char* owner) const
{
    if (bytes == 0 || bytes > kMemoryBytes) {
        return 0;
    }
    const uint32_t whole = (bytes + kPageBytes - 1) / kPageBytes * kPageBytes;
    State& state = board_.state();
    const BoardLock lock(board_);
    const uint32_t base = firstGap(state, whole);
    const auto slot = std::find_if(state.allocations.begin(), state.allocations.end(),
                                   [](const Allocation& entry) { return entry.bytes == 0; });
    if (slot == state.allocations.end() || !contains(kMemoryBase, kMemoryBytes, base, whole)) {
        return 0;
    }
    std::memset(board_.memory() + (base - kMemoryBase), 0, whole);
    *slot = Allocation{base, whole, real::processId(), {}};
    std::strncpy(slot->owner, owner, sizeof(slot->owner) - 1);
    return base;
}

bool PhysicalMemory::release(uint32_t address) const
{
    State& state = board_.state();
    const BoardLock lock(board_);
    for (Allocation& held : state.allocations) {
        if (held.bytes != 0 && held.base == address) {
            held = Allocation{};
            return true;
        }
    }
    return false;
}

void PhysicalMemory::releaseAll(const char* owner) const
{
    const int32_t self = real::processId();
    const BoardLock lock(board_);
    for (Allocation& held : board_.state().allocations) {
        if (held.bytes != 0 && held.process == self && std::strcmp(held.owner, owner) == 0) {
            held = Allocation{};
        }
    }
}

uint8_t* PhysicalMemory::at(uint32_t address, size_t bytes) const
{
    const State& state = board_.state();
    const BoardLock lock(board_);
    const Framebuffer& overlay = state.framebuffers[1];
    if (contains(overlay.physicalBase, overlay.memoryBytes, address, bytes)) {
        return board_.framebuffer(1) + (address - overlay.physicalBase);
    }
    const bool held =
        std::any_of(state.allocations.begin(), state.allocations.end(), [&](const Allocation& entry) {
            return entry.bytes != 0 && contains(entry.base, entry.bytes, address, bytes);
        });
    return held ? board_.memory() + (address - kMemoryBase) : nullptr;
}

}  // namespace board
