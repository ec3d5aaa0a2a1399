#include "ipu/Deinterlace.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "OwnPicture.h"

namespace {

using board::FieldOrder;
using board::kNv12;
using board::kYu12;
using board::PictureView;

constexpr board::Size kSize{96, 64};
constexpr uint8_t kTolerance = 8;

struct Picture : support::OwnPicture {
    explicit Picture(uint32_t format) : OwnPicture(format, kSize) {}
    uint8_t* line(size_t index) const { return view.planes[0].line(index); }
};

TEST(Deinterlace, ChangesAStillPictureOrTakesItsNoiseForMotion)
{
    for (const uint32_t format : {kNv12, kYu12, board::kYuyv, board::kUyvy}) {
        Picture previous(format), now(format), out(format);
        now.fillWithNoise();
        for (size_t i = 0; i < now.bytes.size(); ++i) {
            const int noise = static_cast<int>(i * 31 % (2 * kTolerance + 1)) - kTolerance;
            previous.bytes[i] = static_cast<uint8_t>(std::clamp(now.bytes[i] + noise, 0, 255));
        }
        board::Deinterlacer().run(now.view, &previous.view, FieldOrder::kTopFirst, kTolerance, out.view);
        EXPECT_EQ(out.bytes, now.bytes) << format;
    }
}

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

void draw(const Picture& picture, const Scene& scene)
{
    for (size_t index = 0; index < picture.view.format->planeCount; ++index) {
        const board::Plane& plane = picture.view.planes[index];
        for (size_t line = 0; line < plane.lines; ++line) {
            for (size_t byte = 0; byte < plane.lineBytes; ++byte) {
                plane.line(line)[byte] =
                    sceneSample(scene, line, byte / plane.sampleBytes, byte % plane.sampleBytes);
            }
        }
    }
}

/// How much the lines of a picture that is the same on every line differ from the ones above.
int combing(const PictureView& picture)
{
    int sum = 0;
    for (size_t index = 0; index < picture.format->planeCount; ++index) {
        const board::Plane& plane = picture.planes[index];
        for (size_t line = 1; line < plane.lines; ++line) {
            for (size_t byte = 0; byte < plane.lineBytes; ++byte) {
                sum += std::abs(plane.line(line)[byte] - plane.line(line - 1)[byte]);
            }
        }
    }
    return sum;
}

TEST(Deinterlace, AMovingBarCombsOrIsNotWhereTheFirstFieldSawIt)
{
    for (const FieldOrder order : {FieldOrder::kTopFirst, FieldOrder::kBottomFirst}) {
        const size_t first = order == FieldOrder::kTopFirst ? 0 : 1;
        for (const bool textured : {false, true}) {
            Picture previous(kNv12), now(kNv12), out(kNv12), expected(kNv12);
            draw(previous, {2, 8, first, textured});
            draw(now, {14, 20, first, textured});
            draw(expected, {14, 14, first, textured});
            board::Deinterlacer().run(now.view, &previous.view, order, kTolerance, out.view);
            EXPECT_LT(combing(out.view), combing(now.view) / 20) << first << textured;
            EXPECT_TRUE(textured || out.bytes == expected.bytes) << first;
        }
    }
}

TEST(Deinterlace, MotionCountsWrongOrFurtherThanTheNextSample)
{
    Picture previous(kYu12), now(kYu12), out(kYu12);
    now.fill(100);
    std::fill_n(now.line(1), kSize.width, uint8_t{180});
    previous.bytes = now.bytes;
    previous.line(1)[20] = 80;
    std::fill_n(previous.line(1) + 60, 30, uint8_t{180 - kTolerance - 8});  // half of full motion
    board::Deinterlacer().run(now.view, &previous.view, FieldOrder::kTopFirst, kTolerance, out.view);
    const uint8_t* const mixed = out.line(1);
    EXPECT_EQ(std::vector<uint8_t>(mixed + 18, mixed + 23), (std::vector<uint8_t>{180, 100, 100, 100, 180}));
    EXPECT_EQ(mixed[75], 140) << "line and mean in equal parts";
}

TEST(Deinterlace, OneFieldAloneMakesTheOtherWrongAtTheEdgesOrElsewhere)
{
    Picture now(kYu12), out(kYu12);
    for (size_t line = 0; line < kSize.height; ++line) {
        std::fill_n(now.line(line), kSize.width, static_cast<uint8_t>(line % 2 == 0 ? 2 * line : 255));
    }
    board::Deinterlacer().run(now.view, nullptr, FieldOrder::kTopFirst, 0, out.view);
    EXPECT_EQ(out.line(2)[5], 4);
    EXPECT_EQ(out.line(3)[5], 6);
    EXPECT_EQ(out.line(kSize.height - 1)[5], out.line(kSize.height - 2)[5]);
}

TEST(Deinterlace, ARectangleFromAnOddLineKeepsTheOtherField)
{
    Picture now(kNv12), out(kNv12);
    draw(now, {10, 30, 0, false});
    // Line 5 belongs to the bottom field; in the chroma plane line 2 belongs to the top field.
    const auto partOf = [](const Picture& picture) {
        return board::viewPicture(picture.line(0), *picture.view.format, kSize, {0, 5, 96, 40});
    };
    const PictureView to = partOf(out);
    board::Deinterlacer().run(partOf(now), nullptr, FieldOrder::kTopFirst, 0, to);
    EXPECT_EQ(combing(to), 0);
    EXPECT_TRUE(std::equal(now.line(6), now.line(7), to.planes[0].line(0)));
    const uint8_t* const keptChroma = now.view.planes[1].line(2);
    EXPECT_TRUE(std::equal(keptChroma, keptChroma + kSize.width, to.planes[1].line(1)));
}

}  // namespace
