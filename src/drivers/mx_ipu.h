#pragma once

#include <sys/types.h>

#include <cstddef>

#include "drivers/ipu.h"
#include "lib/buffer.h"

/// The image processing unit: contiguous memory that every device can address, and copies between such memory
/// that scale, convert, crop and de-interlace.
///
/// Threads:  main thread only. A task is done when run() returns, so its output may be read at once.
/// Lifetime: setup() opens the node, once; the destructor closes it. Buffers are the callers': each alloc()
///           needs its free() before the node closes.
/// Errors:   false, without a message: the caller knows what the copy or the buffer was for.
/// Units:    pixels, bytes, physical addresses; formats are V4L2 four-character codes.
class mx_ipu {
public:
    /// A copy of a whole picture into a rectangle of another one; the rest of that one stays as it is.
    struct IPU_COPY {
        struct {
            int width, height;
            int format;
        } src;
        struct {
            int maxWidth, maxHeight;  ///< the whole destination picture
            int width, height;        ///< the rectangle that is written
            int format;
            int x, y;  ///< the rectangle's top left corner
        } dest;
    };

    mx_ipu() = default;
    ~mx_ipu();

    mx_ipu(const mx_ipu&) = delete;
    mx_ipu& operator=(const mx_ipu&) = delete;
    mx_ipu(mx_ipu&&) = delete;
    mx_ipu& operator=(mx_ipu&&) = delete;

    /// Opens the node and keeps the de-interlacer's settings for all tasks: `en` on or off, the motion
    /// `level` (0 to 2, more counts as 2; 2 needs no previous frame), the field order `tb`. False when the
    /// node cannot be opened.
    bool setup(const char* path, bool en, u_int8_t level, bool tb);

    /// Fills a whole task. `inPaddrN` is the previous input frame; it is not used at motion level 2.
    void setup_copy(ipu_task& task, const IPU_COPY& copy, size_t inPaddr, size_t inPaddrN,
                    size_t outPaddr) const;

    /// Moves the destination rectangle of a task that setup_copy() filled.
    void change_copy(ipu_task& task, const IPU_COPY& copy) const;

    /// Gives a task the buffers of this frame.
    void change_buffers(ipu_task& task, size_t inPaddr, size_t inPaddrN, size_t outPaddr) const;

    /// Runs a task to its end.
    bool run(ipu_task& task);

    /// Allocates `size` bytes, rounded up to whole pages, and maps them. After a failure nothing is to be
    /// freed: `length` and `offset` hold the rounded size and `start` is null; a size below 0, or a device
    /// that is not open, leaves the record as it was.
    bool alloc(buffer& b, int size);

    /// Unmaps and releases. `offset` and `length` keep their values.
    bool free(buffer& b);

private:
    bool allocatePhysical(buffer& b);
    bool map(buffer& b);
    bool call(unsigned long request, void* argument);

    int fd = -1;
    u_int8_t buffAllocNum = 1;  // counts successful allocations, for information
    struct {
        bool en;
        bool tb;
        u_int8_t level;
    } vdi = {};
};
