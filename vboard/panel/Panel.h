#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "board/Board.h"

namespace board {

/// What the panel shows now: kPanelWidth by kPanelHeight pixels, red, green and blue bytes, lines without
/// padding.
///
/// The overlay lies under the background and shines through it: the background's global opacity is 255 when
/// the panel boots, which hides the overlay, and 0 shows the overlay alone where it lies. A blanked
/// background is black, a blanked overlay is not there. YUV pixels are taken as ITU-R BT.601 in video range
/// (black is 16, white 235), as the cameras' decoders deliver them.
///
/// Threads: any; the pixels are read while the program may draw.
std::vector<uint8_t> composePanel(const Board& board);

/// Writes that as a PNG file; false when the file could not be written.
bool writeSnapshot(const Board& board, const std::string& pngFile);

}  // namespace board
