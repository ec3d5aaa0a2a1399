#include "drivers/cam_v4l.h"

#include <gtest/gtest.h>
#include <sys/time.h>

#include <array>
#include <csignal>
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

    explicit Channel(int format = fourcc("NV12")) { info.format = format; }

    bool setup(const char* node = kNode)
    {
        info.ipu = &ipu;
        return ipu.setup("/dev/mxc_ipu", true, 0, false) && camera.setup(node, info);
    }

    std::optional<board::PatternCode::Reading> newest() const
    {
        const auto width = board::PatternCode::kPictureWidth;
        return board::PatternCode::read(driver::memoryAt(camera.getBufferOffset()), width, 0, 0, width,
                                        board::PatternCode::kPictureHeight);
    }
};

BOARD_TEST(cam_v4l, TakesItsGeometryFromTheDriver, Command())
{
    Channel channel;
    ASSERT_TRUE(channel.setup());
    EXPECT_EQ(channel.info.memType, V4L2_MEMORY_USERPTR);
    EXPECT_EQ(channel.info.width, 720);
    EXPECT_EQ(channel.info.height, 480);
    EXPECT_EQ(channel.info.framesize, 720 * 480 * 3 / 2);
}

BOARD_TEST(cam_v4l, DeliversEveryFrameAndKnowsTheBufferBefore, (Command{"--fps", "max"}))
{
    Channel channel;
    ASSERT_TRUE(channel.setup() && channel.camera.start());
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
}

BOARD_TEST(cam_v4l, StreamsAgainAfterOffAndOn, (Command{"--fps", "max"}))
{
    Channel channel;
    EXPECT_TRUE(channel.camera.off() && channel.camera.on()) << "nothing to do before start";
    ASSERT_TRUE(channel.setup() && channel.camera.start());
    ASSERT_TRUE(channel.camera.dequeue_buffer() && channel.camera.queue_buffer());
    ASSERT_TRUE(channel.camera.off());
    ASSERT_TRUE(channel.camera.on());
    EXPECT_TRUE(channel.camera.dequeue_buffer());
    EXPECT_TRUE(channel.newest());
}

BOARD_TEST(cam_v4l, SwitchesTheInputsOfADualLite, (Command{"--cpu", "dual-lite", "--fps", "max"}))
{
    Channel channel;
    ASSERT_TRUE(channel.setup() && channel.camera.start());
    ASSERT_TRUE(channel.camera.off());
    ASSERT_TRUE(channel.camera.changeChannels(3, 4));
    EXPECT_EQ(board::Board::current()->state().inputPair[0], 2U);
    EXPECT_EQ(board::Board::current()->state().inputPair[1], 3U);
    ASSERT_TRUE(channel.camera.on() && channel.camera.dequeue_buffer());
    ASSERT_TRUE(channel.newest());
    EXPECT_EQ(channel.newest()->camera, 3U);
}

TEST(cam_v4l, RefusesAFormatWhoseFramesItCannotMeasure)
{
    support::runOnBoard(
        {},
        [] {
            Channel channel(fourcc("BM81"));
            EXPECT_FALSE(channel.setup());
        },
        Leaves::kSomething);
}

class SetupFailure : public testing::TestWithParam<Failure> {};

TEST_P(SetupFailure, IsSaidWithItsStepAndLeavesTheNodeAsItShould)
{
    support::runOnBoard(
        {"--fault", GetParam().fault},
        [] {
            const long before = driver::openDescriptors();
            {
                mx_ipu ipu;
                cam_v4l::CAM_INFO info = {};
                info.format = fourcc("NV12");
                info.ipu = &ipu;
                cam_v4l camera;
                EXPECT_EQ(outputOf([&] { EXPECT_FALSE(camera.setup(kNode, info)); }), GetParam().message);
                EXPECT_EQ(driver::openDescriptors() > before, GetParam().staysOpen);
            }
            EXPECT_EQ(driver::openDescriptors(), before);
        },
        Leaves::kSomething);
}

INSTANTIATE_TEST_SUITE_P(
    cam_v4l, SetupFailure,
    testing::Values(Failure{"Open", "open@/dev/video0#*=ENODEV", "Unable to open /dev/video0\n", false},
                    Failure{"QueryCap", "VIDIOC_QUERYCAP@/dev/video0#*=EIO",
                            "/dev/video0 VIDIOC_QUERYCAP Error 5", false},
                    Failure{"Input", "VIDIOC_S_INPUT@/dev/video0#*=EINVAL", "", false},
                    Failure{"Parm", "VIDIOC_S_PARM@/dev/video0#*=EINVAL", "VIDIOC_S_PARM failed\n", false},
                    Failure{"Format", "VIDIOC_S_FMT@/dev/video0#*=EINVAL",
                            "/dev/video0 iformat not supported \n", true},
                    Failure{"ReadFormat", "VIDIOC_G_FMT@/dev/video0#*=EINVAL", "", false},
                    Failure{"Buffers", "VIDIOC_REQBUFS@/dev/video0#*=ENOMEM",
                            "/dev/video0 VIDEOC_REQBUFS Error 12", true}),
    driver::nameOf);

TEST(cam_v4l, GivesUpWhenNeitherTheWindowNorItsDefaultIsToBeHad)
{
    support::runOnBoard(
        {"--fault", "VIDIOC_CROPCAP@/dev/video0#*=EINVAL", "--fault", "VIDIOC_S_CROP@/dev/video0#*=EINVAL"},
        [] {
            Channel channel;
            EXPECT_EQ(outputOf([&] { EXPECT_FALSE(channel.setup()); }), "");
        },
        Leaves::kSomething);
}

TEST(cam_v4l, IgnoresAnyOtherReasonWhyTheWindowCannotBeSet)
{
    support::runOnBoard(
        {"--fault", "VIDIOC_CROPCAP@/dev/video0#*=EINVAL", "--fault", "VIDIOC_S_CROP@/dev/video0#*=EPERM"},
        [] {
            Channel channel;
            EXPECT_TRUE(channel.setup());
        });
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
    testing::Values(Failure{"FirstAllocation", "IPU_ALLOC@/dev/mxc_ipu#1=ENOMEM", "", true},
                    Failure{"LastAllocation", "IPU_ALLOC@/dev/mxc_ipu#4=ENOMEM", "", true},
                    Failure{"Mapping", "mmap@/dev/mxc_ipu#2=ENOMEM", "", true},
                    Failure{"Query", "VIDIOC_QUERYBUF@/dev/video0#2=EIO", "VIDIOC_QUERYBUF error\n", true},
                    Failure{"Queue", "VIDIOC_QBUF@/dev/video0#4=EIO", "VIDIOC_QBUF error\n", true},
                    Failure{"Stream", "VIDIOC_STREAMON@/dev/video0#1=EIO", "VIDIOC_STREAMON error\n", true}),
    driver::nameOf);

BOARD_TEST(cam_v4l, AFailedDequeueIsSilentAndTheNextOneWorks,
           (Command{"--fps", "max", "--fault", "VIDIOC_DQBUF@/dev/video0#2=EIO"}))
{
    Channel channel;
    ASSERT_TRUE(channel.setup() && channel.camera.start());
    ASSERT_TRUE(channel.camera.dequeue_buffer() && channel.camera.queue_buffer());
    EXPECT_EQ(outputOf([&] { EXPECT_FALSE(channel.camera.dequeue_buffer()); }), "");
    EXPECT_TRUE(channel.camera.dequeue_buffer());
}

BOARD_TEST(cam_v4l, AStoppedCameraCannotBeLeft,
           (Command{"--fps", "max", "--fault", "VIDIOC_DQBUF@/dev/video0#3+=hang"}))
{
    Channel channel;
    ASSERT_TRUE(channel.setup() && channel.camera.start());
    struct sigaction action = {};
    action.sa_handler = [](int) {};  // without SA_RESTART
    ASSERT_EQ(sigaction(SIGALRM, &action, nullptr), 0);
    constexpr itimerval kEach10Ms{{0, 10'000}, {0, 10'000}};
    ASSERT_EQ(setitimer(ITIMER_REAL, &kEach10Ms, nullptr), 0);
    EXPECT_TRUE(channel.camera.dequeue_buffer());
    EXPECT_TRUE(channel.camera.holdsFrame());
    EXPECT_TRUE(channel.camera.queue_buffer());
    EXPECT_FALSE(channel.camera.holdsFrame());
    EXPECT_TRUE(channel.camera.dequeue_buffer() && channel.camera.queue_buffer());
    EXPECT_FALSE(channel.camera.dequeue_buffer());
    EXPECT_FALSE(channel.camera.holdsFrame());
    constexpr itimerval kNever{};
    setitimer(ITIMER_REAL, &kNever, nullptr);
}

BOARD_TEST(cam_v4l, ASignalCostsAFrame,
           (Command{"--fps", "max", "--fault", "VIDIOC_DQBUF@/dev/video0#1=EINTR"}))
{
    Channel channel;
    ASSERT_TRUE(channel.setup() && channel.camera.start());
    EXPECT_TRUE(channel.camera.dequeue_buffer());
}

}  // namespace
