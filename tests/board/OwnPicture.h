#pragma once

#include <algorithm>
#include <cstdint>
#include <random>
#include <vector>

#include "ipu/Picture.h"

namespace support {

/// A picture with memory of its own, and around it memory that nobody may write to.
struct OwnPicture {
    static constexpr size_t kMargin = 64;
    static constexpr uint8_t kUntouched = 0xA5;

    OwnPicture(uint32_t format, board::Size size)
        : bytes(board::pictureBytes(*board::findPixelFormat(format), size) + 2 * kMargin, kUntouched),
          view(board::viewPicture(bytes.data() + kMargin, *board::findPixelFormat(format), size,
                                  {0, 0, size.width, size.height}))
    {
    }
    OwnPicture(const OwnPicture&) = delete;
    OwnPicture& operator=(const OwnPicture&) = delete;

    void fill(uint8_t value) { std::fill(bytes.begin() + kMargin, bytes.end() - kMargin, value); }
    void fillWithNoise() { std::generate(bytes.begin() + kMargin, bytes.end() - kMargin, std::mt19937(5)); }

    bool marginsUntouched() const
    {
        const auto untouched = [](uint8_t byte) { return byte == kUntouched; };
        return std::all_of(bytes.begin(), bytes.begin() + kMargin, untouched) &&
               std::all_of(bytes.end() - kMargin, bytes.end(), untouched);
    }

    std::vector<uint8_t> bytes;
    board::PictureView view;
};

}  // namespace support
