#include <gtest/gtest.h>

#include "Drive.h"
#include "Scenes.h"
#include "Stated.h"

namespace {

using faults::Effect;
using support::operator+;
using support::Panel;

/// What cameras do that no call reports, or calls again and again, and what is to become of the daemon.
struct Trouble {
    const char* name;
    support::Command faults;
    Effect effect;
    const char* message;  ///< empty: nothing needs to be said
    uint64_t times = 1;   ///< so often at least it has to happen; once where a sanitized build is slow
};
void PrintTo(const Trouble& trouble, std::ostream* stream)
{
    *stream << trouble.name;
}

class Cameras : public testing::TestWithParam<Trouble> {};

TEST_P(Cameras, StopTheRecordingOrTheDaemon)
{
    faults::Drive drive(PLAYER);
    const auto result = drive.run(support::Command{"--cpu", "quad"} + GetParam().faults);
    const std::string told = result.output + result.errors;
    EXPECT_EQ(result.status, 0) << told;
    EXPECT_EQ(faults::effectOf(result), GetParam().effect) << told;
    EXPECT_NE(result.output.find(GetParam().message), std::string::npos) << told;
    EXPECT_GE(result.report.faultsFired(), scenes::kSlowness == 1 ? GetParam().times : 1);
    EXPECT_EQ(result.report.live(), std::vector<std::string>());
    EXPECT_EQ(result.report.refused(), std::vector<std::string>());
    EXPECT_GT(result.recording.frames, 0U);
    EXPECT_TRUE(result.recording.header && result.recording.opens);
    EXPECT_EQ(result.recording.damage, std::vector<std::string>());
}

INSTANTIATE_TEST_SUITE_P(
    That, Cameras,
    testing::Values(
        Trouble{
            "WrapTheirNumbersAndTimes", {"--fault", "VIDIOC_DQBUF@/dev/video?#5=wrap"}, Effect::kGoesOn, ""},
        Trouble{
            "LoseAShareOfTheirFrames",
            {"--fault", "VIDIOC_DQBUF@/dev/video1#2/3=lost", "--fault", "VIDIOC_DQBUF@/dev/video3#4/5=lost"},
            Effect::kGoesOn,
            ""},
        Trouble{"MarkBuffersAsBad", {"--fault", "VIDIOC_DQBUF@/dev/video?#3/4=bad"}, Effect::kGoesOn, ""},
        Trouble{"LoseTheirVideoStandard",
                {"--fault", "VIDIOC_DQBUF@/dev/video2#4=nosignal"},
                Effect::kGoesOn,
                ""},
        // Each failed pass leaves the daemon a frame of each other camera; four buffers are soon gone.
        Trouble{"FailNowAndThen",
                {"--fault", "VIDIOC_DQBUF@/dev/video3#3/3=EIO"},
                Effect::kGoesOn,
                "Could not dequeue buffer from camera channel #4"},
        Trouble{"AreGone",
                {"--fault", "VIDIOC_DQBUF@/dev/video1#6=gone"},
                Effect::kEnds,
                "Could not dequeue buffer from camera channel #2"},
        // A failed copy, too, leaves a frame of each: four make the daemon wait for ever.
        Trouble{"HaveACopyFailNowAndThen",
                {"--fault", "IPU_QUEUE_TASK@*#8/7=EINVAL"},
                Effect::kGoesOn,
                "Could not copy",
                4},
        // A copy to its pages would go to address 0, or to where they were before the mode was set.
        Trouble{"FindNoOverlay",
                {"--fault", "FBIOGET_FSCREENINFO@/dev/fb1#*=EIO"},
                Effect::kGoesOn,
                "(VideoManager): Could not open overlay"},
        Trouble{"FindNoPagesOfTheOverlay",
                {"--fault", "mmap@/dev/fb1#2+=ENOMEM"},
                Effect::kGoesOn,
                "(VideoManager): Could not open overlay"}),
    [](const auto& chosen) { return std::string(chosen.param.name); });

/// The camera to stop, and whether requests are pending that wait for the frame loop.
class StoppedCamera : public testing::TestWithParam<bool> {};

TEST_P(StoppedCamera, KeepsTheDaemonFromEnding)
{
    Panel panel;
    panel.start({"--cpu", "quad", "--fault", "VIDIOC_DQBUF@/dev/video2#30+=hang"});
    ASSERT_TRUE(panel.awaitUp()) << panel.output() << panel.errors();
    const auto frames = [&] { return support::readRecording(panel.recording()).chunks.size(); };
    constexpr size_t kAllThatCame = 28;  // of 29 the first is not encoded
    ASSERT_TRUE(support::waitUntil([&] { return frames() == kAllThatCame; })) << frames();
    if (GetParam()) {
        ASSERT_TRUE(panel.request(control::stateRequest(control::MediaState::kTransfer, {})));
        ASSERT_TRUE(panel.awaitOutput("Req State Transfer"));
    }
    EXPECT_EQ(panel.end(), 0) << panel.output() << panel.errors();
    EXPECT_TRUE(panel.said("Could not dequeue buffer from camera channel #3"));
    EXPECT_EQ(panel.report().live(), std::vector<std::string>());
    const auto recording = support::readRecording(panel.recording());
    EXPECT_TRUE(recording.wellFormed);
    EXPECT_EQ(recording.chunks.size(), kAllThatCame);
}

INSTANTIATE_TEST_SUITE_P(When, StoppedCamera, testing::Bool(),
                         [](const auto& chosen) { return chosen.param ? "AStopIsAwaited" : "Idle"; });

}  // namespace
