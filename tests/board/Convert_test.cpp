#include "ipu/Convert.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <ostream>
#include <vector>

namespace {

using board::PictureView;
using board::Plane;
using board::Size;

struct Scaling {
    uint32_t format;
    Size from, to;
};

std::ostream& operator<<(std::ostream& stream, const Scaling& scaling)
{
    return stream << scaling.from.width << 'x' << scaling.from.height << " to " << scaling.to.width << 'x'
                  << scaling.to.height;
}

/// Memory around a picture that nobody may write to.
struct Guarded {
    static constexpr size_t kMargin = 64;
    static constexpr uint8_t kUntouched = 0xA5;

    Guarded(uint32_t format, Size size)
        : bytes(board::pictureBytes(*board::findPixelFormat(format), size) + 2 * kMargin, kUntouched),
          view(board::viewPicture(bytes.data() + kMargin, *board::findPixelFormat(format), size,
                                  {0, 0, size.width, size.height}))
    {
    }

    bool marginsUntouched() const
    {
        const auto untouched = [](uint8_t byte) { return byte == kUntouched; };
        return std::all_of(bytes.begin(), bytes.begin() + kMargin, untouched) &&
               std::all_of(bytes.end() - kMargin, bytes.end(), untouched);
    }

    std::vector<uint8_t> bytes;
    PictureView view;
};

/// Where sample `index` of `to` lies among `from`: ends on ends when enlarged, centre on centre when reduced.
double positionOf(size_t index, size_t from, size_t to)
{
    const auto many = static_cast<double>(from), made = static_cast<double>(to),
               at = static_cast<double>(index);
    const double place = to > from ? at * (many - 1) / (made - 1) : (at + 0.5) * many / made - 0.5;
    return std::clamp(place, 0.0, many - 1);
}

double sampleAt(const Plane& plane, double line, double column, size_t component)
{
    const auto value = [&](double y, double x) {
        const size_t row = std::min(static_cast<size_t>(y), plane.lines - 1);
        const size_t sample = std::min(static_cast<size_t>(x), plane.lineBytes / plane.sampleBytes - 1);
        return static_cast<double>(plane.line(row)[sample * plane.sampleBytes + component]);
    };
    const double top = std::floor(line), left = std::floor(column);
    const double down = line - top, right = column - left;
    return (value(top, left) * (1 - right) + value(top, left + 1) * right) * (1 - down) +
           (value(top + 1, left) * (1 - right) + value(top + 1, left + 1) * right) * down;
}

double worstError(const Plane& from, const Plane& to)
{
    double worst = 0;
    const size_t sampleBytes = from.sampleBytes;
    for (size_t line = 0; line < to.lines; ++line) {
        for (size_t byte = 0; byte < to.lineBytes; ++byte) {
            const double y = positionOf(line, from.lines, to.lines);
            const double x =
                positionOf(byte / sampleBytes, from.lineBytes / sampleBytes, to.lineBytes / sampleBytes);
            worst = std::max(worst, std::abs(to.line(line)[byte] - sampleAt(from, y, x, byte % sampleBytes)));
        }
    }
    return worst;
}

class BlendingScale : public ::testing::TestWithParam<Scaling> {};

TEST_P(BlendingScale, TakesTheWrongSamplesOrSharesOrWritesBesideThePicture)
{
    const auto& [format, fromSize, toSize] = GetParam();
    Guarded from(format, fromSize);
    Guarded to(format, toSize);
    unsigned seed = 5;
    std::generate(from.bytes.begin(), from.bytes.end(), [&] {
        seed = seed * 1664525U + 1013904223U;
        return static_cast<uint8_t>(seed >> 24);
    });
    ASSERT_TRUE(board::Converter().run(from.view, to.view));
    // Noise of full strength: what is off by a fortieth of a sample shows as six steps of brightness.
    constexpr double kOffByAFortieth = 6;
    for (size_t index = 0; index < from.view.format->planeCount; ++index) {
        EXPECT_LT(worstError(from.view.planes[index], to.view.planes[index]), kOffByAFortieth)
            << "plane " << index;
    }
    EXPECT_TRUE(to.marginsUntouched());
}

INSTANTIATE_TEST_SUITE_P(Sizes, BlendingScale,
                         ::testing::Values(Scaling{board::kNv12, {720, 480}, {800, 500}},
                                           Scaling{board::kNv12, {720, 480}, {400, 266}},
                                           Scaling{board::kNv12, {720, 480}, {602, 334}},
                                           Scaling{board::kNv12, {720, 480}, {360, 240}},
                                           Scaling{board::kNv12, {34, 18}, {90, 60}},
                                           Scaling{board::kNv12, {16, 8}, {18, 10}},
                                           Scaling{board::kNv12, {14, 8}, {18, 10}},
                                           Scaling{board::kYu12, {720, 480}, {800, 600}},
                                           Scaling{board::kYu12, {64, 40}, {42, 40}}));

}  // namespace
