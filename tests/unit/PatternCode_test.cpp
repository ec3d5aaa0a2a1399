#include "capture/PatternCode.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <random>
#include <vector>

namespace {

using board::PatternCode;

struct Luma {
    int width, height;
    std::vector<uint8_t> pixels;

    uint8_t at(int x, int y) const { return pixels[static_cast<size_t>(y * width + x)]; }
};

/// A picture with nothing in it but the mark.
Luma marked(const PatternCode::Reading& reading)
{
    constexpr int kWidth = PatternCode::kPictureWidth, kHeight = PatternCode::kPictureHeight;
    constexpr uint8_t kGrey = 100;
    Luma picture{kWidth, kHeight, std::vector<uint8_t>(size_t{kWidth} * kHeight * 3 / 2, kGrey)};
    PatternCode::paint(picture.pixels.data(), reading);
    return picture;
}

/// Puts `picture`, scaled by averaging, at a place in a larger grey one.
Luma placed(const Luma& picture, int x, int y, int width, int height)
{
    constexpr int kMargin = 64;
    constexpr uint8_t kGrey = 128;
    Luma canvas{x + width + kMargin, y + height + kMargin, {}};
    canvas.pixels.assign(static_cast<size_t>(canvas.width * canvas.height), kGrey);
    for (int row = 0; row < height; ++row) {
        for (int column = 0; column < width; ++column) {
            const int left = column * picture.width / width;
            const int top = row * picture.height / height;
            const int right = std::max(left + 1, (column + 1) * picture.width / width);
            const int bottom = std::max(top + 1, (row + 1) * picture.height / height);
            int sum = 0;
            for (int fromY = top; fromY < bottom; ++fromY) {
                for (int fromX = left; fromX < right; ++fromX) {
                    sum += picture.at(fromX, fromY);
                }
            }
            canvas.pixels[static_cast<size_t>((y + row) * canvas.width + x + column)] =
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

std::optional<PatternCode::Reading> readWhole(const Luma& picture)
{
    return PatternCode::read(picture.pixels.data(), static_cast<size_t>(picture.width), 0, 0, picture.width,
                             picture.height);
}

constexpr uint32_t kFrameSamples[] = {0, 1, 2, 3, 1023, 1024, 524287, 524288, PatternCode::kFrames - 1};

TEST(PatternCode, GivesBackEveryCameraAndFrameBit)
{
    for (unsigned camera = 1; camera <= PatternCode::kCameras; ++camera) {
        for (const uint32_t frame : kFrameSamples) {
            EXPECT_EQ(readWhole(marked({camera, frame})), (PatternCode::Reading{camera, frame}))
                << "camera " << camera << ", frame " << frame;
        }
    }
}

TEST(PatternCode, CountsFramesModuloItsRange)
{
    EXPECT_EQ(readWhole(marked({2, PatternCode::kFrames + 7})), (PatternCode::Reading{2, 7}));
}

TEST(PatternCode, LeavesThePictureAroundItAlone)
{
    const Luma picture = marked({3, 5});
    const auto first = picture.pixels.begin();
    const auto end = first + PatternCode::kPictureWidth * PatternCode::kPictureHeight;
    const auto grey = [](uint8_t pixel) { return pixel == 100; };
    EXPECT_TRUE(std::all_of(first, first + PatternCode::kPictureWidth * PatternCode::kTop, grey));
    EXPECT_TRUE(std::all_of(first + PatternCode::kPictureWidth * PatternCode::kBottom, end, grey));
}

struct Tile {
    int x, y, width, height;
};

class PatternCodeTile : public testing::TestWithParam<Tile> {};

TEST_P(PatternCodeTile, IsLostByScalingContrastOrNoise)
{
    const Tile tile = GetParam();
    for (const uint32_t frame : kFrameSamples) {
        Luma picture = placed(marked({4, frame}), tile.x, tile.y, tile.width, tile.height);
        degrade(picture);
        EXPECT_EQ(PatternCode::read(picture.pixels.data(), static_cast<size_t>(picture.width), tile.x, tile.y,
                                    tile.width, tile.height),
                  (PatternCode::Reading{4, frame}))
            << "frame " << frame;
    }
}

// The recording's tiles, the panel's panes and something smaller yet.
INSTANTIATE_TEST_SUITE_P(Tiles, PatternCodeTile,
                         testing::Values(Tile{720, 510, 720, 480}, Tile{400, 117, 400, 266},
                                         Tile{0, 0, 800, 500}, Tile{13, 7, 360, 240}));

TEST(PatternCode, IsReadFromATileThatIsNotItsOwn)
{
    const Luma picture = placed(marked({1, 77777}), 100, 100, 720, 480);
    for (const Tile& wrong : {Tile{100, 0, 720, 480}, Tile{0, 100, 720, 480}, Tile{112, 100, 720, 480},
                              Tile{100, 100, 400, 266}, Tile{0, 0, 720, 480}}) {
        EXPECT_FALSE(PatternCode::read(picture.pixels.data(), static_cast<size_t>(picture.width), wrong.x,
                                       wrong.y, wrong.width, wrong.height))
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

TEST(PatternCode, IsReadFromTwoFramesBlendedIntoOne)
{
    Luma blended = marked({1, 100});
    const Luma next = marked({1, 103});
    std::transform(blended.pixels.begin(), blended.pixels.end(), next.pixels.begin(), blended.pixels.begin(),
                   [](int a, int b) { return static_cast<uint8_t>((a + b) / 2); });
    EXPECT_FALSE(readWhole(blended));
}

TEST(PatternCode, IsReadFromDifferencesAsSmallAsNoise)
{
    Luma faint = marked({1, 100});
    for (uint8_t& pixel : faint.pixels) {
        pixel = static_cast<uint8_t>(100 + pixel / 12);
    }
    EXPECT_FALSE(readWhole(faint));
}

TEST(PatternCode, IsReadFromAnEmptyPicture)
{
    Luma empty = marked({1, 1});
    std::fill(empty.pixels.begin(), empty.pixels.end(), uint8_t{16});
    EXPECT_FALSE(readWhole(empty));
}

}  // namespace
