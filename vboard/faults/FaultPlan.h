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
    kHang,   ///< do not complete: the codec until it is reset, another call until a signal comes
    kSlow,   ///< take `error` milliseconds longer; then the call does its work
    kKill,   ///< the process is killed before the call does anything
    kTear,   ///< the process is killed when half of the bytes are transferred; before any other call
    kSkip,   ///< the codec does not encode the picture of this frame, and says so with its output
    // What befalls a camera, at a dequeue.
    kBadFrame,   ///< the buffer comes with the error flag, and not with the whole frame
    kLostFrame,  ///< the frame is lost; the dequeue gets the next one
    kWrap,       ///< sequence numbers and time stamps go on from just before their largest value
    kNoSignal,   ///< from here on no video standard is found, and the picture is dark
    kGone        ///< the node disappears while the dequeue waits
};

struct FaultAction {
    FaultKind kind;
    int error;  ///< a positive errno; for the codec library, its own result code (0 or negative)
};

/// The board's fault plan: rules "CALL@TARGET#N=ERROR" that make chosen calls fail.
///
/// CALL    a function or request by name: "write", "mq_send", "VIDIOC_DQBUF", "vpu_EncOpen"
/// TARGET  a shell pattern for the device node, file or queue as the program names it; "*" for any
/// N       the Nth matching call; "N+": from the Nth on; "N/M": the Nth and each Mth after it; "*": always
/// ERROR   an errno name ("EIO") or number, a codec result ("RETCODE_FAILURE"), "short", "hang", "slow:MS",
///         "kill", "tear"; of a codec's frame, "skip"; what befalls a camera: "bad", "lost", "wrap",
///         "nosignal", "gone"
///
/// Threads: any; occurrences are counted over all processes of the board.
class FaultPlan {
public:
    explicit FaultPlan(const Board& board) : board_(board), state_(board.state()) {}

    /// Counts this call against every rule that it matches; the first rule whose turn it is decides. Does not
    /// return when that one kills. A call that is to be slow has taken its time when this returns, and there
    /// is nothing left to decide.
    std::optional<FaultAction> check(const char* call, const char* target) const;

    /// The same for a call that transfers bytes, which can be killed within.
    std::optional<FaultAction> checkTransfer(const char* call, const char* target) const;

    /// Ends this process as nothing can prepare for.
    [[noreturn]] static void killProcess();

    /// Whether any rule names this call (or all calls are listed), so that a caller can spare itself the work
    /// of finding out the target.
    bool names(const char* call) const;

    /// Adds a rule; the text of what is wrong with it, empty when it was taken.
    std::string add(const std::string& rule) const;

    /// A rule as it can be given to add().
    static std::string textOf(const Fault& fault);

private:
    /// check() without its consequences but the delay.
    std::optional<FaultAction> decide(const char* call, const char* target) const;

    const Board& board_;
    State& state_;
};

}  // namespace board
