#include "capture/PatternCode.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <random>
#include <vector>

#include "Pictures.h"

namespace {

using board::PatternCode;
using support::Luma;

/// A picture with nothing in it but the mark.
Luma marked(const PatternCode::Reading& reading)
{
    constexpr int kWidth = PatternCode::kPictureWidth, kHeight = PatternCode::kPictureHeight;
    constexpr uint8_t kGrey = 100;
    Luma picture{kWidth, kHeight, std::vector<uint8_t>(size_t{kWidth} * kHeight * 3 / 2, kGrey)};
    PatternCode::paint(picture.pixels.data(), reading);
    return picture;
}

struct Tile {
    int x, y, width, height;
};

/// Puts `picture`, scaled by averaging, at a place in a larger grey one.
Luma placed(const Luma& picture, const Tile& tile)
{
    constexpr int kMargin = 64;
    constexpr uint8_t kGrey = 128;
    Luma canvas{tile.x + tile.width + kMargin, tile.y + tile.height + kMargin, {}};
    canvas.pixels.assign(static_cast<size_t>(canvas.width * canvas.height), kGrey);
    for (int row = 0; row < tile.height; ++row) {
        for (int column = 0; column < tile.width; ++column) {
            const int left = column * picture.width / tile.width;
            const int top = row * picture.height / tile.height;
            const int right = std::max(left + 1, (column + 1) * picture.width / tile.width);
            const int bottom = std::max(top + 1, (row + 1) * picture.height / tile.height);
            int sum = 0;
            for (int fromY = top; fromY < bottom; ++fromY) {
                for (int fromX = left; fromX < right; ++fromX) {
                    sum += picture.at(fromX, fromY);
                }
            }
            canvas.pixels[static_cast<size_t>((tile.y + row) * canvas.width + tile.x + column)] =
                static_cast<uint8_t>(sum / ((right - left) * (bottom - top)));
        }
    }
    return canvas;
}

/// What heavy quantisation and a dim panel leave of it: less contrast, and strong noise.
void degrade(Luma& picture)
{
    constexpr int kContrastPercent = 60, kLift = 40, kNoise = 60;
    std::mt19937 random(1);  // NOLINT: the same every time on purpose
    std::uniform_int_distribution<int> noise(-kNoise, kNoise);
    for (uint8_t& pixel : picture.pixels) {
        pixel =
            static_cast<uint8_t>(std::clamp(pixel * kContrastPercent / 100 + kLift + noise(random), 0, 255));
    }
}

std::optional<PatternCode::Reading> readAt(const Luma& picture, const Tile& tile)
{
    return PatternCode::read(picture.pixels.data(), static_cast<size_t>(picture.width), tile.x, tile.y,
                             tile.width, tile.height);
}

std::optional<PatternCode::Reading> readWhole(const Luma& picture)
{
    return readAt(picture, {0, 0, picture.width, picture.height});
}

constexpr uint32_t kFrameSamples[] = {0, 1, 2, 3, 1023, 1024, 524287, 524288, PatternCode::kFrames - 1};

TEST(PatternCode, GivesBackAnotherCameraOrFrame)
{
    for (unsigned camera = 1; camera <= PatternCode::kCameras; ++camera) {
        for (const uint32_t frame : kFrameSamples) {
            EXPECT_EQ(readWhole(marked({camera, frame})), (PatternCode::Reading{camera, frame}))
                << "camera " << camera << ", frame " << frame;
        }
    }
    EXPECT_EQ(readWhole(marked({2, PatternCode::kFrames + 7})), (PatternCode::Reading{2, 7}));
}

TEST(PatternCode, TouchesThePictureAroundIt)
{
    const Luma picture = marked({3, 5});
    const auto first = picture.pixels.begin();
    const auto end = first + PatternCode::kPictureWidth * PatternCode::kPictureHeight;
    const auto grey = [](uint8_t pixel) { return pixel == 100; };
    EXPECT_TRUE(std::all_of(first, first + PatternCode::kPictureWidth * PatternCode::kTop, grey));
    EXPECT_TRUE(std::all_of(first + PatternCode::kPictureWidth * PatternCode::kBottom, end, grey));
}

TEST(PatternCode, IsLostByScalingContrastOrNoise)
{
    // The recording's tiles, the panel's panes and something smaller yet.
    for (const Tile& tile :
         {Tile{720, 510, 720, 480}, Tile{400, 117, 400, 266}, Tile{0, 0, 800, 500}, Tile{13, 7, 360, 240}}) {
        for (const uint32_t frame : kFrameSamples) {
            Luma picture = placed(marked({4, frame}), tile);
            degrade(picture);
            EXPECT_EQ(readAt(picture, tile), (PatternCode::Reading{4, frame}))
                << "frame " << frame << ", width " << tile.width;
        }
    }
}

TEST(PatternCode, IsReadFromATileThatIsNotItsOwn)
{
    const Luma picture = placed(marked({1, 77777}), {100, 100, 720, 480});
    for (const Tile& wrong : {Tile{100, 0, 720, 480}, Tile{0, 100, 720, 480}, Tile{112, 100, 720, 480},
                              Tile{100, 100, 400, 266}, Tile{0, 0, 720, 480}}) {
        EXPECT_FALSE(readAt(picture, wrong))
            << wrong.x << "," << wrong.y << " " << wrong.width << "x" << wrong.height;
    }
}

TEST(PatternCode, IsReadAlthoughOneCellIsTorn)
{
    for (unsigned bit = 0; bit < PatternCode::kBits; ++bit) {
        Luma flipped = marked({2, 4711});
        const auto column = static_cast<int>(bit) * PatternCode::kCellSize;
        for (int row = 0; row < PatternCode::kCellSize; ++row) {
            const auto upper =
                flipped.pixels.begin() + (PatternCode::kTop + row) * PatternCode::kPictureWidth + column;
            const auto lower = upper + PatternCode::kCellSize * PatternCode::kPictureWidth;
            std::swap_ranges(upper, upper + PatternCode::kCellSize, lower);
        }
        EXPECT_FALSE(readWhole(flipped)) << "bit " << bit << " flipped";
    }
}

TEST(PatternCode, IsReadFromBlendedFramesOrDifferencesAsSmallAsNoiseOrNothing)
{
    const Luma picture = marked({1, 100});
    const Luma next = marked({1, 103});
    Luma blended = picture;
    Luma faint = picture;
    Luma empty = picture;
    for (size_t i = 0; i < picture.pixels.size(); ++i) {
        blended.pixels[i] = static_cast<uint8_t>((picture.pixels[i] + next.pixels[i]) / 2);
        faint.pixels[i] = static_cast<uint8_t>(100 + picture.pixels[i] / 12);
        empty.pixels[i] = 16;
    }
    EXPECT_FALSE(readWhole(blended));
    EXPECT_FALSE(readWhole(faint));
    EXPECT_FALSE(readWhole(empty));
}

}  // namespace
