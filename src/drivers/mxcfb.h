#pragma once

#include <linux/ioctl.h>

#include <cstdint>

/// What the i.MX framebuffer driver adds to <linux/fb.h>. The layout is the kernel's.

/// How the overlay shows above the background: one alpha for the whole plane.
struct mxcfb_gbl_alpha {
    int enable;
    int alpha;  ///< 0: the background is transparent, 255: opaque
};

/// Where the overlay's top left corner is on the panel, in pixels.
struct mxcfb_pos {
    uint16_t x;
    uint16_t y;
};

#define MXCFB_SET_GBL_ALPHA _IOW('F', 0x21, struct mxcfb_gbl_alpha)
#define MXCFB_SET_OVERLAY_POS _IOWR('F', 0x24, struct mxcfb_pos)

// NOLINTBEGIN(readability-magic-numbers): the kernel's figures, written out to be compared with
static_assert(sizeof(mxcfb_gbl_alpha) == 8 && sizeof(mxcfb_pos) == 4,
              "the request numbers carry these sizes");
static_assert(MXCFB_SET_GBL_ALPHA == 0x40084621 && MXCFB_SET_OVERLAY_POS == 0xC0044624,
              "the kernel's request numbers");
// NOLINTEND(readability-magic-numbers)
