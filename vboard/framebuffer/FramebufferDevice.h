#pragma once

#include <memory>

#include "board/Device.h"

namespace board {

/// One plane of the panel: "/dev/fb0", the background, or "/dev/fb1", the overlay.
///
/// A mode whose `nonstd` is a four-character code of the hardware decides its own bits a pixel; with 0 it has
/// 16, 24 or 32. `line_length` is the bytes of one line of all planes together (so 1200 for 800 pixels of
/// NV12): page n of a stacked mode starts at its `yoffset` times that. When a mode needs more memory than the
/// plane has, the overlay gets a new, cleared one at another physical address, so `smem_start` read before
/// the mode is set is stale.
///
/// Refused with EINVAL: modes without size, larger than the panel or than their own virtual size; panning
/// outside the virtual height, to the side, or on a blanked plane; overlay positions that leave the panel;
/// positions of the background; opacities above 255. With ENOMEM: modes above the 16 MB of a plane.
///
/// Threads: any; what a mode consists of changes under BoardLock.
std::unique_ptr<Device> makeFramebufferDevice(Board& board, unsigned index);

/// Puts both planes in the state the panel boots with: the background shown and painted, covering the
/// overlay; the overlay small and blanked.
void initFramebuffers(Board& board);

/// Bytes from one line of a mode to the next, all planes together.
uint32_t lineBytes(const fb_var_screeninfo& mode);

}  // namespace board
