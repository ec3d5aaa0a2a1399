#pragma once

#include <optional>

#include "board/Board.h"
#include "faults/FaultPlan.h"
#include "vpu_lib.h"

namespace codec {

constexpr const char* kDevice = "vpu";  ///< the codec's name in the report, and as an owner of memory

/// Counts a call for the report and asks the fault plan whether it is to fail.
std::optional<board::FaultAction> enter(const board::Board& board, const char* call);

/// What a failing call of the library gives: the plan's own result code, or the one nearest to its errno.
RetCode resultOf(const board::FaultAction& fault);

}  // namespace codec
