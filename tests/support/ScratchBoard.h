#pragma once

#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <memory>
#include <new>
#include <string>

#include "board/Board.h"
#include "board/Real.h"
#include "memory/PhysicalMemory.h"

namespace support {

/// A virtual board of one test's own, in a temporary folder that goes with it.
///
/// A quad without pacing, all four cameras on the pattern source, framebuffers without a mode: a test changes
/// what it needs in state() before it makes a device. Devices are made on board() and talked to directly
/// (`device->ioctl(...)`), without the interposed entry points and without a launcher.
///
/// Threads:  as Board.
/// Lifetime: the devices must go before the board.
/// Errors:   usable() is false when the files could not be made; assert it once.
class ScratchBoard {
public:
    ScratchBoard()
    {
        std::string pattern = std::filesystem::temp_directory_path().string() + "/vboard-test-XXXXXX";
        if (::mkdtemp(pattern.data()) == nullptr) {
            return;
        }
        folder_ = pattern;
        if (!makeState() || !makeFile("memory", off_t{board::kMemoryBase} + board::kMemoryBytes) ||
            !makeFile("fb0", board::kFramebufferFileBytes) ||
            !makeFile("fb1", board::kFramebufferFileBytes)) {
            return;
        }
        board_ = std::make_unique<board::Board>(folder_);
    }

    ~ScratchBoard()
    {
        board_.reset();
        if (!folder_.empty()) {
            std::error_code ignored;  // nothing is left to report to
            std::filesystem::remove_all(folder_, ignored);
        }
    }

    ScratchBoard(const ScratchBoard&) = delete;
    ScratchBoard& operator=(const ScratchBoard&) = delete;

    bool usable() const { return board_ != nullptr && board_->usable(); }
    board::Board& board() { return *board_; }
    board::State& state() { return board_->state(); }
    board::PhysicalMemory memory() { return board::PhysicalMemory(*board_); }
    const std::string& folder() const { return folder_; }
    std::string file(const std::string& name) const { return folder_ + "/" + name; }

    /// Paces the cameras; instant 0 is now.
    void pace(uint32_t framesPerSecond)
    {
        constexpr uint32_t kMilli = 1000;
        state().frameRateMilli = framesPerSecond * kMilli;
        state().epochUs = real::monotonicUs();
    }

    uint32_t refusals() { return state().refusalCount; }
    /// Why the last call that is on the list was refused; empty when none was.
    std::string lastRefusal()
    {
        const size_t listed = std::min<size_t>(state().refusalCount, state().refusals.size());
        return listed == 0 ? std::string() : std::string(state().refusals[listed - 1].reason);
    }

    uint32_t liveAllocations()
    {
        uint32_t live = 0;
        for (const board::Allocation& entry : state().allocations) {
            live += entry.bytes != 0 ? 1 : 0;
        }
        return live;
    }

private:
    bool makeFile(const char* name, off_t bytes) const
    {
        const int fd = ::open(file(name).c_str(), O_RDWR | O_CREAT | O_CLOEXEC, S_IRUSR | S_IWUSR);
        const bool sized = fd >= 0 && ::ftruncate(fd, bytes) == 0;
        if (fd >= 0) {
            ::close(fd);
        }
        return sized;
    }

    bool makeState() const
    {
        if (!makeFile("state", sizeof(board::State))) {
            return false;
        }
        const board::Mapping mapping(file("state"), sizeof(board::State), 0);
        if (mapping.data() == nullptr) {
            return false;
        }
        auto* state = new (mapping.data()) board::State{};
        state->magic = board::kStateMagic;
        state->version = board::kStateVersion;
        state->cpu = board::Cpu::kQuad;
        state->program = real::processId();
        state->codecThreads = 1;
        std::strncpy(state->codecPreset, "superfast", sizeof(state->codecPreset) - 1);
        state->epochUs = real::monotonicUs();
        for (board::Camera& camera : state->cameras) {
            camera.kind = board::SourceKind::kPattern;
        }
        state->inputPair[1] = 1;
        return true;
    }

    std::string folder_;
    std::unique_ptr<board::Board> board_;
};

}  // namespace support
