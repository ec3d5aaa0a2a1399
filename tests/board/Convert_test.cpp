#include "ipu/Convert.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>

#include "OwnPicture.h"

namespace {

using board::kNv12;
using board::kYu12;
using board::Plane;
using board::Size;
using support::OwnPicture;

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

struct Scaling {
    uint32_t format;
    Size from, to;
};

TEST(BlendingScale, TakesTheWrongSamplesOrSharesOrWritesBesideThePicture)
{
    // Noise of full strength: what is off by a fortieth of a sample shows as six steps of brightness.
    constexpr double kOffByAFortieth = 6;
    for (const auto& [format, fromSize, toSize] :
         {Scaling{kNv12, {720, 480}, {800, 500}}, Scaling{kNv12, {720, 480}, {400, 266}},
          Scaling{kNv12, {720, 480}, {602, 334}}, Scaling{kNv12, {720, 480}, {360, 240}},
          Scaling{kNv12, {34, 18}, {90, 60}}, Scaling{kNv12, {16, 8}, {18, 10}},
          Scaling{kNv12, {14, 8}, {18, 10}}, Scaling{kYu12, {720, 480}, {800, 600}},
          Scaling{kYu12, {64, 40}, {42, 40}}}) {
        SCOPED_TRACE(testing::Message() << fromSize.width << " to " << toSize.width);
        OwnPicture from(format, fromSize), to(format, toSize);
        from.fillWithNoise();
        ASSERT_TRUE(board::Converter().run(from.view, to.view));
        for (size_t index = 0; index < from.view.format->planeCount; ++index) {
            EXPECT_LT(worstError(from.view.planes[index], to.view.planes[index]), kOffByAFortieth)
                << "plane " << index;
        }
        EXPECT_TRUE(to.marginsUntouched());
    }
}

}  // namespace
