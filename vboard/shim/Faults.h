#pragma once

#include <cstddef>

#include "shim/Call.h"

namespace board {
class Board;
}

namespace shim {

/// The fault plan as the entry points ask it. Without a rule for a call, asking is one look at a word.
///
/// Standard output and error (descriptors 1 and 2) fail only where they lead into a file of the board: "*"
/// does not mean what the program tells its user. Threads: any.

/// Learns which calls the plan names. Until then none is.
void learnFaults(const board::Board& board);

/// Whether the call on this path or queue, as the program names it, is to fail now; sets `errno` then.
bool failsByPlan(Call call, const char* target);

/// The same for a descriptor: its device's node, its file as the program names it, or its queue.
bool failsByPlan(Call call, int fd);

/// The same for a call whose target is its caller: the file name of the program or library that `caller`, the
/// call's return address, lies in. A sanitizer's runtime stands before the board and makes everybody's calls:
/// those are the program's.
bool failsForCaller(Call call, const void* caller);

/// A read or write that the plan has looked at.
struct Transfer {
    bool fails;    ///< `errno` is set
    size_t bytes;  ///< what is left of the transfer: a short one moves half, at least one byte
    bool kills;    ///< when that much is moved the process is to be killed
};
Transfer planTransfer(Call call, int fd, size_t bytes);

}  // namespace shim
