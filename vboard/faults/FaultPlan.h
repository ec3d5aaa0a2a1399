#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "board/Board.h"

namespace board {

/// What a failing call does instead of its work.
enum class FaultKind : uint32_t {
    kError,  ///< fail with `error`
    kShort,  ///< transfer only half of the bytes (reads and writes)
    kHang,   ///< do not complete (codec)
    kKill,   ///< the process is killed before the call does anything
    kTear,   ///< the process is killed when half of the bytes are transferred; before any other call
};

struct FaultAction {
    FaultKind kind;
    int error;  ///< a positive errno, or, for the codec library, its own result code (0 or negative)
};

/// The board's fault plan: rules "CALL@TARGET#N=ERROR" that make chosen calls fail.
///
/// CALL    a function or request by name: "write", "mq_send", "VIDIOC_DQBUF", "vpu_EncOpen"
/// TARGET  a shell pattern for the device node, file or queue as the program names it; "*" for any
/// N       the Nth matching call; "N+": from the Nth on; "*": always
/// ERROR   an errno name ("EIO") or number, a codec result ("RETCODE_FAILURE"), "short", "hang", "kill" or
///         "tear"
///
/// Threads: any; occurrences are counted over all processes of the board.
class FaultPlan {
public:
    explicit FaultPlan(const Board& board) : state_(board.state()) {}

    /// Counts this call against every rule that it matches; the first rule whose turn it is decides. Does not
    /// return when that one kills.
    std::optional<FaultAction> check(const char* call, const char* target) const;

    /// The same for a call that transfers bytes, which can be killed within.
    std::optional<FaultAction> checkTransfer(const char* call, const char* target) const;

    /// Ends this process as nothing can prepare for.
    [[noreturn]] static void killProcess();

    /// Whether any rule names this call, so that a caller can spare itself the work of finding out the
    /// target.
    bool names(const char* call) const;

    /// Adds a rule; the text of what is wrong with it, empty when it was taken.
    std::string add(const std::string& rule) const;

    /// A rule as it can be given to add().
    static std::string textOf(const Fault& fault);

private:
    /// check() without its consequences.
    std::optional<FaultAction> decide(const char* call, const char* target) const;

    State& state_;
};

}  // namespace board
