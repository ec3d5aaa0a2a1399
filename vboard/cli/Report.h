#pragma once

#include <cstdio>
#include <fstream>
#include <string>

#include "board/Board.h"

namespace cli {

/// Tells, one line each, what the run left allocated and which calls the board refused.
void listLeftovers(const board::Board& board, std::FILE* stream);

/// Writes what the board counted and noted as JSON (docs: virtual board); false when it could not be written.
bool writeReport(const board::Board& board, int exitStatus, std::ofstream& file);

}  // namespace cli
