#include "capture/CaptureDevice.h"

#include <gtest/gtest.h>
#include <linux/videodev2.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <thread>
#include <vector>

#include "Camera.h"
#include "faults/FaultPlan.h"

namespace {

using board::PatternCode;
using support::Camera;
using support::kBuffers;
using support::kHeight;
using support::kInputPair;
using support::kWidth;

class CaptureDevice : public support::CaptureTest {};

/// What the plan makes of a camera, in five dequeues of one that is not paced.
TEST_F(CaptureDevice, IsSparedWhatThePlanSaysBefallsIt)
{
    const board::FaultPlan plan(scratch_.board());
    ASSERT_EQ(plan.add("VIDIOC_DQBUF@/dev/video0#2=bad"), "");
    ASSERT_EQ(plan.add("VIDIOC_DQBUF@/dev/video0#3/2=lost"), "");
    ASSERT_EQ(plan.add("VIDIOC_DQBUF@/dev/video0#4=wrap"), "");
    ASSERT_EQ(plan.add("VIDIOC_DQBUF@/dev/video0#6=nosignal"), "");
    ASSERT_EQ(plan.add("VIDIOC_DQBUF@/dev/video0#8=gone"), "");
    Camera camera(scratch_, 0);
    start(camera);
    camera.cycle();
    EXPECT_EQ(camera.last().flags & V4L2_BUF_FLAG_ERROR, 0U);
    camera.cycle();
    EXPECT_NE(camera.last().flags & V4L2_BUF_FLAG_ERROR, 0U);

    camera.cycle();  // one frame is lost
    EXPECT_EQ(camera.last().flags & V4L2_BUF_FLAG_ERROR, 0U);
    EXPECT_EQ(camera.last().sequence, 3U);
    EXPECT_EQ(camera.shown().frame, 3U);
    EXPECT_EQ(counters(0).dropped, 1U);

    camera.cycle();  // numbers and times are about to wrap
    EXPECT_GT(camera.last().sequence, UINT32_MAX - 10U);
    constexpr int64_t kLargestTime = INT32_MAX;
    EXPECT_LE(std::abs(static_cast<int64_t>(camera.last().timestamp.tv_sec) - kLargestTime), 1);
    camera.cycle();
    EXPECT_EQ(camera.shown().frame, 6U) << "the second of the lost ones";

    v4l2_std_id standard = 0;
    ASSERT_EQ(camera.call(VIDIOC_QUERYSTD, standard), 0);
    EXPECT_NE(standard, V4L2_STD_UNKNOWN);
    camera.cycle();
    EXPECT_FALSE(camera.reading(camera.last().index)) << "there is no picture without a signal";
    ASSERT_EQ(camera.call(VIDIOC_QUERYSTD, standard), 0);
    EXPECT_EQ(standard, V4L2_STD_UNKNOWN);

    camera.cycle();
    EXPECT_EQ(camera.dequeue(), -ENODEV);
    EXPECT_EQ(camera.queue(0), -ENODEV);
}

TEST_F(CaptureDevice, GrantsWhatTheBoardHasNot)
{
    Camera camera(scratch_, 0);
    v4l2_format format{};
    format.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    format.fmt.pix.pixelformat = V4L2_PIX_FMT_YUYV;
    EXPECT_EQ(camera.call(VIDIOC_S_FMT, format), -EINVAL);
    format.fmt.pix.pixelformat = V4L2_PIX_FMT_NV12;
    ASSERT_EQ(camera.call(VIDIOC_S_FMT, format), 0);
    EXPECT_EQ(format.fmt.pix.width, kWidth);
    EXPECT_EQ(format.fmt.pix.height, kHeight);
    EXPECT_EQ(format.fmt.pix.bytesperline, kWidth);
    EXPECT_EQ(format.fmt.pix.sizeimage, 518400U);
    format.type = V4L2_BUF_TYPE_VIDEO_OUTPUT;
    EXPECT_EQ(camera.call(VIDIOC_G_FMT, format), -EINVAL);

    v4l2_cropcap window{};
    window.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    ASSERT_EQ(camera.call(VIDIOC_CROPCAP, window), 0);
    EXPECT_EQ(window.defrect.width, kWidth);
    v4l2_crop crop{};
    crop.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    EXPECT_EQ(camera.call(VIDIOC_S_CROP, crop), -EINVAL);
    int input = 2;
    EXPECT_EQ(camera.call(VIDIOC_S_INPUT, input), -EINVAL);
    EXPECT_EQ(camera.setPair(0x0100), -EINVAL) << "a quad has no input pair";
    EXPECT_EQ(camera.request(kBuffers, V4L2_MEMORY_OVERLAY), -EINVAL);
    ASSERT_EQ(camera.request(99, V4L2_MEMORY_USERPTR), 0);
    EXPECT_EQ(camera.granted(), 8U);
}

TEST_F(CaptureDevice, TakesBuffersOrStreamsInTheWrongState)
{
    Camera camera(scratch_, 0);
    EXPECT_EQ(camera.stream(true), -EINVAL) << "no buffers";
    EXPECT_EQ(camera.dequeue(), -EINVAL) << "not streaming";
    camera.provideBuffers();
    EXPECT_EQ(camera.queue(kBuffers), -EINVAL) << "no such buffer";
    ASSERT_EQ(camera.queue(0), 0);
    EXPECT_EQ(camera.queue(0), -EINVAL) << "queued twice";
    EXPECT_EQ(camera.dequeue(), -EINVAL) << "still not streaming";
    ASSERT_EQ(camera.stream(true), 0);
    EXPECT_EQ(camera.request(kBuffers, V4L2_MEMORY_USERPTR), -EBUSY) << "requested while streaming";
    v4l2_format format{};
    format.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    format.fmt.pix.pixelformat = V4L2_PIX_FMT_NV12;
    EXPECT_EQ(camera.call(VIDIOC_S_FMT, format), -EBUSY) << "format set while streaming";
    v4l2_buffer other = camera.bufferRecord(0);
    other.memory = V4L2_MEMORY_MMAP;
    EXPECT_EQ(camera.call(VIDIOC_DQBUF, other), -EINVAL) << "another memory";
    EXPECT_EQ(camera.dequeue(), 0);
    EXPECT_EQ(camera.queue(0), 0) << "may be queued again once dequeued";
}

TEST_F(CaptureDevice, WritesToMemoryThatIsNotTheProgramsOrNoLonger)
{
    Camera camera(scratch_, 0);
    ASSERT_EQ(camera.request(kBuffers, V4L2_MEMORY_USERPTR), 0);
    const uint32_t small = scratch_.memory().allocate(board::kPictureBytes - 2 * board::kPageBytes, "test");
    EXPECT_EQ(camera.tell(0, 0, board::kPictureBytes), -EFAULT);
    EXPECT_EQ(camera.tell(0, small, board::kPictureBytes), -EFAULT) << "runs past the allocation's end";
    EXPECT_EQ(camera.tell(0, small, 1), -EINVAL) << "shorter than a picture";
    EXPECT_EQ(camera.queue(0), -EINVAL) << "the address was never learnt";
    EXPECT_EQ(scratch_.refusals(), 4U);

    start(camera);
    scratch_.memory().release(camera.address(0));
    EXPECT_EQ(camera.dequeue(), -EFAULT);
    EXPECT_EQ(scratch_.lastRefusal(), "a buffer's memory is gone");
    EXPECT_EQ(counters(0).delivered, 0U);
}

TEST_F(CaptureDevice, KeepsItsOwnBuffersAfterTheLastClose)
{
    Camera camera(scratch_, 2);
    ASSERT_EQ(camera.request(3, V4L2_MEMORY_MMAP), 0);
    EXPECT_EQ(scratch_.liveAllocations(), 3U);
    v4l2_buffer record = camera.bufferRecord(1);
    ASSERT_EQ(camera.call(VIDIOC_QUERYBUF, record), 0);
    EXPECT_NE(scratch_.memory().at(record.m.offset, record.length), nullptr) << "the offset is the address";
    ASSERT_EQ(camera.call(VIDIOC_QBUF, record), 0);
    ASSERT_EQ(camera.stream(true), 0);
    ASSERT_EQ(camera.dequeue(), 0);
    const uint8_t* luma = scratch_.memory().at(record.m.offset, board::kPictureBytes);
    EXPECT_EQ(PatternCode::read(luma, kWidth, 0, 0, kWidth, kHeight), (PatternCode::Reading{3, 0}));
    ASSERT_EQ(camera.stream(false), 0);
    ASSERT_EQ(camera.request(2, V4L2_MEMORY_MMAP), 0);
    EXPECT_EQ(scratch_.liveAllocations(), 2U) << "the first ones are given back";
    camera.close();
    EXPECT_EQ(scratch_.liveAllocations(), 0U);
}

TEST_F(CaptureDevice, MixesUpBuffersOrFrameNumbersWithoutPacing)
{
    Camera camera(scratch_, 1);
    camera.provideBuffers();
    constexpr uint32_t kOrder[kBuffers] = {2, 0, 3, 1};
    constexpr uint32_t kFrames = 12;
    for (uint32_t frame = 0; frame < kFrames; ++frame) {
        const uint32_t sequence = frame % (kFrames / 2);
        if (sequence == 0) {
            ASSERT_EQ(camera.stream(false), 0);
            for (const uint32_t index : kOrder) {
                ASSERT_EQ(camera.queue(index), 0) << "it stayed queued over the end of streaming";
            }
            ASSERT_EQ(camera.stream(true), 0);
        }
        camera.cycle();
        EXPECT_EQ(camera.last().index, kOrder[sequence % kBuffers]);
        EXPECT_EQ(camera.last().m.userptr, Camera::kProgramPointer + camera.last().index);
        EXPECT_EQ(camera.last().bytesused, board::kPictureBytes);
        EXPECT_EQ(camera.last().sequence, sequence) << "restarts with the streaming";
        EXPECT_EQ(camera.shown(), (PatternCode::Reading{2, frame}));
    }
    EXPECT_EQ(counters(1).delivered, kFrames);
    EXPECT_EQ(counters(1).dropped, 0U);
}

TEST_F(CaptureDevice, DeliversPacedFramesOffTheirInstants)
{
    scratch_.pace(100);
    Camera first(scratch_, 0), second(scratch_, 3);
    start(first);
    start(second);
    first.cycle();
    const uint64_t instantUs = static_cast<uint64_t>(first.last().timestamp.tv_sec) * 1000000U +
                               static_cast<uint64_t>(first.last().timestamp.tv_usec);
    EXPECT_GE(real::monotonicUs(), instantUs) << "never before its time";
    EXPECT_EQ((instantUs - scratch_.state().epochUs) % 10000, 0U);
    const auto number = static_cast<uint32_t>((instantUs - scratch_.state().epochUs) / 10000);
    EXPECT_EQ(first.shown().frame, number) << "the picture is that of the instant";

    second.cycle();
    while (first.shown().frame != second.shown().frame) {
        (first.shown().frame < second.shown().frame ? first : second).cycle();
    }
    EXPECT_EQ(first.last().timestamp.tv_usec, second.last().timestamp.tv_usec) << "cameras share instants";
    EXPECT_EQ(second.shown().camera, 4U);
}

TEST_F(CaptureDevice, LosesCountOfFramesThatFoundNoBuffer)
{
    scratch_.pace(100);
    Camera camera(scratch_, 0);
    start(camera);
    for (uint32_t index = 0; index < kBuffers; ++index) {
        ASSERT_EQ(camera.dequeue(), 0);
    }
    // The program is away for at least four frames: that time passes is what is tested.
    const uint64_t backUs = real::monotonicUs() + 44000;
    while (real::monotonicUs() < backUs) {
        real::sleepUs(backUs - real::monotonicUs());
    }
    ASSERT_EQ(camera.queue(0), 0);
    const uint64_t dropped = counters(0).dropped;  // it grows with the next call, should that come late
    EXPECT_GE(dropped, 4U);
    ASSERT_EQ(camera.dequeue(), 0);
    EXPECT_EQ(camera.last().sequence, kBuffers + dropped) << "lost frames have numbers too";
    EXPECT_EQ(counters(0).delivered, kBuffers + 1U);
}

TEST_F(CaptureDevice, ShowsOtherInputsThanThePairThatWasSet)
{
    scratch_.state().cpu = board::Cpu::kDualLite;
    Camera first(scratch_, 0), second(scratch_, 1);
    start(first);
    start(second);
    first.cycle();
    second.cycle();
    EXPECT_EQ(first.shown().camera, 1U);
    EXPECT_EQ(second.shown().camera, 2U);
    ASSERT_EQ(first.setPair(0x0302), 0);
    EXPECT_EQ(first.setPair(0x0401), -ERANGE);
    EXPECT_EQ(first.setPair(0x10000), -ERANGE);
    first.cycle();
    second.cycle();
    EXPECT_EQ(first.shown(), (PatternCode::Reading{3, 1})) << "numbers go on";
    EXPECT_EQ(second.shown(), (PatternCode::Reading{4, 1}));
    EXPECT_EQ(counters(2).delivered, 1U) << "counted by camera, not by device";
    ASSERT_EQ(first.setPair(0x00FF), 0) << "no camera chosen";
    first.cycle();
    EXPECT_FALSE(first.reading(first.last().index));
    EXPECT_EQ(scratch_.state().inputPair[1], 0U);
}

std::atomic<int> signals{0};

/// Counts a signal while it stands; calls are not restarted.
class Counted {
public:
    explicit Counted(int signal) : signal_(signal)
    {
        signals = 0;
        struct sigaction counting = {};
        counting.sa_handler = [](int) { ++signals; };
        ::sigaction(signal, &counting, &before_);
    }
    ~Counted() { ::sigaction(signal_, &before_, nullptr); }
    Counted(const Counted&) = delete;
    Counted& operator=(const Counted&) = delete;

private:
    int signal_;
    struct sigaction before_ = {};
};

TEST_F(CaptureDevice, InterruptsTheProgramAtAnotherFrameThanTheLast)
{
    const Counted interrupts(SIGINT);
    scratch_.state().frameLimit = 3;
    Camera first(scratch_, 0), other(scratch_, 1);
    start(first);
    start(other);
    for (int frame = 1; frame <= 5; ++frame) {
        other.cycle();
        EXPECT_EQ(signals, frame > 3 ? 1 : 0) << "other cameras do not count, frame " << frame;
        first.cycle();
        EXPECT_EQ(signals, frame >= 3 ? 1 : 0) << "frame " << frame;
    }
}

TEST_F(CaptureDevice, WaitsForEverWhenStreamingEndsOrASignalComes)
{
    const Counted ignored(SIGUSR1);
    constexpr uint32_t kHardlyEver = 1;  // frames in a thousand seconds: none of them ends the wait
    for (const uint32_t rateMilli : {0U, 1000U, kHardlyEver}) {
        for (const bool interrupted : {false, true}) {
            scratch_.state().frameRateMilli = rateMilli;
            Camera camera(scratch_, 0);
            camera.provideBuffers();
            ASSERT_EQ(camera.stream(true), 0);
            if (rateMilli == kHardlyEver) {
                camera.queueAll();
            }
            std::atomic<bool> entered{false};
            std::atomic<int> result{1};
            std::thread waiting([&] {
                entered = true;
                v4l2_buffer record = camera.bufferRecord(0);
                result = camera.call(VIDIOC_DQBUF, record);
            });
            while (result == 1) {
                if (interrupted) {
                    ::pthread_kill(waiting.native_handle(), SIGUSR1);
                } else if (entered) {
                    EXPECT_EQ(camera.stream(false), 0);
                }
                std::this_thread::yield();
            }
            waiting.join();
            EXPECT_EQ(result, interrupted ? -EINTR : -EINVAL);
        }
    }
}

TEST_F(CaptureDevice, CountsAFrameTwiceForTheLimitThatTwoDevicesDeliver)
{
    const Counted interrupts(SIGINT);
    scratch_.state().cpu = board::Cpu::kDualLite;
    scratch_.state().frameLimit = 3;
    Camera first(scratch_, 0), second(scratch_, 1);
    ASSERT_EQ(first.setPair(0x0000), 0);
    start(first);
    start(second);
    for (int frame = 1; frame <= 4; ++frame) {
        first.cycle();
        second.cycle();
        EXPECT_EQ(signals, frame >= 3 ? 1 : 0) << "frame " << frame;
    }
    EXPECT_EQ(counters(0).delivered, 8U);
}

}  // namespace
