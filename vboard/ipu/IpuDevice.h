#pragma once

#include <memory>

#include "board/Device.h"

namespace board {

/// The image processing unit, "/dev/mxc_ipu": contiguous memory and copy tasks.
///
/// IPU_ALLOC takes the size and IPU_FREE the address in the word behind their argument; a handle of the
/// device maps the memory at its physical address. IPU_QUEUE_TASK copies the input's rectangle into the
/// output's rectangle, scaled, converted and de-interlaced as the task says, and returns when that is done.
///
/// Refused with EINVAL: formats other than the five of PixelFormat.h, empty pictures or ones above 4096
/// pixels, odd sizes of subsampled pictures, rectangles that leave their picture, reduction to less than an
/// eighth, rotation, overlay pictures, de-interlacing of RGB. Refused with EFAULT: a picture that does not
/// lie inside one live allocation or the overlay's memory.
///
/// Threads: any; tasks run one at a time, as in the unit.
std::unique_ptr<Device> makeIpuDevice(Board& board);

}  // namespace board
