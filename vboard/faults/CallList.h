#pragma once

#include "board/Board.h"

namespace board {

/// Which calls a run made on what, by the names that the fault plan knows them by: what could fail.
///
/// Kept only on request, as finding out a call's target costs more than many a call. Threads: any; counts go
/// over all processes of the board.
class CallList {
public:
    explicit CallList(const Board& board) : board_(board), state_(board.state()) {}

    bool isKept() const { return state_.listsCalls != 0; }
    /// Counts a call, when the list is kept and has room.
    void note(const char* call, const char* target) const;

private:
    CallTarget* find(const char* call, const char* target) const;

    const Board& board_;
    State& state_;
};

}  // namespace board
