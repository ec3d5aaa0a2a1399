#pragma once

#include <gtest/gtest.h>
#include <linux/videodev2.h>

#include <array>
#include <memory>
#include <optional>

#include "ScratchBoard.h"
#include "board/Device.h"
#include "capture/CaptureDevice.h"
#include "capture/PatternCode.h"
#include "capture/PictureSource.h"

namespace support {

using board::PatternCode;

inline constexpr uint32_t kInputPair = 0x0800000A;
inline constexpr uint32_t kBuffers = 4;
inline constexpr unsigned kWidth = board::kPictureWidth, kHeight = board::kPictureHeight;

/// A board with one camera device opened on it, and the calls of a capturing program.
class Camera {
public:
    Camera(ScratchBoard& scratch, unsigned index)
        : scratch_(scratch),
          device_(board::makeCaptureDevice(scratch.board(), index)),
          opened_(device_->open() == 0)
    {
        EXPECT_TRUE(opened_);
    }
    ~Camera() { close(); }
    Camera(const Camera&) = delete;
    Camera& operator=(const Camera&) = delete;

    void close()
    {
        if (opened_) {
            device_->close();
            opened_ = false;
        }
    }

    template <typename Record>
    int call(unsigned long request, Record& record)
    {
        return device_->ioctl(request, &record);
    }

    int request(uint32_t count, uint32_t memory)
    {
        v4l2_requestbuffers record{};
        record.count = count;
        record.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
        record.memory = memory;
        const int result = call(VIDIOC_REQBUFS, record);
        granted_ = record.count;
        memory_ = memory;
        return result;
    }

    /// Buffers of the program's own, their addresses told to the driver.
    void provideBuffers()
    {
        ASSERT_EQ(request(kBuffers, V4L2_MEMORY_USERPTR), 0);
        for (uint32_t index = 0; index < kBuffers; ++index) {
            addresses_[index] = scratch_.memory().allocate(board::kPictureBytes, "test");
            ASSERT_EQ(tell(index, addresses_[index], board::kPictureBytes), 0);
        }
    }

    int tell(uint32_t index, unsigned long address, uint32_t length)
    {
        v4l2_buffer record = bufferRecord(index);
        record.m.userptr = address;
        record.length = length;
        return call(VIDIOC_QUERYBUF, record);
    }

    int queue(uint32_t index)
    {
        v4l2_buffer record = bufferRecord(index);
        record.m.userptr = kProgramPointer + index;
        record.length = board::kPictureBytes;
        return call(VIDIOC_QBUF, record);
    }

    void queueAll()
    {
        for (uint32_t index = 0; index < kBuffers; ++index) {
            ASSERT_EQ(queue(index), 0);
        }
    }

    int dequeue()
    {
        last_ = bufferRecord(0);
        return call(VIDIOC_DQBUF, last_);
    }

    int stream(bool on)
    {
        int type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
        return call(on ? VIDIOC_STREAMON : VIDIOC_STREAMOFF, type);
    }

    /// Dequeues and queues the same buffer again.
    void cycle()
    {
        ASSERT_EQ(dequeue(), 0);
        ASSERT_EQ(queue(last_.index), 0);
    }

    int setPair(int value)
    {
        v4l2_control record{kInputPair, value};
        return call(VIDIOC_S_CTRL, record);
    }

    std::optional<PatternCode::Reading> reading(uint32_t index)
    {
        const uint8_t* luma = scratch_.memory().at(addresses_[index], board::kPictureBytes);
        return PatternCode::read(luma, kWidth, 0, 0, kWidth, kHeight);
    }

    /// What the frame dequeued last says of itself; nothing that exists when it has no mark.
    PatternCode::Reading shown() { return reading(last_.index).value_or(PatternCode::Reading{0, 0}); }

    v4l2_buffer bufferRecord(uint32_t index) const
    {
        v4l2_buffer record{};
        record.index = index;
        record.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
        record.memory = memory_;
        return record;
    }

    uint32_t address(uint32_t index) const { return addresses_[index]; }
    const v4l2_buffer& last() const { return last_; }
    uint32_t granted() const { return granted_; }

    static constexpr unsigned long kProgramPointer = 0x7000;

private:
    ScratchBoard& scratch_;
    std::unique_ptr<board::Device> device_;
    bool opened_;
    uint32_t memory_ = V4L2_MEMORY_USERPTR;
    uint32_t granted_ = 0;
    std::array<uint32_t, kBuffers> addresses_{};
    v4l2_buffer last_{};
};

/// A board of the test's own, to open cameras on.
class CaptureTest : public testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(scratch_.usable()); }

    static void start(Camera& camera)
    {
        camera.provideBuffers();
        camera.queueAll();
        ASSERT_EQ(camera.stream(true), 0);
    }

    board::Camera& counters(unsigned index) { return scratch_.state().cameras[index]; }

    ScratchBoard scratch_;
};

}  // namespace support
