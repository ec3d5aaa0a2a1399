#include "ipu/Deinterlace.h"

#include <cstring>

#include "ipu/Vector.h"

// The loops over a line are written for the compiler's vectoriser: bytes in, bytes out, no branches, no
// aliasing. They are built with full optimisation in every preset.

namespace board {
namespace {

/// Brightness steps from "weave" to "mean", a power of two.
constexpr int kRamp = 16;

constexpr uint8_t difference(uint8_t a, uint8_t b)
{
    return static_cast<uint8_t>(a > b ? a - b : b - a);
}

constexpr uint8_t larger(uint8_t a, uint8_t b)
{
    return a > b ? a : b;
}

constexpr uint8_t mean(uint8_t a, uint8_t b)
{
    return static_cast<uint8_t>((a + b + 1) / 2);
}

VBOARD_KERNEL void meanLineBody(const uint8_t* __restrict above, const uint8_t* __restrict below,
                                uint8_t* __restrict to, size_t bytes)
{
    for (size_t i = 0; i < bytes; ++i) {
        to[i] = mean(above[i], below[i]);
    }
}

/// A line, the ones around it, now or in the previous frame.
struct Neighbours {
    const uint8_t *self, *above, *below;
};

VBOARD_KERNEL void measureMotionBody(const Neighbours& now, const Neighbours& before,
                                     uint8_t* __restrict motion, size_t bytes)
{
    const uint8_t* __restrict self = now.self;
    const uint8_t* __restrict above = now.above;
    const uint8_t* __restrict below = now.below;
    const uint8_t* __restrict selfBefore = before.self;
    const uint8_t* __restrict aboveBefore = before.above;
    const uint8_t* __restrict belowBefore = before.below;
    for (size_t i = 0; i < bytes; ++i) {
        const uint8_t around =
            larger(difference(above[i], aboveBefore[i]), difference(below[i], belowBefore[i]));
        motion[i] = larger(difference(self[i], selfBefore[i]), around);
    }
}

/// Motion at a sample and at the ones to its left and right.
struct MotionAround {
    const uint8_t *left, *centre, *right;
};

/// Mixes the line itself with the mean of its neighbours.
VBOARD_KERNEL void mixBody(const Neighbours& now, const MotionAround& motion, uint8_t tolerance,
                           uint8_t* __restrict to, size_t bytes)
{
    const uint8_t* __restrict self = now.self;
    const uint8_t* __restrict above = now.above;
    const uint8_t* __restrict below = now.below;
    const uint8_t* __restrict left = motion.left;
    const uint8_t* __restrict centre = motion.centre;
    const uint8_t* __restrict right = motion.right;
    for (size_t i = 0; i < bytes; ++i) {
        const uint8_t strongest = larger(larger(left[i], right[i]), centre[i]);
        const uint8_t over = static_cast<uint8_t>(larger(strongest, tolerance) - tolerance);
        const uint8_t weight = over < kRamp ? over : static_cast<uint8_t>(kRamp);
        const uint8_t still = static_cast<uint8_t>(kRamp - weight);
        const uint16_t sum =
            static_cast<uint16_t>(self[i] * still + mean(above[i], below[i]) * weight + kRamp / 2);
        to[i] = static_cast<uint8_t>(sum / kRamp);
    }
}

/// The kernels for this processor.
struct Kernels {
    decltype(&meanLineBody) meanLine;
    decltype(&measureMotionBody) measureMotion;
    decltype(&mixBody) mix;
};

void meanLine(const uint8_t* above, const uint8_t* below, uint8_t* to, size_t bytes)
{
    meanLineBody(above, below, to, bytes);
}

void measureMotion(const Neighbours& now, const Neighbours& before, uint8_t* motion, size_t bytes)
{
    measureMotionBody(now, before, motion, bytes);
}

void mix(const Neighbours& now, const MotionAround& motion, uint8_t tolerance, uint8_t* to, size_t bytes)
{
    mixBody(now, motion, tolerance, to, bytes);
}

VBOARD_WIDE void wideMeanLine(const uint8_t* above, const uint8_t* below, uint8_t* to, size_t bytes)
{
    meanLineBody(above, below, to, bytes);
}

VBOARD_WIDE void wideMeasureMotion(const Neighbours& now, const Neighbours& before, uint8_t* motion,
                                   size_t bytes)
{
    measureMotionBody(now, before, motion, bytes);
}

VBOARD_WIDE void wideMix(const Neighbours& now, const MotionAround& motion, uint8_t tolerance, uint8_t* to,
                         size_t bytes)
{
    mixBody(now, motion, tolerance, to, bytes);
}

const Kernels& kernels()
{
    static constexpr Kernels kUsual{meanLine, measureMotion, mix};
    static constexpr Kernels kWide{wideMeanLine, wideMeasureMotion, wideMix};
    return wideVectors() ? kWide : kUsual;
}

Neighbours neighbours(const Plane& plane, size_t line)
{
    // The first and the last line have a neighbour on one side only: it counts twice.
    const size_t above = line > 0 ? line - 1 : line + 1;
    const size_t below = line + 1 < plane.lines ? line + 1 : line - 1;
    return {plane.line(line), plane.line(above), plane.line(below)};
}

}  // namespace

void Deinterlacer::run(const PictureView& now, const PictureView* previous, FieldOrder order,
                       uint8_t tolerance, const PictureView& to)
{
    for (size_t index = 0; index < now.format->planeCount; ++index) {
        const Plane* before = previous == nullptr ? nullptr : &previous->planes[index];
        runPlane(now.planes[index], before, order, tolerance, to.planes[index]);
    }
}

/// Room for the motion of one line, with one sample of no motion on either side so that the ends need no
/// care.
uint8_t* Deinterlacer::motionLine(const Plane& plane)
{
    const size_t padded = plane.lineBytes + 2 * plane.sampleBytes;
    if (motion_.size() < padded) {
        motion_.resize(padded);
    }
    uint8_t* const line = motion_.data() + plane.sampleBytes;
    std::memset(motion_.data(), 0, plane.sampleBytes);
    std::memset(line + plane.lineBytes, 0, plane.sampleBytes);
    return line;
}

void Deinterlacer::runPlane(const Plane& now, const Plane* previous, FieldOrder order, uint8_t tolerance,
                            const Plane& to)
{
    const Kernels& use = kernels();
    uint8_t* const motion = motionLine(now);
    const size_t keptField = order == FieldOrder::kTopFirst ? 0 : 1;
    for (size_t line = 0; line < now.lines; ++line) {
        const bool kept = (now.firstLine + line) % 2 == keptField;
        if (kept || now.lines == 1) {
            std::memcpy(to.line(line), now.line(line), now.lineBytes);
            continue;
        }
        const Neighbours around = neighbours(now, line);
        if (previous == nullptr) {
            use.meanLine(around.above, around.below, to.line(line), now.lineBytes);
            continue;
        }
        use.measureMotion(around, neighbours(*previous, line), motion, now.lineBytes);
        use.mix(around, {motion - now.sampleBytes, motion, motion + now.sampleBytes}, tolerance,
                to.line(line), now.lineBytes);
    }
}

}  // namespace board
