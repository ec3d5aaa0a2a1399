#include "drivers/cam_v4l.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <limits>
#include <optional>

#include "lib/interrupted.h"

namespace {

constexpr int kBoardInput = 1;                                      // the capture driver's camera input
constexpr uint32_t kInputPairControl = V4L2_CID_PRIVATE_BASE + 10;  // the capture driver's own
constexpr uint32_t kNeededCapabilities = V4L2_CAP_VIDEO_CAPTURE | V4L2_CAP_STREAMING;
constexpr int kUnfilledByte = 0xFF;
constexpr unsigned kInputMask = 0xFF;
constexpr unsigned kSecondInputShift = 8;

unsigned wireInput(u_int8_t channel)
{
    return (channel - 1U) & kInputMask;
}

/// Drivers that leave the line or picture size open are taken at two bytes a pixel.
void completeSizes(v4l2_pix_format& pix)
{
    pix.bytesperline = std::max(pix.bytesperline, pix.width * 2);
    pix.sizeimage = std::max(pix.sizeimage, pix.bytesperline * pix.height);
}

/// Bytes of one frame; nothing for a format that the pipeline does not know, or a size that no buffer can
/// have.
std::optional<int> bytesOfFrame(int format, int width, int height)
{
    const int64_t pixels = int64_t{width} * height;
    if (pixels > std::numeric_limits<int>::max() / 3) {
        return std::nullopt;
    }
    const int bytes = static_cast<int>(pixels);
    switch (static_cast<uint32_t>(format)) {
        case V4L2_PIX_FMT_YUV420:
        case V4L2_PIX_FMT_NV12:
            return bytes * 3 / 2;
        case V4L2_PIX_FMT_RGB565:
        case V4L2_PIX_FMT_YUYV:
        case V4L2_PIX_FMT_UYVY:
            return bytes * 2;
        default:
            return std::nullopt;
    }
}

}  // namespace

cam_v4l::~cam_v4l()
{
    if (fd == -1) {
        return;
    }
    if (!streamOff()) {
        std::puts("Stream off failed");
    }
    mem_free();
    closeNode();
}

bool cam_v4l::setup(const char* path, CAM_INFO& channelInfo)
{
    info = &channelInfo;
    info->memType = V4L2_MEMORY_USERPTR;
    v4l2_format format = {};
    return openNode(path) && checkCapabilities(path) && selectInput() && keepDefaultWindow() &&
           setFrameRate() && setFormat(path, format) && readBackFormat(format) && computeFrameSize() &&
           requestBuffers(path);
}

bool cam_v4l::openNode(const char* path)
{
    fd = retryInterrupted([&] { return open(path, O_RDWR | O_CLOEXEC); });
    if (fd == -1) {
        std::printf("Unable to open %s\n", path);
    }
    return fd != -1;
}

void cam_v4l::closeNode()
{
    close(fd);
    fd = -1;
}

bool cam_v4l::checkCapabilities(const char* path)
{
    v4l2_capability capability = {};
    if (!call(VIDIOC_QUERYCAP, &capability)) {
        std::printf("%s VIDIOC_QUERYCAP Error %d", path, errno);
        closeNode();
        return false;
    }
    if ((capability.capabilities & kNeededCapabilities) != kNeededCapabilities) {
        closeNode();
        return false;
    }
    return true;
}

bool cam_v4l::selectInput()
{
    int input = kBoardInput;
    if (!call(VIDIOC_S_INPUT, &input)) {
        closeNode();
        return false;
    }
    return true;
}

/// The board's drivers reject cropping and must be left at their default window: a rectangle is set only
/// where the window cannot even be asked for. The node stays open when that is refused.
bool cam_v4l::keepDefaultWindow()
{
    v4l2_cropcap capability = {};
    capability.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    if (call(VIDIOC_CROPCAP, &capability)) {
        return true;
    }
    v4l2_crop crop = {};
    crop.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    crop.c = capability.defrect;
    return call(VIDIOC_S_CROP, &crop) || errno != EINVAL;
}

/// Only the numerator is given: with a denominator of 0 the driver keeps the rate of the signal.
bool cam_v4l::setFrameRate()
{
    v4l2_streamparm parameters = {};
    parameters.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    parameters.parm.capture.timeperframe.numerator = 1;
    if (!call(VIDIOC_S_PARM, &parameters)) {
        std::puts("VIDIOC_S_PARM failed");
        closeNode();
        return false;
    }
    return true;
}

/// Width and height are left at 0, for the driver to choose. The node stays open when the format is refused.
bool cam_v4l::setFormat(const char* path, v4l2_format& format)
{
    format.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    format.fmt.pix.pixelformat = static_cast<uint32_t>(info->format);
    if (!call(VIDIOC_S_FMT, &format)) {
        std::printf("%s iformat not supported \n", path);
        return false;
    }
    completeSizes(format.fmt.pix);
    return true;
}

bool cam_v4l::readBackFormat(v4l2_format& format)
{
    if (!call(VIDIOC_G_FMT, &format)) {
        closeNode();
        return false;
    }
    info->width = static_cast<int>(format.fmt.pix.width);
    info->height = static_cast<int>(format.fmt.pix.height);
    return true;
}

bool cam_v4l::computeFrameSize()
{
    const auto bytes = bytesOfFrame(info->format, info->width, info->height);
    if (!bytes) {
        std::puts("Unsupported format for camera.");
        return false;
    }
    info->framesize = *bytes;
    return true;
}

bool cam_v4l::requestBuffers(const char* path)
{
    v4l2_requestbuffers request = {};
    request.count = kBuffers;
    request.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    request.memory = static_cast<uint32_t>(info->memType);
    if (!call(VIDIOC_REQBUFS, &request)) {
        std::printf("%s VIDEOC_REQBUFS Error %d", path, errno);
        return false;
    }
    return request.count > 1;  // with one buffer there is no frame to look back at
}

bool cam_v4l::start()
{
    if (fd == -1 || !allocateBuffers() || !queryBuffers() || !queueAllBuffers() || !streamOn()) {
        return false;
    }
    running = true;
    data.currentBuffer = 0;
    data.lastBuffer = kBuffers - 1;
    return true;
}

bool cam_v4l::allocateBuffers()
{
    return !usesUserPointers() || std::all_of(buffers.begin(), buffers.end(), [this](buffer& target) {
        const bool done = info->ipu->alloc(target, info->framesize);
        if (!done) {
            target = {};  // what stands there is no address that could be given back
        }
        return done;
    });
}

/// Tells the driver each buffer's physical address, or learns where its own buffers lie.
bool cam_v4l::queryBuffers()
{
    for (unsigned index = 0; index < kBuffers; ++index) {
        buffer& target = buffers[index];
        v4l2_buffer record = bufferRecord(index);
        if (usesUserPointers()) {
            record.m.userptr = target.offset;
            record.length = static_cast<uint32_t>(target.length);
        }
        if (!call(VIDIOC_QUERYBUF, &record)) {
            std::puts("VIDIOC_QUERYBUF error");
            return false;
        }
        if (info->memType == V4L2_MEMORY_MMAP && !mapBuffer(target, record)) {
            return false;
        }
    }
    return true;
}

bool cam_v4l::mapBuffer(buffer& target, const v4l2_buffer& record) const
{
    target.offset = record.m.offset;
    target.length = record.length;
    void* start = mmap(nullptr, target.length, PROT_READ | PROT_WRITE, MAP_SHARED, fd,
                       static_cast<off_t>(target.offset));
    if (start == MAP_FAILED) {
        return false;
    }
    target.start = start;
    std::memset(target.start, kUnfilledByte, target.length);
    return true;
}

bool cam_v4l::queueAllBuffers() const
{
    for (unsigned index = 0; index < kBuffers; ++index) {
        v4l2_buffer record = bufferRecord(index);
        if (usesUserPointers()) {
            record.m.userptr = reinterpret_cast<unsigned long>(buffers[index].start);
        } else {
            record.m.offset = static_cast<uint32_t>(buffers[index].offset);
        }
        record.length = static_cast<uint32_t>(buffers[index].length);
        if (!call(VIDIOC_QBUF, &record)) {
            std::puts("VIDIOC_QBUF error");
            return false;
        }
    }
    return true;
}

bool cam_v4l::streamOn() const
{
    int type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    if (!call(VIDIOC_STREAMON, &type)) {
        std::puts("VIDIOC_STREAMON error");
        return false;
    }
    return true;
}

bool cam_v4l::streamOff() const
{
    int type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    return call(VIDIOC_STREAMOFF, &type);
}

bool cam_v4l::off()
{
    const bool done = !running || streamOff();
    holdsFrame_ = holdsFrame_ && !done;  // the end of streaming takes every buffer out of the driver's queue
    return done;
}

bool cam_v4l::on()
{
    return !running || (queueAllBuffers() && streamOn());
}

bool cam_v4l::changeChannels(u_int8_t first, u_int8_t second)
{
    v4l2_control control = {};
    control.id = kInputPairControl;
    control.value = static_cast<int>(wireInput(second) << kSecondInputShift | wireInput(first));
    return call(VIDIOC_S_CTRL, &control);
}

bool cam_v4l::dequeue_buffer()
{
    if (fd == -1) {
        return false;
    }
    if (!awaitFrame() || capture_buf.index >= kBuffers) {
        return false;
    }
    holdsFrame_ = true;
    data.currentBuffer = static_cast<u_int8_t>(capture_buf.index);
    data.lastBuffer = static_cast<u_int8_t>((capture_buf.index + kBuffers - 1) % kBuffers);
    return true;
}

/// A camera may never deliver again, so a wait is taken up after one signal only: a frame that is due comes
/// before the second.
bool cam_v4l::awaitFrame()
{
    constexpr int kWaits = 2;
    int result = -1;
    for (int wait = 0; wait < kWaits && result == -1 && (wait == 0 || errno == EINTR); ++wait) {
        capture_buf = bufferRecord(0);
        result = ioctl(fd, VIDIOC_DQBUF, &capture_buf);
    }
    return result != -1;
}

bool cam_v4l::queue_buffer()
{
    const bool done = call(VIDIOC_QBUF, &capture_buf);
    holdsFrame_ = holdsFrame_ && !done;
    return done;
}

void cam_v4l::mem_free()
{
    for (buffer& target : buffers) {
        if (usesUserPointers()) {
            // NOLINTNEXTLINE(clang-analyzer-unix.Malloc): the free() below is the IPU's, not the C library's
            if (target.offset != 0) {
                info->ipu->free(target);  // nothing is left to be done when the driver refuses
            }
        } else if (target.start != nullptr) {
            munmap(target.start, target.length);
        }
    }
}

bool cam_v4l::usesUserPointers() const
{
    return info->memType == V4L2_MEMORY_USERPTR;
}

v4l2_buffer cam_v4l::bufferRecord(unsigned index) const
{
    v4l2_buffer record = {};
    record.index = index;
    record.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    record.memory = static_cast<uint32_t>(info->memType);
    return record;
}

bool cam_v4l::call(unsigned long request, void* argument) const
{
    return retryInterrupted([&] { return ioctl(fd, request, argument); }) != -1;
}
