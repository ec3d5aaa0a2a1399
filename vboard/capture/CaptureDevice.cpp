#include "capture/CaptureDevice.h"

#include <linux/videodev2.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <mutex>

#include "capture/CaptureStream.h"
#include "capture/PictureSource.h"
#include "faults/FaultPlan.h"

namespace board {
namespace {

struct Names {
    const char* name;
    const char* path;
};
constexpr std::array<Names, kCameras> kNames{{{"video0", "/dev/video0"},
                                              {"video1", "/dev/video1"},
                                              {"video2", "/dev/video2"},
                                              {"video3", "/dev/video3"}}};

constexpr unsigned kDualLiteDevices = 2;
constexpr uint32_t kInputs = 2;  // of each device, both the camera
constexpr uint32_t kInputPairControl = 0x0800000A;
constexpr uint32_t kNoInput = 0xFF;
constexpr unsigned kByteBits = 8;
constexpr uint32_t kMilli = 1000;
constexpr v4l2_std_id kStandard = V4L2_STD_NTSC_M;

bool isCapture(uint32_t type)
{
    return type == V4L2_BUF_TYPE_VIDEO_CAPTURE;
}

template <size_t Size>
void copyText(__u8 (&target)[Size], const char* text)
{
    std::memcpy(target, text, std::min(std::strlen(text) + 1, Size));
}

void fillPictureFormat(v4l2_pix_format& picture)
{
    picture = {};
    picture.width = kPictureWidth;
    picture.height = kPictureHeight;
    picture.pixelformat = V4L2_PIX_FMT_NV12;
    picture.field = V4L2_FIELD_INTERLACED;
    picture.bytesperline = kPictureWidth;
    picture.sizeimage = kPictureBytes;
    picture.colorspace = V4L2_COLORSPACE_SMPTE170M;
}

class CaptureDevice final : public Device {
public:
    CaptureDevice(Board& board, unsigned index)
        : Device(board, kNames[index].name, kNames[index].path), index_(index), stream_(board, name(), index)
    {
    }

    int open() override;
    void close() override;
    const char* backingFile() const override { return "memory"; }

protected:
    Table requests() const override;
    bool befall(const FaultAction& fault) override { return stream_.befall(fault.kind); }
    bool isPresent() const override { return stream_.isPresent(); }

private:
    // What the device is and can be set to.
    int queryCapabilities(v4l2_capability& record);
    int enumerateInput(v4l2_input& record);
    int setInput(int& input);
    int getInput(int& input);
    int cropCapabilities(v4l2_cropcap& record);
    int setCrop(const v4l2_crop& record);
    int setParameters(v4l2_streamparm& record);
    int enumerateFormat(v4l2_fmtdesc& record);
    int setFormat(v4l2_format& record);
    int tryFormat(v4l2_format& record);
    int getFormat(v4l2_format& record);
    int setControl(v4l2_control& record);
    int getControl(v4l2_control& record);
    int setStandard(const v4l2_std_id& standard);
    int getStandard(v4l2_std_id& standard);
    int queryStandard(v4l2_std_id& standard);

    // Buffers and streaming are the stream's affair.
    int requestBuffers(v4l2_requestbuffers& record) { return stream_.requestBuffers(record); }
    int queryBuffer(v4l2_buffer& record) { return stream_.queryBuffer(record); }
    int queueBuffer(v4l2_buffer& record) { return stream_.queueBuffer(record); }
    int dequeueBuffer(v4l2_buffer& record) { return stream_.dequeueBuffer(record); }
    int streamOn(const int& type) { return stream_.streamOn(type); }
    int streamOff(const int& type) { return stream_.streamOff(type); }

    bool isDualLite() const { return board().state().cpu == Cpu::kDualLite; }

    const unsigned index_;
    CaptureStream stream_;

    std::mutex lock_;  // all below
    unsigned handles_ = 0;
    int input_ = 0;
};

int CaptureDevice::open()
{
    if (isDualLite() && index_ >= kDualLiteDevices) {
        return -ENOENT;
    }
    if (!isPresent()) {
        return -ENODEV;
    }
    const std::lock_guard<std::mutex> guard(lock_);
    ++handles_;
    return 0;
}

void CaptureDevice::close()
{
    const std::lock_guard<std::mutex> guard(lock_);
    if (handles_ > 0 && --handles_ == 0) {
        stream_.end();
    }
}

int CaptureDevice::queryCapabilities(v4l2_capability& record)
{
    record = {};
    copyText(record.driver, "vboard");
    copyText(record.card, "Virtual board camera");
    std::snprintf(reinterpret_cast<char*>(record.bus_info), sizeof(record.bus_info), "platform:%s", name());
    record.version = 0x00010000;  // 0.1.0, as the kernel writes it
    record.device_caps = V4L2_CAP_VIDEO_CAPTURE | V4L2_CAP_STREAMING;
    record.capabilities = record.device_caps | V4L2_CAP_DEVICE_CAPS;
    return 0;
}

int CaptureDevice::enumerateInput(v4l2_input& record)
{
    if (record.index >= kInputs) {
        return -EINVAL;
    }
    const uint32_t index = record.index;
    record = {};
    record.index = index;
    std::snprintf(reinterpret_cast<char*>(record.name), sizeof(record.name), "Camera path %u", index);
    record.type = V4L2_INPUT_TYPE_CAMERA;
    record.std = kStandard;
    record.status = stream_.hasSignal() ? 0 : V4L2_IN_ST_NO_SIGNAL | V4L2_IN_ST_NO_H_LOCK;
    return 0;
}

int CaptureDevice::setInput(int& input)
{
    if (input < 0 || static_cast<uint32_t>(input) >= kInputs) {
        return -EINVAL;
    }
    if (stream_.isStreaming()) {
        return -EBUSY;
    }
    const std::lock_guard<std::mutex> guard(lock_);
    input_ = input;
    return 0;
}

int CaptureDevice::getInput(int& input)
{
    const std::lock_guard<std::mutex> guard(lock_);
    input = input_;
    return 0;
}

int CaptureDevice::cropCapabilities(v4l2_cropcap& record)
{
    if (!isCapture(record.type)) {
        return -EINVAL;
    }
    record.bounds = {0, 0, kPictureWidth, kPictureHeight};
    record.defrect = record.bounds;
    record.pixelaspect = {1, 1};
    return 0;
}

int CaptureDevice::setCrop(const v4l2_crop& /*record*/)
{
    return refuse("VIDIOC_S_CROP", -EINVAL, "the window cannot be changed");
}

/// Answers both the setting and the asking: the rate is the cameras' own.
int CaptureDevice::setParameters(v4l2_streamparm& record)
{
    constexpr uint32_t kUnpacedRate = 30;
    if (!isCapture(record.type)) {
        return -EINVAL;
    }
    const uint32_t rateMilli = board().state().frameRateMilli;
    v4l2_captureparm& capture = record.parm.capture;
    capture = {};
    capture.capability = V4L2_CAP_TIMEPERFRAME;
    capture.timeperframe = {kMilli, rateMilli != 0 ? rateMilli : kUnpacedRate * kMilli};
    return 0;
}

int CaptureDevice::enumerateFormat(v4l2_fmtdesc& record)
{
    if (!isCapture(record.type) || record.index != 0) {
        return -EINVAL;
    }
    record.flags = 0;
    copyText(record.description, "Y/CbCr 4:2:0");
    record.pixelformat = V4L2_PIX_FMT_NV12;
    return 0;
}

int CaptureDevice::setFormat(v4l2_format& record)
{
    if (stream_.isStreaming() || stream_.hasBuffers()) {
        return refuse("VIDIOC_S_FMT", -EBUSY, "buffers are allocated");
    }
    return tryFormat(record);
}

int CaptureDevice::tryFormat(v4l2_format& record)
{
    if (!isCapture(record.type) || record.fmt.pix.pixelformat != V4L2_PIX_FMT_NV12) {
        return -EINVAL;
    }
    fillPictureFormat(record.fmt.pix);
    return 0;
}

int CaptureDevice::getFormat(v4l2_format& record)
{
    if (!isCapture(record.type)) {
        return -EINVAL;
    }
    fillPictureFormat(record.fmt.pix);
    return 0;
}

int CaptureDevice::setControl(v4l2_control& record)
{
    // On a quad each camera has its device, and the control is not there.
    if (record.id != kInputPairControl || !isDualLite()) {
        return refuse("VIDIOC_S_CTRL", -EINVAL, "unknown control");
    }
    const auto value = static_cast<uint32_t>(record.value);
    const uint32_t first = value & kNoInput;
    const uint32_t second = value >> kByteBits;
    const auto known = [](uint32_t input) { return input < kCameras || input == kNoInput; };
    if (!known(first) || !known(second)) {
        return refuse("VIDIOC_S_CTRL", -ERANGE, "no such input pair");
    }
    board().state().inputPair[0] = first;
    board().state().inputPair[1] = second;
    return 0;
}

int CaptureDevice::getControl(v4l2_control& record)
{
    if (record.id != kInputPairControl || !isDualLite()) {
        return -EINVAL;
    }
    const State& state = board().state();
    record.value = static_cast<int>((state.inputPair[1] << kByteBits) | state.inputPair[0]);
    return 0;
}

int CaptureDevice::setStandard(const v4l2_std_id& standard)
{
    return (standard & kStandard) != 0 ? 0 : -EINVAL;
}

int CaptureDevice::getStandard(v4l2_std_id& standard)
{
    standard = kStandard;
    return 0;
}

int CaptureDevice::queryStandard(v4l2_std_id& standard)
{
    standard = stream_.hasSignal() ? kStandard : V4L2_STD_UNKNOWN;
    return 0;
}

Device::Table CaptureDevice::requests() const
{
    static constexpr std::array kRequests{
        request<VIDIOC_QUERYCAP, &CaptureDevice::queryCapabilities>("VIDIOC_QUERYCAP"),
        request<VIDIOC_ENUMINPUT, &CaptureDevice::enumerateInput>("VIDIOC_ENUMINPUT"),
        request<VIDIOC_S_INPUT, &CaptureDevice::setInput>("VIDIOC_S_INPUT"),
        request<VIDIOC_G_INPUT, &CaptureDevice::getInput>("VIDIOC_G_INPUT"),
        request<VIDIOC_CROPCAP, &CaptureDevice::cropCapabilities>("VIDIOC_CROPCAP"),
        request<VIDIOC_S_CROP, &CaptureDevice::setCrop>("VIDIOC_S_CROP"),
        request<VIDIOC_S_PARM, &CaptureDevice::setParameters>("VIDIOC_S_PARM"),
        request<VIDIOC_G_PARM, &CaptureDevice::setParameters>("VIDIOC_G_PARM"),
        request<VIDIOC_ENUM_FMT, &CaptureDevice::enumerateFormat>("VIDIOC_ENUM_FMT"),
        request<VIDIOC_S_FMT, &CaptureDevice::setFormat>("VIDIOC_S_FMT"),
        request<VIDIOC_TRY_FMT, &CaptureDevice::tryFormat>("VIDIOC_TRY_FMT"),
        request<VIDIOC_G_FMT, &CaptureDevice::getFormat>("VIDIOC_G_FMT"),
        request<VIDIOC_S_CTRL, &CaptureDevice::setControl>("VIDIOC_S_CTRL"),
        request<VIDIOC_G_CTRL, &CaptureDevice::getControl>("VIDIOC_G_CTRL"),
        request<VIDIOC_S_STD, &CaptureDevice::setStandard>("VIDIOC_S_STD"),
        request<VIDIOC_G_STD, &CaptureDevice::getStandard>("VIDIOC_G_STD"),
        request<VIDIOC_QUERYSTD, &CaptureDevice::queryStandard>("VIDIOC_QUERYSTD"),
        request<VIDIOC_REQBUFS, &CaptureDevice::requestBuffers>("VIDIOC_REQBUFS"),
        request<VIDIOC_QUERYBUF, &CaptureDevice::queryBuffer>("VIDIOC_QUERYBUF"),
        request<VIDIOC_QBUF, &CaptureDevice::queueBuffer>("VIDIOC_QBUF"),
        request<VIDIOC_DQBUF, &CaptureDevice::dequeueBuffer>("VIDIOC_DQBUF"),
        request<VIDIOC_STREAMON, &CaptureDevice::streamOn>("VIDIOC_STREAMON"),
        request<VIDIOC_STREAMOFF, &CaptureDevice::streamOff>("VIDIOC_STREAMOFF"),
    };
    return {kRequests.data(), kRequests.size()};
}

}  // namespace

std::unique_ptr<Device> makeCaptureDevice(Board& board, unsigned index)
{
    return std::make_unique<CaptureDevice>(board, index);
}

}  // namespace board
