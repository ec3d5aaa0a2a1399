#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace board {

/// One plane of a pixel format: how its samples lie over the picture's pixels.
struct PlaneShape {
    uint32_t shift;        ///< 1: one sample for two pixels in each direction, 0: one for each
    uint32_t sampleBytes;  ///< bytes of one sample, all its components together
};

/// A pixel format that the image hardware and the overlay know.
struct PixelFormat {
    uint32_t code;  ///< V4L2 four-character code
    uint32_t bitsPerPixel;
    bool yuv;
    bool pairs;  ///< two pixels side by side share a code word: columns and widths must be even
    size_t planeCount;
    std::array<PlaneShape, 3> planes;
};

constexpr uint32_t fourCharacters(char a, char b, char c, char d)
{
    return static_cast<uint32_t>(a) | static_cast<uint32_t>(b) << 8 | static_cast<uint32_t>(c) << 16 |
           static_cast<uint32_t>(d) << 24;
}

constexpr uint32_t kNv12 = fourCharacters('N', 'V', '1', '2');
constexpr uint32_t kYu12 = fourCharacters('Y', 'U', '1', '2');
constexpr uint32_t kYuyv = fourCharacters('Y', 'U', 'Y', 'V');
constexpr uint32_t kUyvy = fourCharacters('U', 'Y', 'V', 'Y');
constexpr uint32_t kRgbp = fourCharacters('R', 'G', 'B', 'P');

constexpr std::array kPixelFormats{
    PixelFormat{kNv12, 12, true, false, 2, {{{0, 1}, {1, 2}}}},
    PixelFormat{kYu12, 12, true, false, 3, {{{0, 1}, {1, 1}, {1, 1}}}},
    PixelFormat{kYuyv, 16, true, true, 1, {{{0, 2}}}},
    PixelFormat{kUyvy, 16, true, true, 1, {{{0, 2}}}},
    PixelFormat{kRgbp, 16, false, false, 1, {{{0, 2}}}},
};

/// The format of a four-character code, null when the hardware has none of that name.
constexpr const PixelFormat* findPixelFormat(uint32_t code)
{
    for (const PixelFormat& format : kPixelFormats) {
        if (format.code == code) {
            return &format;
        }
    }
    return nullptr;
}

}  // namespace board
