#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "ipu/Picture.h"

namespace board {

/// Scales planar pictures, samples of one or two bytes, by blending the two nearest lines and columns.
///
/// It covers what libyuv does least well: enlarging, and reducing to no less than a half, of NV12 in place,
/// where the library would have the chroma taken apart and put together again and filters two columns at a
/// time. What it computes is the same: an enlarged picture's outermost samples are the source's, a reduced
/// one's are centred.
///
/// Threads: one at a time.
/// Memory:  two lines, and a table for each width that was asked for last.
class BilinearScaler {
public:
    /// Whether run() can do it, and does it faster than libyuv on this processor.
    static bool takes(const PictureView& from, const PictureView& to);

    /// The pictures have one format, and takes() was true of them.
    void run(const PictureView& from, const PictureView& to);

private:
    static constexpr size_t kGroupBytes = 32;  // of the target, made in one go
    static constexpr size_t kLaneBytes = 8;    // of the target, from one stretch of the source
    static constexpr size_t kLanes = kGroupBytes / kLaneBytes;
    static constexpr size_t kWindowBytes = 16;

    /// How a group of the target's bytes comes from the source's line: the start of the window of each
    /// eight, which two bytes of the window each target byte lies between, and their shares of 128.
    struct Group {
        alignas(kGroupBytes) std::array<std::array<uint8_t, kWindowBytes>, kLanes> picks;
        alignas(kGroupBytes) std::array<std::array<uint8_t, kWindowBytes>, kLanes> shares;
        std::array<uint32_t, kLanes> windows;
    };
    struct Columns {
        size_t fromSamples = 0, toSamples = 0, sampleBytes = 0;
        std::vector<Group> groups;
    };

    static void fill(Columns& columns, const Plane& from, const Plane& to);
    static void filterLine(const Columns& columns, const uint8_t* from, uint8_t* to, size_t bytes);
    void runPlane(const Plane& from, const Plane& to, const Columns& columns);
    const Columns& columnsFor(size_t index, const Plane& from, const Plane& to);

    std::array<Columns, 3> columns_;
    std::vector<uint8_t> blended_;
};

}  // namespace board
