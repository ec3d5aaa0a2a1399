#pragma once

namespace board {
class Board;
}

namespace shim {

/// The board that this process runs on. Null when it runs on none, and until the library's constructor has
/// run: what libraries below this one do while they are loaded is not the board's.
board::Board* attachedBoard();

}  // namespace shim
