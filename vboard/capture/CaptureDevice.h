#pragma once

#include <memory>

#include "board/Device.h"

namespace board {

/// The capture device /dev/video<index> (0 to 3): V4L2 streaming of 720x480 NV12, in the driver's own buffers
/// or in memory that the program names by physical address.
///
/// A dual-lite board has only devices 0 and 1; opening another one fails with ENOENT.
///
/// Pictures:  on a quad, device i shows camera input i; on a dual-lite the inputs of State::inputPair, which
///            control 0x0800000A of either device changes.
/// Addresses: as this board's driver has it, VIDIOC_QUERYBUF with user-pointer memory tells the driver the
///            physical address of a buffer, and VIDIOC_QBUF then names it by index. The address is checked
///            when it is told and again when a frame is written to it.
/// Frames:    see CaptureStream.
/// Threads:   any.
/// Not done:  handles are not told apart, so buffers are not an open handle's own, and a handle opened with
///            O_NONBLOCK blocks.
std::unique_ptr<Device> makeCaptureDevice(Board& board, unsigned index);

}  // namespace board
