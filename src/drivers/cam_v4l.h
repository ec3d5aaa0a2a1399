#pragma once

#include <linux/videodev2.h>
#include <sys/types.h>

#include <array>
#include <cstddef>

#include "drivers/mx_ipu.h"
#include "lib/buffer.h"

/// One V4L2 capture channel, streaming into four buffers that the IPU can read by physical address.
///
/// Threads:  main thread only; dequeue_buffer() blocks for the next frame and so paces the frame loop.
/// Lifetime: setup() opens the node, once; start() allocates and streams; the destructor undoes both. The
///           CAM_INFO and the IPU in it are the caller's and must outlive this object.
/// Errors:   false. Opening, the picture format and the start say on standard output which step failed; all
/// else
///           is silent. Some failed steps of setup() leave the node open on purpose; the destructor closes
///           it.
/// Units:    widths and heights in pixels, sizes in bytes, addresses physical.
class cam_v4l {
public:
    static constexpr unsigned kBuffers = 4;

    /// A channel's settings, and what the driver made of them.
    struct CAM_INFO {
        int format;         ///< wanted V4L2 four-character code
        int memType;        ///< V4L2 memory type; setup() makes it user pointer
        mx_ipu* ipu;        ///< where the capture buffers come from
        int width, height;  ///< by setup(): what the driver delivers
        int framesize;      ///< by setup()
    };

    cam_v4l() = default;
    ~cam_v4l();

    cam_v4l(const cam_v4l&) = delete;
    cam_v4l& operator=(const cam_v4l&) = delete;
    cam_v4l(cam_v4l&&) = delete;
    cam_v4l& operator=(cam_v4l&&) = delete;

    /// Opens and configures the node. False also when the driver grants a single buffer only.
    bool setup(const char* path, CAM_INFO& channelInfo);

    /// Allocates the buffers, queues them and starts streaming. Buffers of a failed start stay until
    /// destruction.
    bool start();

    /// Stops streaming; the buffers stay. True at once on a channel that was never started.
    bool off();

    /// Queues all buffers and streams again after off(). True at once on a channel that was never started.
    bool on();

    /// Selects which two of the camera inputs (1 to 4) the two capture nodes of a Solo/DualLite deliver.
    bool changeChannels(u_int8_t first, u_int8_t second);

    /// Waits for the next frame, however long. False when the driver fails or names a buffer that does not
    /// exist, and when a second signal comes during the wait.
    bool dequeue_buffer();

    /// Gives the frame of the last dequeue_buffer() back to the driver.
    bool queue_buffer();

    /// The last frame was not given back: the driver has a buffer less until queue_buffer().
    bool holdsFrame() const { return holdsFrame_; }

    /// The newest frame.
    size_t getBufferOffset() const { return buffers[data.currentBuffer].offset; }

    /// The frame before it, which de-interlacing looks at.
    size_t getLastBufferOffset() const { return buffers[data.lastBuffer].offset; }

private:
    bool openNode(const char* path);
    void closeNode();
    bool checkCapabilities(const char* path);
    bool selectInput();
    bool keepDefaultWindow();
    bool setFrameRate();
    bool setFormat(const char* path, v4l2_format& format);
    bool readBackFormat(v4l2_format& format);
    bool computeFrameSize();
    bool requestBuffers(const char* path);

    bool allocateBuffers();
    bool queryBuffers();
    bool mapBuffer(buffer& target, const v4l2_buffer& record) const;
    bool queueAllBuffers() const;
    bool streamOn() const;
    bool streamOff() const;
    bool awaitFrame();
    void mem_free();

    bool usesUserPointers() const;
    v4l2_buffer bufferRecord(unsigned index) const;
    bool call(unsigned long request, void* argument) const;

    int fd = -1;
    CAM_INFO* info = nullptr;
    bool running = false;
    struct {
        u_int8_t currentBuffer;  // dequeued last
        u_int8_t lastBuffer;     // the one before it
    } data = {};
    v4l2_buffer capture_buf = {};  // as the last dequeue left it
    std::array<buffer, kBuffers> buffers = {};
    bool holdsFrame_ = false;
};
