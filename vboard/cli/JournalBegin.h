#pragma once

#include <string>

#include "board/Board.h"

namespace cli {

/// Begins a board's journal (medium/Journal.h) with the files that the board has already, as being on the
/// medium. What could not be done, empty when all is well.
std::string beginJournal(const board::Board& board);

}  // namespace cli
