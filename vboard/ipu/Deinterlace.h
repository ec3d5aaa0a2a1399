#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "ipu/Picture.h"

namespace board {

/// Which field of a frame was taken first: the even lines (top) or the odd ones.
enum class FieldOrder : uint8_t { kTopFirst, kBottomFirst };

/// Makes one progressive picture of a frame of two fields.
///
/// The lines of the field that was taken first stay as they are; so the picture shows one instant. Each
/// sample of the other lines is a mix of itself (right where nothing moves) and of the mean of the lines
/// around it (right where something does). Motion is how much the sample, its two neighbours beside it and
/// the lines around it differ from the previous frame: up to the tolerance it counts as noise, above it the
/// mix goes over to the mean within 16 steps of brightness. A picture that stands still comes through bit for
/// bit.
///
/// Works on every YUV format: the components of a plane are treated alike.
/// Threads: one at a time.
/// Memory:  one line, kept.
class Deinterlacer {
public:
    /// `now`, `previous` and `to` have one format and size; `to` is other memory. Without `previous` the
    /// second field is made from the first alone.
    void run(const PictureView& now, const PictureView* previous, FieldOrder order, uint8_t tolerance,
             const PictureView& to);

private:
    void runPlane(const Plane& now, const Plane* previous, FieldOrder order, uint8_t tolerance,
                  const Plane& to);
    uint8_t* motionLine(const Plane& plane);

    std::vector<uint8_t> motion_;
};

}  // namespace board
