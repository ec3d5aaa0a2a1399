#pragma once

#include <cstdint>

namespace board {

/// Paints the picture of a panel at rest: a header bar, an empty field for the camera, a column of keys. 32
/// bits a pixel (blue, green, red, unused), lines without padding.
void paintBackground(uint8_t* pixels, uint32_t width, uint32_t height);

}  // namespace board
