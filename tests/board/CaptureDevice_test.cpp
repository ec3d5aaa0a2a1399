#include "capture/CaptureDevice.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/videodev2.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fstream>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "ScratchBoard.h"
#include "board/Device.h"
#include "capture/PatternCode.h"
#include "capture/PictureSource.h"
#include "capture/PipeSource.h"
#include "faults/FaultPlan.h"
#include "support/Wait.h"

namespace {

using board::PatternCode;

constexpr uint32_t kInputPair = 0x0800000A;
constexpr uint32_t kBuffers = 4;
constexpr unsigned kWidth = board::kPictureWidth, kHeight = board::kPictureHeight;

/// A board with one camera device opened on it, and the calls of a capturing program.
class Camera {
public:
    Camera(support::ScratchBoard& scratch, unsigned index)
        : scratch_(scratch),
          device_(board::makeCaptureDevice(scratch.board(), index)),
          opened_(device_->open())
    {
    }
    ~Camera() { close(); }
    Camera(const Camera&) = delete;
    Camera& operator=(const Camera&) = delete;

    int opened() const { return opened_; }
    void close()
    {
        if (opened_ == 0) {
            device_->close();
            opened_ = -1;
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
    support::ScratchBoard& scratch_;
    std::unique_ptr<board::Device> device_;
    int opened_;
    uint32_t memory_ = V4L2_MEMORY_USERPTR;
    uint32_t granted_ = 0;
    std::array<uint32_t, kBuffers> addresses_{};
    v4l2_buffer last_{};
};

class CaptureDevice : public testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(scratch_.usable()); }

    static void start(Camera& camera)
    {
        ASSERT_EQ(camera.opened(), 0);
        camera.provideBuffers();
        camera.queueAll();
        ASSERT_EQ(camera.stream(true), 0);
    }

    board::Camera& counters(unsigned index) { return scratch_.state().cameras[index]; }

    support::ScratchBoard scratch_;
};

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

TEST_F(CaptureDevice, AcceptsAFormatOrSizeThatTheBoardHasNot)
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
}

TEST_F(CaptureDevice, LetsTheWindowBeCropped)
{
    Camera camera(scratch_, 0);
    v4l2_cropcap window{};
    window.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    ASSERT_EQ(camera.call(VIDIOC_CROPCAP, window), 0);
    EXPECT_EQ(window.defrect.width, kWidth);
    v4l2_crop crop{};
    crop.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    EXPECT_EQ(camera.call(VIDIOC_S_CROP, crop), -EINVAL);
    int input = 2;
    EXPECT_EQ(camera.call(VIDIOC_S_INPUT, input), -EINVAL);
    input = 1;
    EXPECT_EQ(camera.call(VIDIOC_S_INPUT, input), 0);
}

TEST_F(CaptureDevice, ShowsFourDevicesOnADualLite)
{
    scratch_.state().cpu = board::Cpu::kDualLite;
    for (unsigned index = 0; index < board::kCameras; ++index) {
        EXPECT_EQ(Camera(scratch_, index).opened(), index < 2 ? 0 : -ENOENT) << index;
    }
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

TEST_F(CaptureDevice, GrantsMoreBuffersThanItHasOrOfUnknownMemory)
{
    Camera camera(scratch_, 0);
    EXPECT_EQ(camera.request(kBuffers, V4L2_MEMORY_OVERLAY), -EINVAL);
    ASSERT_EQ(camera.request(99, V4L2_MEMORY_USERPTR), 0);
    EXPECT_EQ(camera.granted(), 8U);
}

TEST_F(CaptureDevice, HandsOutBuffersInAnotherOrderOrWithoutTheProgramsPointer)
{
    Camera camera(scratch_, 0);
    camera.provideBuffers();
    for (const uint32_t index : {2U, 0U, 3U, 1U}) {
        ASSERT_EQ(camera.queue(index), 0);
    }
    ASSERT_EQ(camera.stream(true), 0);
    uint32_t sequence = 0;
    for (const uint32_t index : {2U, 0U, 3U, 1U}) {
        ASSERT_EQ(camera.dequeue(), 0);
        EXPECT_EQ(camera.last().index, index);
        EXPECT_EQ(camera.last().m.userptr, Camera::kProgramPointer + index);
        EXPECT_EQ(camera.last().sequence, sequence++);
        EXPECT_EQ(camera.last().bytesused, board::kPictureBytes);
    }
}

TEST_F(CaptureDevice, WritesToAnAddressThatIsNotTheProgramsMemory)
{
    Camera camera(scratch_, 0);
    ASSERT_EQ(camera.request(kBuffers, V4L2_MEMORY_USERPTR), 0);
    const uint32_t small = scratch_.memory().allocate(board::kPictureBytes - 2 * board::kPageBytes, "test");
    EXPECT_EQ(camera.tell(0, 0, board::kPictureBytes), -EFAULT);
    EXPECT_EQ(camera.tell(0, small, board::kPictureBytes), -EFAULT) << "runs past the allocation's end";
    EXPECT_EQ(camera.tell(0, small, 1), -EINVAL) << "shorter than a picture";
    EXPECT_EQ(camera.queue(0), -EINVAL) << "the address was never learnt";
    EXPECT_EQ(scratch_.refusals(), 4U);
}

TEST_F(CaptureDevice, WritesToMemoryThatWasFreedSinceItWasQueued)
{
    Camera camera(scratch_, 0);
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

TEST_F(CaptureDevice, SkipsOrRepeatsFrameNumbersWithoutPacing)
{
    Camera camera(scratch_, 1);
    start(camera);
    constexpr uint32_t kFrames = 12;
    for (uint32_t frame = 0; frame < kFrames; ++frame) {
        if (frame == kFrames / 2) {
            ASSERT_EQ(camera.stream(false), 0);
            camera.queueAll();
            ASSERT_EQ(camera.stream(true), 0);
        }
        camera.cycle();
        EXPECT_EQ(camera.shown(), (PatternCode::Reading{2, frame}));
        EXPECT_EQ(camera.last().sequence, frame % (kFrames / 2)) << "restarts with the streaming";
    }
    EXPECT_EQ(counters(1).delivered, kFrames);
    EXPECT_EQ(counters(1).dropped, 0U);
}

TEST_F(CaptureDevice, KeepsBuffersQueuedOverTheEndOfStreaming)
{
    Camera camera(scratch_, 0);
    start(camera);
    ASSERT_EQ(camera.stream(false), 0);
    EXPECT_EQ(camera.dequeue(), -EINVAL);
    camera.queueAll();  // fails for a buffer that stayed queued
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
    scratch_.pace(20);
    Camera camera(scratch_, 0);
    start(camera);
    for (uint32_t index = 0; index < kBuffers; ++index) {
        ASSERT_EQ(camera.dequeue(), 0);
    }
    // The program is away for at least four frames: that time passes is what is tested.
    const uint64_t backUs = real::monotonicUs() + 220000;
    while (real::monotonicUs() < backUs) {
        real::sleepUs(backUs - real::monotonicUs());
    }
    ASSERT_EQ(camera.queue(0), 0);
    const uint64_t dropped = counters(0).dropped;
    EXPECT_GE(dropped, 4U);
    ASSERT_EQ(camera.dequeue(), 0);
    EXPECT_EQ(camera.last().sequence, kBuffers + dropped) << "lost frames have numbers too";
    EXPECT_EQ(counters(0).dropped, dropped) << "the buffer was queued in time";
    EXPECT_EQ(counters(0).delivered, kBuffers + 1U);
}

TEST_F(CaptureDevice, ShowsTheOldInputsAfterThePairWasChanged)
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
    first.cycle();
    second.cycle();
    EXPECT_EQ(first.shown(), (PatternCode::Reading{3, 1})) << "numbers go on";
    EXPECT_EQ(second.shown(), (PatternCode::Reading{4, 1}));
    EXPECT_EQ(counters(2).delivered, 1U) << "counted by camera, not by device";
}

TEST_F(CaptureDevice, FailsOnAPairWithoutAnInputOrTakesOneThatIsNotThere)
{
    scratch_.state().cpu = board::Cpu::kDualLite;
    Camera camera(scratch_, 0);
    EXPECT_EQ(camera.setPair(0x0401), -ERANGE);
    EXPECT_EQ(camera.setPair(0x10000), -ERANGE);
    EXPECT_EQ(scratch_.state().inputPair[0], 0U);
    start(camera);
    ASSERT_EQ(camera.setPair(0x00FF), 0) << "no camera chosen";
    camera.cycle();
    EXPECT_FALSE(camera.reading(camera.last().index));
    EXPECT_EQ(scratch_.state().inputPair[1], 0U);
}

TEST_F(CaptureDevice, OffersTheInputPairOnAQuad)
{
    Camera camera(scratch_, 0);
    EXPECT_EQ(camera.setPair(0x0100), -EINVAL);
}

std::atomic<int> interrupts{0};

TEST_F(CaptureDevice, InterruptsTheProgramAtAnotherFrameThanTheLast)
{
    interrupts = 0;
    struct sigaction counting {
    }, before{};
    counting.sa_handler = [](int) { ++interrupts; };
    ::sigaction(SIGINT, &counting, &before);
    scratch_.state().frameLimit = 3;
    Camera first(scratch_, 0), other(scratch_, 1);
    start(first);
    start(other);
    for (int frame = 1; frame <= 5; ++frame) {
        other.cycle();
        EXPECT_EQ(interrupts, frame > 3 ? 1 : 0) << "other cameras do not count, frame " << frame;
        first.cycle();
        EXPECT_EQ(interrupts, frame >= 3 ? 1 : 0) << "frame " << frame;
    }
    ::sigaction(SIGINT, &before, nullptr);
}

TEST_F(CaptureDevice, WaitsForEverWhenStreamingEndsInAnotherThread)
{
    for (const unsigned framesPerSecond : {0U, 1U}) {
        scratch_.pace(framesPerSecond);
        Camera camera(scratch_, 0);
        camera.provideBuffers();
        ASSERT_EQ(camera.stream(true), 0);
        std::atomic<bool> entered{false};
        std::atomic<int> result{0};
        std::thread waiting([&] {
            entered = true;
            v4l2_buffer record = camera.bufferRecord(0);
            result = camera.call(VIDIOC_DQBUF, record);
        });
        while (!entered) {
            std::this_thread::yield();
        }
        EXPECT_EQ(camera.stream(false), 0);
        waiting.join();
        EXPECT_EQ(result, -EINVAL);
    }
}

TEST_F(CaptureDevice, SleepsThroughASignalWhileNothingIsQueued)
{
    struct sigaction ignoring {
    }, before{};
    ignoring.sa_handler = [](int) {};
    ::sigaction(SIGUSR1, &ignoring, &before);
    Camera camera(scratch_, 0);
    camera.provideBuffers();
    ASSERT_EQ(camera.stream(true), 0);
    std::atomic<int> result{1};
    std::thread waiting([&] {
        v4l2_buffer record = camera.bufferRecord(0);
        result = camera.call(VIDIOC_DQBUF, record);
    });
    while (result == 1) {
        ::pthread_kill(waiting.native_handle(), SIGUSR1);
        std::this_thread::yield();
    }
    waiting.join();
    EXPECT_EQ(result, -EINTR);
    ::sigaction(SIGUSR1, &before, nullptr);
}

class PipedCamera : public CaptureDevice {
protected:
    void SetUp() override
    {
        CaptureDevice::SetUp();
        ASSERT_EQ(::mkfifo(scratch_.file("camera1").c_str(), S_IRUSR | S_IWUSR), 0);
        end_ = ::open(scratch_.file("camera1").c_str(), O_RDWR | O_CLOEXEC);
        ASSERT_GE(end_, 0);
        counters(0).kind = board::SourceKind::kPipe;
    }
    void TearDown() override { ::close(end_); }

    void writeBytes(const std::vector<uint8_t>& bytes) const
    {
        for (size_t done = 0; done < bytes.size();) {
            const ssize_t written = ::write(end_, bytes.data() + done, bytes.size() - done);
            ASSERT_GT(written, 0);
            done += static_cast<size_t>(written);
        }
    }

    int end_ = -1;  // as the launcher holds it
};

TEST_F(PipedCamera, CutsOrShiftsPicturesThatArriveInPieces)
{
    Camera camera(scratch_, 0);
    start(camera);
    std::thread writer([this] {
        for (const uint8_t value : {uint8_t{50}, uint8_t{200}}) {
            writeBytes(std::vector<uint8_t>(board::kPictureBytes, value));
        }
    });
    for (const uint8_t value : {uint8_t{50}, uint8_t{200}}) {
        EXPECT_EQ(camera.dequeue(), 0);
        const uint8_t* picture =
            scratch_.memory().at(camera.address(camera.last().index), board::kPictureBytes);
        EXPECT_EQ(picture[0], value);
        EXPECT_EQ(picture[board::kPictureBytes - 1], value);
    }
    writer.join();
}

TEST_F(PipedCamera, FallsBehindItsFilmWhenFramesAreDropped)
{
    std::atomic<bool> enough{false};
    std::atomic<bool> ended{false};
    std::thread decoder([&] {
        for (uint8_t picture = 0; !enough; ++picture) {
            writeBytes(std::vector<uint8_t>(board::kPictureBytes, picture));
        }
        ended = true;
    });
    std::vector<uint8_t> shown(board::kPictureBytes);
    board::PipeSource source(scratch_.board(), 0);
    uint64_t frame = 1;
    ASSERT_TRUE(source.draw(frame, shown.data()));
    EXPECT_EQ(shown[0], 0);
    frame += 10;  // nine were dropped
    const auto caughtUp = [&] {
        EXPECT_TRUE(source.draw(frame, shown.data()));
        return shown[0] == static_cast<uint8_t>(frame++ - 1);
    };
    EXPECT_TRUE(support::waitUntil(caughtUp));
    for (int i = 0; i < 4; ++i) {
        EXPECT_TRUE(caughtUp()) << "it must not run ahead either";
    }
    enough = true;
    counters(0).sourceLost = 1;  // no draw waits any more
    while (!ended) {
        source.draw(frame++, shown.data());
    }
    decoder.join();
}

TEST_F(PipedCamera, HangsOrDeliversWhenItsSourceIsLost)
{
    Camera camera(scratch_, 0);
    start(camera);
    writeBytes(std::vector<uint8_t>(1000, 1));  // the beginning of a picture
    std::atomic<bool> entered{false};
    std::thread launcher([&] {
        while (!entered) {
            std::this_thread::yield();
        }
        counters(0).sourceLost = 1;
    });
    entered = true;
    EXPECT_EQ(camera.dequeue(), -EIO);
    EXPECT_EQ(camera.dequeue(), -EIO);
    EXPECT_EQ(counters(0).delivered, 0U);
    launcher.join();
}

class ClipCamera : public CaptureDevice {
protected:
    void writeClip(const std::vector<uint8_t>& values, size_t extraBytes)
    {
        std::ofstream clip(scratch_.file("camera1.nv12"), std::ios::binary);
        for (const uint8_t value : values) {
            clip << std::string(board::kPictureBytes, static_cast<char>(value));
        }
        clip << std::string(extraBytes, 'x');
        counters(0).kind = board::SourceKind::kClip;
    }
};

TEST_F(ClipCamera, LosesAPictureOrItsPlaceWhenTheClipBeginsAgain)
{
    writeClip({50, 120, 200}, 1000);
    Camera camera(scratch_, 0);
    start(camera);
    for (const uint8_t value : std::vector<uint8_t>{50, 120, 200, 50, 120}) {
        camera.cycle();
        const uint8_t* picture =
            scratch_.memory().at(camera.address(camera.last().index), board::kPictureBytes);
        EXPECT_EQ(picture[0], value);
        EXPECT_EQ(picture[board::kPictureBytes - 1], value);
    }
}

TEST_F(ClipCamera, ReadsBeyondAClipThatHoldsNoWholePicture)
{
    writeClip({}, board::kPictureBytes - 1);
    Camera camera(scratch_, 0);
    start(camera);
    EXPECT_EQ(camera.dequeue(), -EIO);
}

TEST_F(CaptureDevice, ShowsACameraWithoutASignalAsALivePicture)
{
    counters(0).kind = board::SourceKind::kNone;
    Camera camera(scratch_, 0);
    start(camera);
    camera.cycle();
    const uint32_t before = camera.address(camera.last().index);
    camera.cycle();
    const uint32_t after = camera.address(camera.last().index);
    EXPECT_EQ(std::memcmp(scratch_.memory().at(before, board::kPictureBytes),
                          scratch_.memory().at(after, board::kPictureBytes), board::kPictureBytes),
              0);
}

}  // namespace
