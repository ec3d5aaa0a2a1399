#include "shim/Handles.h"

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>

#include "board/Real.h"

namespace shim::handles {
namespace {

using board::paths::Node;

constexpr size_t kHandles = 255;

/// One open of a device; free when no descriptor refers to it.
struct Handle {
    std::atomic<uint32_t> descriptors;
    std::atomic<Node> node;
    std::atomic<int32_t> process;  // a forked child closes its copies without telling the device
};

std::array<Handle, kHandles> handles;                          // slot 0 stands at index 0...
std::array<std::atomic<uint8_t>, kDescriptors> handleNumbers;  // ...and is number 1 here; 0: not the board's

bool inTable(int fd)
{
    return fd >= 0 && static_cast<size_t>(fd) < kDescriptors;
}

std::atomic<uint8_t>& numberOf(int fd)
{
    return handleNumbers[static_cast<size_t>(fd)];
}

}  // namespace

bool add(int fd, Node node)
{
    if (!inTable(fd)) {
        return false;
    }
    for (size_t i = 0; i < kHandles; ++i) {
        uint32_t free = 0;
        if (handles[i].descriptors.compare_exchange_strong(free, 1)) {
            handles[i].node = node;
            handles[i].process = real::processId();
            numberOf(fd) = static_cast<uint8_t>(i + 1);
            return true;
        }
    }
    return false;
}

std::optional<Node> nodeOf(int fd)
{
    const size_t number = inTable(fd) ? numberOf(fd).load(std::memory_order_acquire) : 0;
    return number == 0 ? std::nullopt : std::optional(handles[number - 1].node.load());
}

void duplicate(int from, int to)
{
    const size_t number = inTable(from) ? numberOf(from).load() : 0;
    if (number != 0 && inTable(to)) {
        ++handles[number - 1].descriptors;
        numberOf(to) = static_cast<uint8_t>(number);
    }
}

std::optional<Node> release(int fd)
{
    // The exchange writes; most descriptors are nobody's, and stay unwritten.
    if (!inTable(fd) || numberOf(fd).load(std::memory_order_acquire) == 0) {
        return std::nullopt;
    }
    const size_t number = numberOf(fd).exchange(0);
    if (number == 0) {
        return std::nullopt;
    }
    Handle& handle = handles[number - 1];
    const Node node = handle.node;
    const bool mine = handle.process == real::processId();
    return --handle.descriptors == 0 && mine ? std::optional(node) : std::nullopt;
}

}  // namespace shim::handles
