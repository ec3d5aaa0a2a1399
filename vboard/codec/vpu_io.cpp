#include "vpu_io.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "codec/Fault.h"
#include "memory/PhysicalMemory.h"

using board::Board;
using board::PhysicalMemory;

namespace {

constexpr int kDone = 0;
constexpr int kFailed = -1;

/// A call's way in and out, as for the other calls of the library; `work` gives null or why it refuses.
template <typename Work>
int answer(const char* call, vpu_mem_desc* record, Work work)
{
    Board* const board = Board::current();
    if (board == nullptr || codec::enter(*board, call)) {
        return kFailed;
    }
    const char* const reason = record == nullptr ? "null record" : work(*board, *record);
    if (reason == nullptr) {
        return kDone;
    }
    board->refuse(codec::kDevice, call, reason);
    return kFailed;
}

/// Whether an allocation of the codec's starts here.
bool codecOwns(const Board& board, unsigned long address)
{
    const board::BoardLock lock(board);
    const auto& held = board.state().allocations;
    return std::any_of(held.begin(), held.end(), [&](const board::Allocation& entry) {
        return entry.bytes != 0 && entry.base == address && std::strcmp(entry.owner, codec::kDevice) == 0;
    });
}

const char* allocate(const Board& board, vpu_mem_desc& record)
{
    if (record.size <= 0) {
        return "size is not positive";
    }
    record.phy_addr = PhysicalMemory(board).allocate(static_cast<uint32_t>(record.size), codec::kDevice);
    record.cpu_addr = record.phy_addr;
    return record.phy_addr != 0 ? nullptr : "no room";
}

const char* release(const Board& board, vpu_mem_desc& record)
{
    if (!codecOwns(board, record.phy_addr) ||
        !PhysicalMemory(board).release(static_cast<uint32_t>(record.phy_addr))) {
        return "no allocation of the codec's starts here";
    }
    record.phy_addr = record.cpu_addr = 0;
    return nullptr;
}

const char* map(const Board& board, vpu_mem_desc& record)
{
    const bool held = record.size > 0 && codecOwns(board, record.phy_addr);
    uint8_t* const start = held ? PhysicalMemory(board).at(static_cast<uint32_t>(record.phy_addr),
                                                           static_cast<size_t>(record.size))
                                : nullptr;
    if (start == nullptr) {
        return "not an allocation of the codec's";
    }
    record.virt_uaddr = reinterpret_cast<uintptr_t>(start);
    return nullptr;
}

const char* unmap(const Board& /*board*/, vpu_mem_desc& record)
{
    if (record.virt_uaddr == 0) {
        return "not mapped";
    }
    record.virt_uaddr = 0;  // the board's memory stays mapped as a whole
    return nullptr;
}

}  // namespace

int IOGetPhyMem(vpu_mem_desc* buff)
{
    return answer(__func__, buff, allocate);
}

int IOFreePhyMem(vpu_mem_desc* buff)
{
    return answer(__func__, buff, release);
}

int IOGetVirtMem(vpu_mem_desc* buff)
{
    return answer(__func__, buff, map);
}

int IOFreeVirtMem(vpu_mem_desc* buff)
{
    return answer(__func__, buff, unmap);
}
