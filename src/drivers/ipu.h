#pragma once

#include <linux/ioctl.h>

#include <cstddef>
#include <cstdint>

/// The interface of the image processing unit's device node. The layout is the kernel's: every record crosses
/// the boundary as it is, and it is the same on the panel and on a PC because no member is a pointer or a
/// long.
///
/// Units: pixels; formats are V4L2 four-character codes; addresses physical.

struct ipu_pos {
    uint32_t x;
    uint32_t y;
};

struct ipu_crop {
    ipu_pos pos;
    uint32_t w;
    uint32_t h;
};

struct ipu_deinterlace {
    bool enable;
    uint8_t motion;  ///< 0 and 1 look at the previous field too; 2, high motion, at the current one only
    uint8_t field_fmt;
};

struct ipu_input {
    uint32_t width;
    uint32_t height;
    uint32_t format;
    ipu_crop crop;
    int32_t paddr;
    ipu_deinterlace deinterlace;
    int32_t paddr_n;  ///< the other frame that de-interlacing at motion 0 and 1 looks at
};

struct ipu_alpha {
    uint8_t mode;
    uint8_t gvalue;
    int32_t loc_alp_paddr;
};

struct ipu_colorkey {
    bool enable;
    uint32_t value;
};

struct ipu_overlay {
    uint32_t width;
    uint32_t height;
    uint32_t format;
    ipu_crop crop;
    ipu_alpha alpha;
    ipu_colorkey colorkey;
    int32_t paddr;
};

struct ipu_output {
    uint32_t width;
    uint32_t height;
    uint32_t format;
    uint8_t rotate;
    ipu_crop crop;
    int32_t paddr;
};

struct ipu_task {
    ipu_input input;
    ipu_output output;
    bool overlay_en;
    ipu_overlay overlay;
    uint8_t priority;
    uint8_t task_id;
    int32_t timeout;
};

/// Runs a task and returns when it is done.
#define IPU_QUEUE_TASK _IOW('I', 0x2, struct ipu_task)
/// Takes a size in bytes and gives the physical address in the same word.
#define IPU_ALLOC _IOWR('I', 0x3, int)
/// Takes the physical address that IPU_ALLOC gave.
#define IPU_FREE _IOW('I', 0x4, int)

// NOLINTBEGIN(readability-magic-numbers): the kernel's figures, written out to be compared with
static_assert(sizeof(ipu_task) == 136, "the request number carries this size");
static_assert(offsetof(ipu_task, output) == 40 && offsetof(ipu_task, overlay) == 80, "the kernel's layout");
static_assert(IPU_QUEUE_TASK == 0x40884902 && IPU_ALLOC == 0xC0044903 && IPU_FREE == 0x40044904,
              "the kernel's request numbers");
// NOLINTEND(readability-magic-numbers)
