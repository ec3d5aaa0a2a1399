#include "drivers/cam_v4l.h"

#include <gtest/gtest.h>

#include <array>
#include <optional>

#include "Driver.h"
#include "capture/PatternCode.h"

namespace {

using driver::Failure;
using driver::fourcc;
using driver::outputOf;
using support::Command;
using support::Leaves;

constexpr const char* kNode = "/dev/video0";

/// A channel with the IPU that it takes its buffers from; the channel goes first.
struct Channel {
    mx_ipu ipu;
    cam_v4l::CAM_INFO info = {};
    cam_v4l camera;

    explicit Channel(int format = fourcc("NV12"))
    {
        info.format = format;
        info.ipu = &ipu;
    }

    bool setup() { return ipu.setup("/dev/mxc_ipu", true, 0, false) && camera.setup(kNode, info); }

    std::optional<board::PatternCode::Reading> newest() const
    {
        const auto width = board::PatternCode::kPictureWidth;
        return board::PatternCode::read(driver::memoryAt(camera.getBufferOffset()), width, 0, 0, width,
                                        board::PatternCode::kPictureHeight);
    }
};

BOARD_TEST(cam_v4l, DeliversEveryFrameAndKnowsTheBufferBefore, (Command{"--fps", "max"}))
{
    Channel channel;
    EXPECT_TRUE(channel.camera.off() && channel.camera.on()) << "nothing to do before start";
    ASSERT_TRUE(channel.setup() && channel.camera.start());
    EXPECT_EQ(channel.info.memType, V4L2_MEMORY_USERPTR);
    EXPECT_EQ(channel.info.width, 720);
    EXPECT_EQ(channel.info.height, 480);
    EXPECT_EQ(channel.info.framesize, 720 * 480 * 3 / 2);
    std::array<size_t, cam_v4l::kBuffers> offsets = {};
    offsets[0] = channel.camera.getBufferOffset();
    offsets[3] = channel.camera.getLastBufferOffset();
    EXPECT_NE(offsets[0], offsets[3]);

    uint32_t before = 0;
    size_t offsetBefore = 0;
    constexpr int kTwiceAround = 9;
    for (int i = 0; i < kTwiceAround; ++i) {
        ASSERT_TRUE(channel.camera.dequeue_buffer());
        const auto shown = channel.newest();
        ASSERT_TRUE(shown);
        EXPECT_EQ(shown->camera, 1U);
        if (i > 0) {
            EXPECT_EQ(shown->frame, before + 1);
            EXPECT_EQ(channel.camera.getLastBufferOffset(), offsetBefore);
        } else {
            EXPECT_EQ(channel.camera.getBufferOffset(), offsets[0]);
            EXPECT_EQ(channel.camera.getLastBufferOffset(), offsets[3]) << "3 comes before 0";
        }
        before = shown->frame;
        offsetBefore = channel.camera.getBufferOffset();
        ASSERT_TRUE(channel.camera.queue_buffer());
    }
    ASSERT_TRUE(channel.camera.off() && channel.camera.on());
    EXPECT_TRUE(channel.camera.dequeue_buffer() && channel.newest());
}

BOARD_TEST_LEAVING(cam_v4l, TakesAFormatWhoseFramesItCannotMeasure, Command(), Leaves::kSomething)
{
    EXPECT_FALSE(Channel(fourcc("BM81")).setup());
}

class SetupFailure : public testing::TestWithParam<Failure> {};

TEST_P(SetupFailure, IsSaidWithItsStepAndLeavesTheNodeAsItShould)
{
    support::runOnBoard(
        {"--fault", GetParam().fault},
        [] {
            const long before = driver::openDescriptors();
            {
                Channel channel;
                EXPECT_EQ(outputOf([&] { EXPECT_FALSE(channel.camera.setup(kNode, channel.info)); }),
                          GetParam().message);
                EXPECT_EQ(driver::openDescriptors() > before, GetParam().staysOpen);
            }
            EXPECT_EQ(driver::openDescriptors(), before);
        },
        Leaves::kSomething);
}

INSTANTIATE_TEST_SUITE_P(
    cam_v4l, SetupFailure,
    testing::Values(
        Failure{"Open", "open@/dev/video0#*=ENODEV", "Unable to open /dev/video0\n"},
        Failure{"QueryCap", "VIDIOC_QUERYCAP@/dev/video0#*=EIO", "/dev/video0 VIDIOC_QUERYCAP Error 5"},
        Failure{"Input", "VIDIOC_S_INPUT@/dev/video0#*=EINVAL", ""},
        Failure{"Parm", "VIDIOC_S_PARM@/dev/video0#*=EINVAL", "VIDIOC_S_PARM failed\n"},
        Failure{"Format", "VIDIOC_S_FMT@/dev/video0#*=EINVAL", "/dev/video0 iformat not supported \n", true},
        Failure{"ReadFormat", "VIDIOC_G_FMT@/dev/video0#*=EINVAL", ""},
        Failure{"Buffers", "VIDIOC_REQBUFS@/dev/video0#*=ENOMEM", "/dev/video0 VIDEOC_REQBUFS Error 12",
                true}),
    driver::nameOf);

constexpr const char* kNoWindow = "VIDIOC_CROPCAP@/dev/video0#*=EINVAL";

BOARD_TEST_LEAVING(cam_v4l, GoesOnWithoutAWindowOrItsDefault,
                   (Command{"--fault", kNoWindow, "--fault", "VIDIOC_S_CROP@/dev/video0#*=EINVAL"}),
                   Leaves::kSomething)
{
    Channel channel;
    EXPECT_EQ(outputOf([&] { EXPECT_FALSE(channel.setup()); }), "");
}

BOARD_TEST(cam_v4l, GivesUpForAnotherReasonWhyTheWindowCannotBeSet,
           (Command{"--fault", kNoWindow, "--fault", "VIDIOC_S_CROP@/dev/video0#*=EPERM"}))
{
    EXPECT_TRUE(Channel().setup());
}

class StartFailure : public testing::TestWithParam<Failure> {};

TEST_P(StartFailure, IsSaidWithItsStepAndLeaksNothing)
{
    support::runOnBoard({"--fault", GetParam().fault}, [] {
        Channel channel;
        ASSERT_TRUE(channel.setup());
        EXPECT_EQ(outputOf([&] { EXPECT_FALSE(channel.camera.start()); }), GetParam().message);
    });
}

INSTANTIATE_TEST_SUITE_P(
    cam_v4l, StartFailure,
    testing::Values(Failure{"FirstAllocation", "IPU_ALLOC@/dev/mxc_ipu#1=ENOMEM", ""},
                    Failure{"LastAllocation", "IPU_ALLOC@/dev/mxc_ipu#4=ENOMEM", ""},
                    Failure{"Mapping", "mmap@/dev/mxc_ipu#2=ENOMEM", ""},
                    Failure{"Query", "VIDIOC_QUERYBUF@/dev/video0#2=EIO", "VIDIOC_QUERYBUF error\n"},
                    Failure{"Queue", "VIDIOC_QBUF@/dev/video0#4=EIO", "VIDIOC_QBUF error\n"},
                    Failure{"Stream", "VIDIOC_STREAMON@/dev/video0#1=EIO", "VIDIOC_STREAMON error\n"}),
    driver::nameOf);

BOARD_TEST(cam_v4l, ASignalCostsAFrameOrAFailedDequeueTheNext,
           (Command{"--fps", "max", "--fault", "VIDIOC_DQBUF@/dev/video0#1=EINTR", "--fault",
                    "VIDIOC_DQBUF@/dev/video0#3=EIO"}))
{
    Channel channel;
    ASSERT_TRUE(channel.setup() && channel.camera.start());
    ASSERT_TRUE(channel.camera.dequeue_buffer() && channel.camera.queue_buffer());
    EXPECT_EQ(outputOf([&] { EXPECT_FALSE(channel.camera.dequeue_buffer()); }), "");
    EXPECT_TRUE(channel.camera.dequeue_buffer());
}

}  // namespace
