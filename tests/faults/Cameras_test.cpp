#include <gtest/gtest.h>

#include "Drive.h"
#include "Scenes.h"
#include "Stated.h"

namespace {

using faults::Effect;
using support::Clock;
using support::Panel;

/// What cameras do that no call reports, and what is to become of the daemon.
struct Trouble {
    const char* name;
    support::Command faults;
    Effect effect;
    const char* message;  ///< empty: nothing needs to be said
};
void PrintTo(const Trouble& trouble, std::ostream* stream)
{
    *stream << trouble.name;
}

class Cameras : public testing::TestWithParam<Trouble> {};

TEST_P(Cameras, StopTheRecordingOrTheDaemon)
{
    faults::Drive drive(PLAYER);
    support::Command options = GetParam().faults;
    options.insert(options.begin(), {"--cpu", "quad"});
    const auto result = drive.run(options);
    const std::string told = result.output + result.errors;
    EXPECT_EQ(result.status, 0) << told;
    EXPECT_EQ(faults::effectOf(result), GetParam().effect) << told;
    EXPECT_NE(result.output.find(GetParam().message), std::string::npos) << told;
    EXPECT_GT(result.report.faultsFired(), 0U);
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
        // Each failed pass leaves the frames of the other cameras with the daemon; four buffers are soon
        // gone.
        Trouble{"FailNowAndThen",
                {"--fault", "VIDIOC_DQBUF@/dev/video3#3/3=EIO"},
                Effect::kGoesOn,
                "Could not dequeue buffer from camera channel #4"},
        Trouble{"AreGone",
                {"--fault", "VIDIOC_DQBUF@/dev/video1#6=gone"},
                Effect::kEnds,
                "Could not dequeue buffer from camera channel #2"}),
    [](const auto& chosen) { return std::string(chosen.param.name); });

TEST(Copies, ThatFailNowAndThenUseUpTheBuffers)
{
    faults::Drive drive(PLAYER);
    const auto result = drive.run({"--cpu", "quad", "--fault", "IPU_QUEUE_TASK@*#8/7=EINVAL"});
    EXPECT_EQ(faults::effectOf(result), Effect::kGoesOn) << result.output;
    EXPECT_EQ(result.status, 0);
    // Four make the daemon wait for ever; a sanitized build may not get so far.
    constexpr uint64_t kBuffers = 4;
    EXPECT_GE(result.report.faultsFired(), scenes::kSlowness == 1 ? kBuffers : 1);
    EXPECT_EQ(result.report.refused(), std::vector<std::string>());
}

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
    const auto asked = Clock::now();
    EXPECT_EQ(panel.end(), 0) << panel.output() << panel.errors();
    constexpr support::Duration kTwoReminders{3000};
    EXPECT_LT(Clock::now() - asked, kTwoReminders * scenes::kSlowness);
    EXPECT_NE(panel.output().find("Could not dequeue buffer from camera channel #3"), std::string::npos);
    EXPECT_EQ(panel.report().live(), std::vector<std::string>());
    const auto recording = support::readRecording(panel.recording());
    EXPECT_TRUE(recording.wellFormed);
    EXPECT_EQ(recording.chunks.size(), kAllThatCame);
}

INSTANTIATE_TEST_SUITE_P(When, StoppedCamera, testing::Bool(),
                         [](const auto& chosen) { return chosen.param ? "AStopIsAwaited" : "Idle"; });

/// A copy to its pages would go to address 0, or to where they were before the mode was set, and end the
/// loop.
TEST(Overlay, ThatDoesNotOpenStopsTheRecording)
{
    faults::Drive drive(PLAYER);
    for (const char* fault : {"FBIOGET_FSCREENINFO@/dev/fb1#*=EIO", "mmap@/dev/fb1#2+=ENOMEM"}) {
        SCOPED_TRACE(fault);
        const auto result = drive.run({"--cpu", "dual-lite", "--fault", fault});
        EXPECT_EQ(faults::effectOf(result), Effect::kGoesOn) << result.output;
        EXPECT_NE(result.output.find("(VideoManager): Could not open overlay"), std::string::npos);
        EXPECT_EQ(result.report.refused(), std::vector<std::string>());
        EXPECT_GT(result.recording.frames, 0U);
    }
}

}  // namespace
