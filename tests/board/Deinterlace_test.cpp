#include "ipu/Deinterlace.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <vector>

namespace {

using board::FieldOrder;
using board::PictureView;
using board::Size;

constexpr Size kSize{96, 64};
constexpr uint8_t kTolerance = 8;

/// A picture with memory of its own.
struct Picture {
    explicit Picture(uint32_t format, Size whole = kSize)
        : bytes(board::pictureBytes(*board::findPixelFormat(format), whole)),
          view(board::viewPicture(bytes.data(), *board::findPixelFormat(format), whole,
                                  {0, 0, whole.width, whole.height}))
    {
    }

    void fillRandom(unsigned seed)
    {
        for (uint8_t& byte : bytes) {
            seed = seed * 1664525U + 1013904223U;
            byte = static_cast<uint8_t>(seed >> 24);
        }
    }

    std::vector<uint8_t> bytes;
    PictureView view;
};

class DeinterlaceFormat : public ::testing::TestWithParam<uint32_t> {};

TEST_P(DeinterlaceFormat, LeavesAStillPictureBitForBit)
{
    Picture now(GetParam());
    Picture out(GetParam());
    now.fillRandom(7);
    const Picture previous = now;
    const PictureView before = board::viewPicture(const_cast<uint8_t*>(previous.bytes.data()),
                                                  *now.view.format, kSize, {0, 0, 96, 64});
    board::Deinterlacer().run(now.view, &before, FieldOrder::kTopFirst, kTolerance, out.view);
    EXPECT_EQ(out.bytes, now.bytes);
}

INSTANTIATE_TEST_SUITE_P(Formats, DeinterlaceFormat,
                         ::testing::Values(board::kNv12, board::kYu12, board::kYuyv, board::kUyvy));

/// An upright bar, drawn where it is at the instant of each field: as a camera takes it.
struct Scene {
    size_t firstFieldX, secondFieldX;  ///< left edge in samples
    size_t firstField;                 ///< 0: the even lines were taken first
    bool textured;
};

uint8_t sceneSample(const Scene& scene, size_t line, size_t x, size_t component)
{
    constexpr size_t kBarWidth = 20;
    const size_t left = line % 2 == scene.firstField ? scene.firstFieldX : scene.secondFieldX;
    if (x < left || x >= left + kBarWidth) {
        return static_cast<uint8_t>(60 + component * 20);
    }
    const size_t pattern = scene.textured ? (x - left) * 37 % 64 : 0;
    return static_cast<uint8_t>(170 - component * 20 + pattern);
}

void draw(const PictureView& picture, const Scene& scene)
{
    for (size_t index = 0; index < picture.format->planeCount; ++index) {
        const board::Plane& plane = picture.planes[index];
        for (size_t line = 0; line < plane.lines; ++line) {
            for (size_t byte = 0; byte < plane.lineBytes; ++byte) {
                plane.line(line)[byte] =
                    sceneSample(scene, line, byte / plane.sampleBytes, byte % plane.sampleBytes);
            }
        }
    }
}

/// How much the lines of a picture that is the same on every line differ from the ones above.
uint64_t combing(const PictureView& picture)
{
    uint64_t sum = 0;
    for (size_t index = 0; index < picture.format->planeCount; ++index) {
        const board::Plane& plane = picture.planes[index];
        for (size_t line = 1; line < plane.lines; ++line) {
            for (size_t byte = 0; byte < plane.lineBytes; ++byte) {
                sum += static_cast<uint64_t>(std::abs(plane.line(line)[byte] - plane.line(line - 1)[byte]));
            }
        }
    }
    return sum;
}

class DeinterlaceOrder : public ::testing::TestWithParam<FieldOrder> {
protected:
    size_t firstField() const { return GetParam() == FieldOrder::kTopFirst ? 0 : 1; }

    /// The bar moves to the right, six samples from field to field.
    Picture deinterlaceMovingBar(bool textured)
    {
        Picture previous(board::kNv12);
        Picture out(board::kNv12);
        draw(previous.view, {2, 8, firstField(), textured});
        draw(now_.view, {14, 20, firstField(), textured});
        board::Deinterlacer().run(now_.view, &previous.view, GetParam(), kTolerance, out.view);
        return out;
    }

    Picture now_{board::kNv12};
};

TEST_P(DeinterlaceOrder, MovingBarDoesNotCombAndIsWhereTheFirstFieldSawIt)
{
    const Picture out = deinterlaceMovingBar(false);
    ASSERT_GT(combing(now_.view), 0U);
    Picture expected(board::kNv12);
    draw(expected.view, {14, 14, firstField(), false});
    EXPECT_EQ(out.bytes, expected.bytes);
}

TEST_P(DeinterlaceOrder, TextureInMotionLosesNearlyAllCombing)
{
    const Picture out = deinterlaceMovingBar(true);
    const PictureView view =
        board::viewPicture(const_cast<uint8_t*>(out.bytes.data()), *now_.view.format, kSize, {0, 0, 96, 64});
    EXPECT_LT(combing(view), combing(now_.view) / 20);
}

INSTANTIATE_TEST_SUITE_P(Orders, DeinterlaceOrder,
                         ::testing::Values(FieldOrder::kTopFirst, FieldOrder::kBottomFirst));

TEST(Deinterlace, NoiseDoesNotCostTheStillLines)
{
    Picture now(board::kNv12);
    Picture out(board::kNv12);
    now.fillRandom(3);
    Picture previous = Picture(board::kNv12);
    for (size_t i = 0; i < now.bytes.size(); ++i) {
        const int noise = static_cast<int>(i * 31 % (2 * kTolerance + 1)) - kTolerance;
        previous.bytes[i] = static_cast<uint8_t>(std::clamp(now.bytes[i] + noise, 0, 255));
    }
    board::Deinterlacer().run(now.view, &previous.view, FieldOrder::kTopFirst, kTolerance, out.view);
    EXPECT_EQ(out.bytes, now.bytes);
}

TEST(Deinterlace, HalfwayMotionMixesLineAndMean)
{
    Picture now(board::kYu12);
    Picture previous(board::kYu12);
    Picture out(board::kYu12);
    std::fill(now.bytes.begin(), now.bytes.end(), uint8_t{100});
    std::fill_n(now.view.planes[0].line(1), kSize.width, uint8_t{180});
    previous.bytes = now.bytes;
    std::fill_n(previous.view.planes[0].line(1), kSize.width, uint8_t{180 - kTolerance - 8});
    board::Deinterlacer().run(now.view, &previous.view, FieldOrder::kTopFirst, kTolerance, out.view);
    EXPECT_EQ(out.view.planes[0].line(1)[kSize.width / 2], 140);
}

TEST(Deinterlace, MotionReachesTheSamplesBesideItAndNoFurther)
{
    Picture now(board::kYu12);
    Picture out(board::kYu12);
    std::fill(now.bytes.begin(), now.bytes.end(), uint8_t{100});
    std::fill_n(now.view.planes[0].line(1), kSize.width, uint8_t{180});
    Picture previous(board::kYu12);
    previous.bytes = now.bytes;
    previous.view.planes[0].line(1)[20] = 80;
    board::Deinterlacer().run(now.view, &previous.view, FieldOrder::kTopFirst, kTolerance, out.view);
    const uint8_t* const mixed = out.view.planes[0].line(1);
    EXPECT_EQ(std::vector<uint8_t>(mixed + 18, mixed + 23), (std::vector<uint8_t>{180, 100, 100, 100, 180}));
}

TEST(Deinterlace, OneFieldAloneMakesTheOtherFromItsNeighboursAlsoAtTheEdges)
{
    Picture now(board::kYu12);
    Picture out(board::kYu12);
    for (size_t line = 0; line < kSize.height; ++line) {
        std::fill_n(now.view.planes[0].line(line), kSize.width,
                    static_cast<uint8_t>(line % 2 == 0 ? 2 * line : 255));
    }
    board::Deinterlacer().run(now.view, nullptr, FieldOrder::kTopFirst, 0, out.view);
    const board::Plane& luma = out.view.planes[0];
    EXPECT_EQ(luma.line(2)[5], 4);
    EXPECT_EQ(luma.line(3)[5], 6);
    EXPECT_EQ(luma.line(kSize.height - 1)[5], luma.line(kSize.height - 2)[5]);
}

TEST(Deinterlace, RectangleFromAnOddLineKeepsTheSameField)
{
    Picture now(board::kNv12);
    Picture out(board::kNv12);
    draw(now.view, {10, 30, 0, false});
    // Line 5 belongs to the bottom field; in the chroma plane line 2 belongs to the top field.
    const PictureView part = board::viewPicture(now.bytes.data(), *now.view.format, kSize, {0, 5, 96, 40});
    const PictureView to = board::viewPicture(out.bytes.data(), *now.view.format, kSize, {0, 5, 96, 40});
    board::Deinterlacer().run(part, nullptr, FieldOrder::kTopFirst, 0, to);
    EXPECT_EQ(combing(to), 0U);
    const uint8_t* const kept = now.view.planes[0].line(6);
    EXPECT_TRUE(std::equal(kept, kept + kSize.width, to.planes[0].line(0)));
    const uint8_t* const keptChroma = now.view.planes[1].line(2);
    EXPECT_TRUE(std::equal(keptChroma, keptChroma + kSize.width, to.planes[1].line(1)));
}

}  // namespace
