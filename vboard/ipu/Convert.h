#pragma once

#include "ipu/Bilinear.h"
#include "ipu/Picture.h"

namespace board {

/// Copies a picture into another one of any size and format.
///
/// Between different formats the way leads over YU12; colours follow ITU-R BT.601 in video range. Scaling is
/// bilinear, with averaging where a picture is made smaller than half.
///
/// Threads: one at a time.
/// Memory:  two intermediate pictures, kept.
/// Errors:  false when there is no memory.
class Converter {
public:
    bool run(const PictureView& from, const PictureView& to);

private:
    bool scaleNv12(const PictureView& from, const PictureView& to);
    bool convert(const PictureView& from, const PictureView& to);

    BilinearScaler bilinear_;
    ScratchPicture unpacked_, scaled_, pivot_;
};

}  // namespace board
