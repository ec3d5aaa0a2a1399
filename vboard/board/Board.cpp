#include "board/Board.h"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <new>

#include "board/Real.h"

namespace board {
namespace {

template <size_t Size>
void copyText(char (&target)[Size], const char* text)
{
    const size_t length = std::min(std::strlen(text), Size - 1);
    std::memcpy(target, text, length);
    target[length] = '\0';
}

bool holderIsGone(uint32_t thread)
{
    return real::kill(static_cast<pid_t>(thread), 0) == -ESRCH;
}

CallCount* findCount(State& state, const char* device, const char* call)
{
    const auto end = state.callCounts.begin() + state.callCountUsed;
    const auto found = std::find_if(state.callCounts.begin(), end, [&](const CallCount& entry) {
        return std::strcmp(entry.call, call) == 0 && std::strcmp(entry.device, device) == 0;
    });
    return found == end ? nullptr : &*found;
}

}  // namespace

Mapping::Mapping(const std::string& path, size_t bytes, off_t offset) : bytes_(bytes)
{
    const int fd = real::open(path.c_str(), O_RDWR | O_CLOEXEC);
    if (fd < 0) {
        return;
    }
    data_ = static_cast<uint8_t*>(real::mapShared(fd, bytes, offset));
    real::close(fd);
}

Mapping::~Mapping()
{
    if (data_ != nullptr) {
        real::unmap(data_, bytes_);
    }
}

Board::Board(std::string folder)
    : folder_(std::move(folder)),
      state_(file("state"), sizeof(State), 0),
      memory_(file("memory"), kMemoryBytes, kMemoryBase),
      background_(file("fb0"), kFramebufferFileBytes, 0),
      overlay_(file("fb1"), kFramebufferFileBytes, 0)
{
}

Board* Board::current()
{
    static Board* const board = []() -> Board* {
        const char* folder = std::getenv(kFolderVariable);  // NOLINT(concurrency-mt-unsafe): read once
        if (folder == nullptr) {
            return nullptr;
        }
        auto* attached = new Board(folder);  // kept for the life of the process on purpose
        return attached->usable() ? attached : nullptr;
    }();
    return board;
}

bool Board::isMapped() const
{
    return state_.data() != nullptr && memory_.data() != nullptr && background_.data() != nullptr &&
           overlay_.data() != nullptr;
}

bool Board::usable() const
{
    return isMapped() && state().magic == kStateMagic && state().version == kStateVersion;
}

uint8_t* Board::framebuffer(size_t index) const
{
    return index == 0 ? background_.data() : overlay_.data();
}

void Board::countCall(const char* device, const char* call) const
{
    State& shared = state();
    CallCount* entry = findCount(shared, device, call);
    if (entry == nullptr) {
        const BoardLock lock(*this);
        entry = findCount(shared, device, call);
        if (entry == nullptr && shared.callCountUsed < shared.callCounts.size()) {
            entry = &shared.callCounts[shared.callCountUsed];
            copyText(entry->device, device);
            copyText(entry->call, call);
            ++shared.callCountUsed;
        }
    }
    if (entry != nullptr) {
        ++entry->count;
    }
}

void Board::refuse(const char* device, const char* call, const std::string& reason) const
{
    const BoardLock lock(*this);
    State& shared = state();
    if (shared.refusalCount < shared.refusals.size()) {
        Refusal& entry = shared.refusals[shared.refusalCount];
        copyText(entry.device, device);
        copyText(entry.call, call);
        copyText(entry.reason, reason.c_str());
    }
    ++shared.refusalCount;
}

BoardLock::BoardLock(const Board& board) : word_(board.state().lock)
{
    const auto self = static_cast<uint32_t>(real::threadId());
    constexpr uint64_t kRetryUs = 50;
    uint32_t holder = 0;
    while (!word_.compare_exchange_weak(holder, self)) {
        if (holder != 0 && holderIsGone(holder) && word_.compare_exchange_strong(holder, self)) {
            return;
        }
        if (holder != 0) {
            real::sleepUs(kRetryUs);
        }
        holder = 0;
    }
}

BoardLock::~BoardLock()
{
    word_ = 0;
}

}  // namespace board
