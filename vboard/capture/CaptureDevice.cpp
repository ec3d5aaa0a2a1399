#include "capture/CaptureDevice.h"

#include <linux/videodev2.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <limits>
#include <mutex>

#include "board/Real.h"
#include "capture/BufferQueue.h"
#include "capture/FrameClock.h"
#include "capture/PictureSource.h"
#include "memory/PhysicalMemory.h"

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
constexpr uint64_t kUsPerSecond = 1000000;
constexpr uint32_t kMilli = 1000;
constexpr uint64_t kLongestNapUs = 20000;  // so that a waiting dequeue sees the end of streaming
constexpr uint64_t kIdleNapUs = 1000;
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

uint32_t stateFlags(CaptureBuffer::State state)
{
    switch (state) {
        case CaptureBuffer::State::kQueued:
            return V4L2_BUF_FLAG_QUEUED;
        case CaptureBuffer::State::kDone:
        case CaptureBuffer::State::kHandedOut:
            return V4L2_BUF_FLAG_DONE;
        case CaptureBuffer::State::kDequeued:
            break;
    }
    return 0;
}

class CaptureDevice final : public Device {
public:
    CaptureDevice(Board& board, unsigned index)
        : Device(board, kNames[index].name, kNames[index].path), index_(index), clock_(board.state())
    {
    }

    int open() override;
    void close() override;
    const char* backingFile() const override { return "memory"; }

protected:
    Table requests() const override;

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

    // Buffers and streaming.
    int requestBuffers(v4l2_requestbuffers& record);
    int queryBuffer(v4l2_buffer& record);
    int queueBuffer(v4l2_buffer& record);
    int dequeueBuffer(v4l2_buffer& record);
    int streamOn(const int& type);
    int streamOff(const int& type);

    bool isDualLite() const { return board().state().cpu == Cpu::kDualLite; }
    uint32_t camera() const;

    /// The rest is called with the lock held, unless it says otherwise.
    bool namesBuffer(const v4l2_buffer& record) const;
    int learnAddress(const v4l2_buffer& record);
    int checkQueued(const v4l2_buffer& record);
    void describe(uint32_t index, v4l2_buffer& record);
    int allocateBuffers(uint32_t count);
    void freeBuffers();
    void stopStreaming();
    void advance(uint64_t nowUs);

    /// Takes the lock itself.
    int checkDequeued(const v4l2_buffer& record);
    enum class Turn { kTaken, kWait, kEnded };
    /// One look of a dequeue for a frame; takes the lock itself. kWait: `napUs` is how long nothing can come.
    Turn takeFrame(uint32_t& index, uint64_t& napUs, bool& interruptible);
    /// Takes the lock only where needed: drawing may wait for a source.
    int deliver(uint32_t index, v4l2_buffer& record);
    bool drawFrame(uint32_t camera, uint64_t number, uint8_t* nv12);
    void countDelivered(uint32_t camera) const;

    const unsigned index_;
    const FrameClock clock_;

    std::mutex lock_;  // all below, up to the next lock
    unsigned handles_ = 0;
    int input_ = 0;
    uint32_t memory_ = 0;  // V4L2_MEMORY_MMAP or _USERPTR
    BufferQueue buffers_;
    bool streaming_ = false;
    uint32_t session_ = 0;        // number of the streaming, so that a late dequeue leaves the next one alone
    uint64_t firstInstant_ = 0;   // of this streaming, when paced
    uint64_t nextInstant_ = 0;    // the first one that is not dealt with, when paced
    uint32_t nextSequence_ = 0;   // when not paced
    uint64_t unpacedFrames_ = 0;  // delivered so far, also before this streaming: the next one's number

    std::mutex drawing_;
    std::array<std::unique_ptr<PictureSource>, kCameras + 1> sources_;  // the last one: no input
};

int CaptureDevice::open()
{
    if (isDualLite() && index_ >= kDualLiteDevices) {
        return -ENOENT;
    }
    const std::lock_guard<std::mutex> guard(lock_);
    ++handles_;
    return 0;
}

void CaptureDevice::close()
{
    const std::lock_guard<std::mutex> guard(lock_);
    if (handles_ > 0 && --handles_ == 0) {
        stopStreaming();
        freeBuffers();
    }
}

uint32_t CaptureDevice::camera() const
{
    const uint32_t chosen = isDualLite() ? board().state().inputPair[index_].load() : index_;
    return std::min<uint32_t>(chosen, kCameras);
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
    return 0;
}

int CaptureDevice::setInput(int& input)
{
    if (input < 0 || static_cast<uint32_t>(input) >= kInputs) {
        return -EINVAL;
    }
    const std::lock_guard<std::mutex> guard(lock_);
    if (streaming_) {
        return -EBUSY;
    }
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
    capture.timeperframe = {kMilli, clock_.paced() ? rateMilli : kUnpacedRate * kMilli};
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
    const std::lock_guard<std::mutex> guard(lock_);
    if (streaming_ || buffers_.count() != 0) {
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

int CaptureDevice::requestBuffers(v4l2_requestbuffers& record)
{
    const bool knownMemory = record.memory == V4L2_MEMORY_MMAP || record.memory == V4L2_MEMORY_USERPTR;
    if (!isCapture(record.type) || !knownMemory) {
        return -EINVAL;
    }
    const std::lock_guard<std::mutex> guard(lock_);
    if (streaming_) {
        return refuse("VIDIOC_REQBUFS", -EBUSY, "streaming");
    }
    freeBuffers();
    record.count = std::min(record.count, BufferQueue::kMostBuffers);
    memory_ = record.memory;
    return allocateBuffers(record.count);
}

int CaptureDevice::allocateBuffers(uint32_t count)
{
    buffers_.resize(count);
    if (memory_ != V4L2_MEMORY_MMAP) {
        return 0;
    }
    const PhysicalMemory physical(board());
    for (uint32_t index = 0; index < count; ++index) {
        CaptureBuffer& buffer = buffers_[index];
        buffer.physical = physical.allocate(kPictureBytes, name());
        buffer.length = kPictureBytes;
        if (buffer.physical == 0) {
            freeBuffers();
            return refuse("VIDIOC_REQBUFS", -ENOMEM, "no physical memory left");
        }
    }
    return 0;
}

void CaptureDevice::freeBuffers()
{
    if (memory_ == V4L2_MEMORY_MMAP) {
        const PhysicalMemory physical(board());
        for (uint32_t index = 0; index < buffers_.count(); ++index) {
            if (buffers_[index].physical != 0) {
                physical.release(buffers_[index].physical);
            }
        }
    }
    buffers_.resize(0);
}

bool CaptureDevice::namesBuffer(const v4l2_buffer& record) const
{
    return isCapture(record.type) && record.index < buffers_.count() && record.memory == memory_;
}

int CaptureDevice::queryBuffer(v4l2_buffer& record)
{
    const std::lock_guard<std::mutex> guard(lock_);
    if (!namesBuffer(record)) {
        return refuse("VIDIOC_QUERYBUF", -EINVAL, "no such buffer, or of another type or memory");
    }
    if (memory_ == V4L2_MEMORY_USERPTR) {
        const int learned = learnAddress(record);
        if (learned != 0) {
            return learned;
        }
    }
    describe(record.index, record);
    return 0;
}

int CaptureDevice::learnAddress(const v4l2_buffer& record)
{
    CaptureBuffer& buffer = buffers_[record.index];
    if (buffer.state != CaptureBuffer::State::kDequeued) {
        return refuse("VIDIOC_QUERYBUF", -EBUSY, "the address of a queued buffer cannot change");
    }
    if (record.length < kPictureBytes) {
        return refuse("VIDIOC_QUERYBUF", -EINVAL, "buffer is smaller than a picture");
    }
    const uint64_t address = record.m.userptr;
    const bool fits = address <= std::numeric_limits<uint32_t>::max();
    if (!fits || PhysicalMemory(board()).at(static_cast<uint32_t>(address), record.length) == nullptr) {
        return refuse("VIDIOC_QUERYBUF", -EFAULT, "address is not inside a live allocation");
    }
    buffer.physical = static_cast<uint32_t>(address);
    buffer.userStart = address;
    buffer.length = record.length;
    return 0;
}

void CaptureDevice::describe(uint32_t index, v4l2_buffer& record)
{
    const CaptureBuffer& buffer = buffers_[index];
    record.index = index;
    record.memory = memory_;
    record.flags = stateFlags(buffer.state) | V4L2_BUF_FLAG_TIMESTAMP_MONOTONIC;
    record.field = V4L2_FIELD_INTERLACED;
    record.length = buffer.length;
    record.bytesused = kPictureBytes;
    record.sequence = buffer.frame.sequence;
    record.timestamp = {};
    record.timestamp.tv_sec =
        static_cast<decltype(record.timestamp.tv_sec)>(buffer.frame.timeUs / kUsPerSecond);
    record.timestamp.tv_usec =
        static_cast<decltype(record.timestamp.tv_usec)>(buffer.frame.timeUs % kUsPerSecond);
    if (memory_ == V4L2_MEMORY_MMAP) {
        record.m.offset = buffer.physical;
        record.flags |= V4L2_BUF_FLAG_MAPPED;
    } else {
        record.m.userptr = static_cast<decltype(record.m.userptr)>(buffer.userStart);
    }
}

int CaptureDevice::queueBuffer(v4l2_buffer& record)
{
    const std::lock_guard<std::mutex> guard(lock_);
    const int wrong = checkQueued(record);
    if (wrong != 0) {
        return wrong;
    }
    CaptureBuffer& buffer = buffers_[record.index];
    if (memory_ == V4L2_MEMORY_USERPTR) {
        buffer.userStart = record.m.userptr;
        buffer.length = record.length;
    }
    if (streaming_) {
        advance(real::monotonicUs());  // frames before now did not find this buffer
    }
    buffer.frame = {};
    buffers_.queue(record.index);
    describe(record.index, record);
    return 0;
}

int CaptureDevice::checkQueued(const v4l2_buffer& record)
{
    constexpr const char* kCall = "VIDIOC_QBUF";
    if (!namesBuffer(record)) {
        return refuse(kCall, -EINVAL, "no such buffer, or of another type or memory");
    }
    const CaptureBuffer& buffer = buffers_[record.index];
    if (buffer.state != CaptureBuffer::State::kDequeued) {
        return refuse(kCall, -EINVAL, "buffer is already queued");
    }
    if (buffer.physical == 0) {
        return refuse(kCall, -EINVAL, "the driver was not told the buffer's address");
    }
    if (memory_ == V4L2_MEMORY_USERPTR && record.length < kPictureBytes) {
        return refuse(kCall, -EINVAL, "buffer is smaller than a picture");
    }
    return 0;
}

int CaptureDevice::streamOn(const int& type)
{
    if (!isCapture(static_cast<uint32_t>(type))) {
        return -EINVAL;
    }
    const std::lock_guard<std::mutex> guard(lock_);
    if (streaming_) {
        return 0;
    }
    if (buffers_.count() == 0) {
        return refuse("VIDIOC_STREAMON", -EINVAL, "no buffers were requested");
    }
    streaming_ = true;
    ++session_;
    nextSequence_ = 0;
    if (clock_.paced()) {
        firstInstant_ = clock_.firstAfter(real::monotonicUs());
        nextInstant_ = firstInstant_;
    }
    return 0;
}

int CaptureDevice::streamOff(const int& type)
{
    if (!isCapture(static_cast<uint32_t>(type))) {
        return -EINVAL;
    }
    const std::lock_guard<std::mutex> guard(lock_);
    stopStreaming();
    return 0;
}

void CaptureDevice::stopStreaming()
{
    if (streaming_) {
        advance(real::monotonicUs());
    }
    streaming_ = false;
    buffers_.reset();
}

void CaptureDevice::advance(uint64_t nowUs)
{
    if (!clock_.paced()) {
        return;
    }
    for (; clock_.at(nextInstant_) <= nowUs; ++nextInstant_) {
        const auto sequence = static_cast<uint32_t>(nextInstant_ - firstInstant_);
        const bool found = buffers_.fill({nextInstant_, sequence, clock_.at(nextInstant_)});
        const uint32_t shown = camera();
        if (!found && shown < kCameras) {
            ++board().state().cameras[shown].dropped;
        }
    }
}

int CaptureDevice::dequeueBuffer(v4l2_buffer& record)
{
    const int wrong = checkDequeued(record);
    if (wrong != 0) {
        return wrong;
    }
    while (true) {
        uint32_t index = 0;
        uint64_t napUs = 0;
        bool interruptible = false;
        switch (takeFrame(index, napUs, interruptible)) {
            case Turn::kTaken:
                return deliver(index, record);
            case Turn::kEnded:
                return refuse("VIDIOC_DQBUF", -EINVAL, "not streaming");
            case Turn::kWait:
                break;
        }
        // With a buffer queued a frame comes at the next instant, signal or not; with none it may never come.
        if (!real::sleepUs(napUs) && interruptible) {
            return -EINTR;
        }
    }
}

int CaptureDevice::checkDequeued(const v4l2_buffer& record)
{
    const std::lock_guard<std::mutex> guard(lock_);
    if (!isCapture(record.type) || (buffers_.count() != 0 && record.memory != memory_)) {
        return refuse("VIDIOC_DQBUF", -EINVAL, "another type or memory than was requested");
    }
    return 0;
}

CaptureDevice::Turn CaptureDevice::takeFrame(uint32_t& index, uint64_t& napUs, bool& interruptible)
{
    const std::lock_guard<std::mutex> guard(lock_);
    if (!streaming_) {
        return Turn::kEnded;
    }
    const uint64_t nowUs = real::monotonicUs();
    advance(nowUs);
    if (!clock_.paced() && !buffers_.anyDone() && buffers_.anyQueued()) {
        buffers_.fill({unpacedFrames_, nextSequence_, nowUs});
        ++nextSequence_;
    }
    if (buffers_.anyDone()) {
        index = buffers_.takeDone();
        return Turn::kTaken;
    }
    interruptible = !buffers_.anyQueued();
    napUs = clock_.paced() ? std::min(clock_.at(nextInstant_) - nowUs, kLongestNapUs) : kIdleNapUs;
    return Turn::kWait;
}

int CaptureDevice::deliver(uint32_t index, v4l2_buffer& record)
{
    std::unique_lock<std::mutex> guard(lock_);
    const uint32_t session = session_;
    const uint32_t shown = camera();
    const CaptureBuffer buffer = buffers_[index];
    guard.unlock();

    uint8_t* target = PhysicalMemory(board()).at(buffer.physical, kPictureBytes);
    const bool drawn = target != nullptr && drawFrame(shown, buffer.frame.number, target);

    guard.lock();
    const bool stillStreaming = streaming_ && session == session_;
    if (!stillStreaming) {
        return -EINVAL;  // streaming ended meanwhile and took the buffer back
    }
    if (!drawn) {
        buffers_.putBack(index);
        return target == nullptr ? refuse("VIDIOC_DQBUF", -EFAULT, "a buffer's memory is gone") : -EIO;
    }
    buffers_[index].state = CaptureBuffer::State::kDequeued;
    describe(index, record);
    ++unpacedFrames_;
    guard.unlock();
    countDelivered(shown);
    return 0;
}

bool CaptureDevice::drawFrame(uint32_t camera, uint64_t number, uint8_t* nv12)
{
    const std::lock_guard<std::mutex> guard(drawing_);
    std::unique_ptr<PictureSource>& source = sources_[camera];
    if (source == nullptr) {
        source = makePictureSource(board(), camera);
    }
    return source->draw(number, nv12);
}

void CaptureDevice::countDelivered(uint32_t camera) const
{
    if (camera >= kCameras) {
        return;
    }
    State& state = board().state();
    const uint64_t delivered = ++state.cameras[camera].delivered;
    if (camera == 0 && delivered == state.frameLimit) {
        real::kill(state.program, SIGINT);
    }
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
        request<VIDIOC_QUERYSTD, &CaptureDevice::getStandard>("VIDIOC_QUERYSTD"),
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
