#include "framebuffer/Background.h"

#include <algorithm>
#include <array>

namespace board {
namespace {

constexpr uint32_t kBytesPerPixel = 4;

struct Colour {
    uint32_t red, green, blue;
};

struct Box {
    uint32_t left, top, right, bottom;
    Colour above, below;  ///< a gradient from the top to the bottom line
};

constexpr Colour kFieldTop{38, 46, 56}, kFieldBottom{16, 19, 24};
constexpr Colour kBar{28, 58, 84}, kBarLower{20, 42, 62}, kAccent{86, 156, 202};
constexpr Colour kKey{58, 68, 80}, kKeyLower{42, 50, 60};

constexpr std::array kBoxes{
    Box{0, 0, 1024, 600, kFieldTop, kFieldBottom},
    Box{0, 0, 1024, 32, kBar, kBarLower},
    Box{0, 32, 1024, 34, kAccent, kAccent},
    // Keys beside the field of the camera picture.
    Box{932, 75, 1009, 159, kKey, kKeyLower},
    Box{932, 179, 1009, 263, kKey, kKeyLower},
    Box{932, 283, 1009, 367, kKey, kKeyLower},
    Box{932, 387, 1009, 471, kKey, kKeyLower},
    Box{932, 491, 1009, 575, kKey, kKeyLower},
};

uint8_t between(uint32_t from, uint32_t to, uint32_t step, uint32_t steps)
{
    return static_cast<uint8_t>((from * (steps - step) + to * step) / steps);
}

void paintBox(uint8_t* pixels, uint32_t width, uint32_t height, const Box& box)
{
    constexpr uint8_t kOpaque = 255;
    const uint32_t right = std::min(box.right, width);
    const uint32_t bottom = std::min(box.bottom, height);
    const uint32_t steps = box.bottom - box.top;
    for (uint32_t y = box.top; y < bottom; ++y) {
        const uint32_t step = y - box.top;
        const std::array<uint8_t, kBytesPerPixel> pixel{
            between(box.above.blue, box.below.blue, step, steps),
            between(box.above.green, box.below.green, step, steps),
            between(box.above.red, box.below.red, step, steps), kOpaque};
        for (uint32_t x = box.left; x < right; ++x) {
            std::copy(pixel.begin(), pixel.end(), pixels + (size_t{y} * width + x) * kBytesPerPixel);
        }
    }
}

}  // namespace

void paintBackground(uint8_t* pixels, uint32_t width, uint32_t height)
{
    for (const Box& box : kBoxes) {
        paintBox(pixels, width, height, box);
    }
}

}  // namespace board
