#pragma once

#include <cstdint>
#include <string>

#include "board/State.h"

namespace board {

/// Name of the environment variable that says on which board a process runs: the board's folder.
constexpr const char* kFolderVariable = "VBOARD_FOLDER";

/// A mapped file, unmapped at the end of its owner's life.
class Mapping {
public:
    Mapping() = default;
    Mapping(const std::string& path, size_t bytes, off_t offset);
    ~Mapping();
    Mapping(const Mapping&) = delete;
    Mapping& operator=(const Mapping&) = delete;

    uint8_t* data() const { return data_; }

private:
    uint8_t* data_ = nullptr;
    size_t bytes_ = 0;
};

/// A board that is up, as one process sees it: the shared state, the physical memory and the framebuffers.
///
/// Threads:  any; what is made of several members is changed under BoardLock.
/// Lifetime: current() attaches at first use and never lets go, so that calls during process exit still find
///           it.
class Board {
public:
    explicit Board(std::string folder);
    Board(const Board&) = delete;
    Board& operator=(const Board&) = delete;
    ~Board() = default;

    /// The board of this process, null when it runs on none (or the board's files cannot be mapped).
    static Board* current();

    /// Whether the board's files are there; a board that is being made is mapped before it is usable.
    bool isMapped() const;
    bool usable() const;
    State& state() const { return *static_cast<State*>(static_cast<void*>(state_.data())); }
    const std::string& folder() const { return folder_; }
    std::string file(const char* name) const { return folder_ + "/" + name; }

    uint8_t* memory() const { return memory_.data(); }  ///< of physical address kMemoryBase
    uint8_t* framebuffer(size_t index) const;           ///< kFramebufferFileBytes of plane 0 or 1

    /// Counts one call for the report.
    void countCall(const char* device, const char* call) const;
    /// Notes a call that the board refused, for the report.
    void refuse(const char* device, const char* call, const std::string& reason) const;

private:
    std::string folder_;
    Mapping state_, memory_, background_, overlay_;
};

/// Holds the board's lock. A holder that died is succeeded by the next one that asks.
class BoardLock {
public:
    explicit BoardLock(const Board& board);
    ~BoardLock();
    BoardLock(const BoardLock&) = delete;
    BoardLock& operator=(const BoardLock&) = delete;

private:
    std::atomic<uint32_t>& word_;
};

}  // namespace board
