#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>

namespace board {

/// The machine-readable mark in each picture of the pattern source: which camera, which frame.
///
/// Two rows of 30 square cells across the middle of the picture. A bit is 1 when its cell in the upper row is
/// brighter than the one below it, so that brightness, contrast and scale of the picture do not matter:
///
///     bits 0-1    marker 1, 0
///     bits 2-4    camera, 1 to 4          (most significant bit first, as are all)
///     bits 5-24   frame number, modulo 2^20
///     bits 25-29  checksum of camera and frame number
///
/// Threads: any; nothing is kept.
struct PatternCode {
    struct Reading {
        unsigned camera;  ///< 1 to 4
        uint32_t frame;   ///< modulo kFrames

        bool operator==(const Reading& other) const { return camera == other.camera && frame == other.frame; }
    };

    static constexpr int kPictureWidth = 720;
    static constexpr int kPictureHeight = 480;
    static constexpr int kCellSize = 24;
    static constexpr int kTop = 216;
    static constexpr int kBottom = kTop + 2 * kCellSize;

    static constexpr unsigned kMarkerBits = 2, kCameraBits = 3, kFrameBits = 20, kChecksumBits = 5;
    static constexpr unsigned kBits = kMarkerBits + kCameraBits + kFrameBits + kChecksumBits;
    static constexpr uint32_t kFrames = 1U << kFrameBits;
    static constexpr unsigned kCameras = 4;

    static_assert(kBits * kCellSize == kPictureWidth, "the rows fill the picture's width");

    /// Paints the mark into a 720x480 NV12 picture without padding.
    static void paint(uint8_t* nv12, const Reading& reading)
    {
        const uint32_t bits = encode(reading);
        constexpr size_t kStride = kPictureWidth;
        for (size_t row = 0; row < 2; ++row) {
            uint8_t* first = nv12 + (kTop + row * kCellSize) * kStride;
            for (size_t bit = 0; bit < kBits; ++bit) {
                const bool bright = isSet(bits, bit) == (row == 0);
                std::memset(first + bit * kCellSize, bright ? kWhite : kBlack, kCellSize);
            }
            for (size_t line = 1; line < kCellSize; ++line) {
                std::memcpy(first + line * kStride, first, kStride);
            }
        }
        uint8_t* chroma = nv12 + kStride * (kPictureHeight + kTop / 2);
        std::memset(chroma, kNeutralChroma, kStride * kCellSize);
    }

    /// Reads the mark from a luma plane in which the whole picture was scaled to the tile's rectangle;
    /// nothing when the tile carries none that is whole. The rectangle lies inside the plane.
    static std::optional<Reading> read(const uint8_t* luma, size_t stride, int tileX, int tileY,
                                       int tileWidth, int tileHeight)
    {
        const Tile tile{luma, stride, tileX, tileY, tileWidth, tileHeight};
        uint32_t bits = 0;
        for (int bit = 0; bit < static_cast<int>(kBits); ++bit) {
            const int difference = tile.brightness(bit, 0) - tile.brightness(bit, 1);
            if (difference > -kMinimumContrast && difference < kMinimumContrast) {
                return std::nullopt;
            }
            bits = (bits << 1) | (difference > 0 ? 1U : 0U);
        }
        const Reading reading{(bits >> kCameraShift) & mask(kCameraBits),
                              (bits >> kChecksumBits) & mask(kFrameBits)};
        const bool valid = reading.camera >= 1 && reading.camera <= kCameras && encode(reading) == bits;
        return valid ? std::optional<Reading>(reading) : std::nullopt;
    }

private:
    static constexpr uint8_t kBlack = 16, kWhite = 235, kNeutralChroma = 128;
    static constexpr int kMinimumContrast = 40;
    static constexpr uint32_t kMarker = 0b10;
    static constexpr unsigned kCameraShift = kFrameBits + kChecksumBits;
    static constexpr unsigned kMarkerShift = kCameraShift + kCameraBits;

    static constexpr uint32_t mask(unsigned bits) { return (1U << bits) - 1; }
    static constexpr bool isSet(uint32_t bits, size_t bit) { return ((bits >> (kBits - 1 - bit)) & 1U) != 0; }

    /// CRC of 5 bits, polynomial x^5 + x^2 + 1, most significant bit first.
    static constexpr uint32_t checksum(uint32_t value)
    {
        constexpr uint32_t kPolynomial = 0b00101;
        uint32_t remainder = mask(kChecksumBits);
        for (unsigned bit = kCameraBits + kFrameBits; bit-- > 0;) {
            const uint32_t top = (remainder >> (kChecksumBits - 1)) ^ (value >> bit);
            remainder = ((remainder << 1) & mask(kChecksumBits)) ^ ((top & 1U) != 0 ? kPolynomial : 0U);
        }
        return remainder;
    }

    static constexpr uint32_t encode(const Reading& reading)
    {
        const uint32_t value = (reading.camera << kFrameBits) | (reading.frame & mask(kFrameBits));
        return (kMarker << kMarkerShift) | (value << kChecksumBits) | checksum(value);
    }

    struct Tile {
        const uint8_t* luma;
        size_t stride;
        int x, y, width, height;

        /// Mean of the middle half of a cell (what scaling and encoding blur least).
        int brightness(int column, int row) const
        {
            constexpr int kQuarter = kCellSize / 4;
            const int sourceLeft = column * kCellSize + kQuarter;
            const int sourceTop = kTop + row * kCellSize + kQuarter;
            const int left = x + sourceLeft * width / kPictureWidth;
            const int right = x + (sourceLeft + 2 * kQuarter) * width / kPictureWidth;
            const int top = y + sourceTop * height / kPictureHeight;
            const int bottom = y + (sourceTop + 2 * kQuarter) * height / kPictureHeight;
            int sum = 0, count = 0;
            for (int line = top; line < bottom; ++line) {
                for (int pixel = left; pixel < right; ++pixel) {
                    sum += luma[static_cast<size_t>(line) * stride + static_cast<size_t>(pixel)];
                    ++count;
                }
            }
            return count == 0 ? 0 : sum / count;
        }
    };
};

}  // namespace board
