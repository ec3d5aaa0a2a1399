#include <gtest/gtest.h>

#include <csignal>
#include <random>
#include <regex>
#include <thread>

#include "Scenes.h"

namespace {

using control::Channels;
using control::MediaState;
using control::Status;
using support::Clock;
using support::Duration;
using support::Panel;

struct Situation {
    const char* name;
    MediaState state;
    Channels channels;
};

class Shutdown : public testing::TestWithParam<Situation> {
protected:
    void TearDown() override
    {
        // A player outlives the daemon; this one is the test's own.
        const std::string player = support::readFile(panel_.board() + "/player.id");
        if (!player.empty()) {
            ::kill(static_cast<pid_t>(std::stol(player)), SIGKILL);
        }
    }

    void bringUp()
    {
        ASSERT_TRUE(panel_.layOut());
        const std::filesystem::path player = panel_.file("/usr/bin/gst-launch-1.0");
        std::filesystem::create_directories(player.parent_path());
        std::filesystem::copy_file(PLAYER, player);
        panel_.start();
        ASSERT_TRUE(panel_.awaitUp()) << panel_.output() << panel_.errors();
    }

    /// False when the daemon does not get there.
    bool enter(const Situation& situation)
    {
        if (situation.state == MediaState::kIdle) {
            return true;  // where it begins
        }
        const bool plays = situation.state == MediaState::kPlay;
        const auto packet = plays ? control::playRequest("clip1.avi")
                                  : control::stateRequest(situation.state, situation.channels);
        const auto asked = Clock::now();
        const bool records = !plays && situation.state != MediaState::kTransfer;
        return panel_.request(*packet) &&
               panel_.watch().await(
                   [&](const Status& status) {
                       return status.state == static_cast<uint8_t>(situation.state) &&
                              status.isRecording == records;
                   },
                   asked);
    }

    Panel panel_;
};

TEST_P(Shutdown, EndsSoonWithEverythingReleasedAndTheLogCarriedOver)
{
    bringUp();
    ASSERT_TRUE(enter(GetParam())) << panel_.output();

    const auto asked = Clock::now();
    EXPECT_EQ(panel_.end(), 0) << panel_.output() << panel_.errors();
    const auto took = std::chrono::duration_cast<Duration>(Clock::now() - asked);
    RecordProperty("endedAfterMs", static_cast<int>(took.count()));
    std::printf("ended after %d ms\n", static_cast<int>(took.count()));
    constexpr Duration kASecond{1000};
    EXPECT_LT(took, kASecond * scenes::kSlowness);

    const std::string output = panel_.output();
    EXPECT_TRUE(std::regex_search(output, std::regex("Encoded [0-9]+ Frames in [0-9]+\\.[0-9]{4} Seconds\n"
                                                     "FPS [0-9]+\\.[0-9]{2}\n")))
        << output;
    const std::string log = support::readFile(panel_.file("/velmarine/f/logs/VelCam.log"));
    EXPECT_NE(log.find("[Debug]: (core): Starting all threads\r\n"), std::string::npos) << log;
    EXPECT_NE(log.find("[Notice]: (main): Shutting down application\r\n"), std::string::npos) << log;
    EXPECT_FALSE(std::filesystem::exists(panel_.file("/tmp/VelCam.log")));

    EXPECT_TRUE(support::readRecording(panel_.recording()).wellFormed);
    const auto report = panel_.report();
    ASSERT_TRUE(report.complete());
    EXPECT_EQ(report.live(), std::vector<std::string>());
    EXPECT_EQ(report.refused(), std::vector<std::string>());
}

INSTANTIATE_TEST_SUITE_P(From, Shutdown,
                         testing::Values(Situation{"Idle", MediaState::kIdle, {}},
                                         Situation{"OneCamera", MediaState::kCamera, {1}},
                                         Situation{"TwoPanes", MediaState::kCamera, {1, 2}},
                                         Situation{"Backup", MediaState::kBackup, {3}},
                                         Situation{"Transfer", MediaState::kTransfer, {1}},
                                         Situation{"Playing", MediaState::kPlay, {}}),
                         [](const auto& chosen) { return std::string(chosen.param.name); });

TEST(Endings, ADaemonWhoseCameraFailsTwiceEndsWithItsRecordingWhole)
{
    Panel panel;
    panel.start({"--cpu", "dual-lite", "--fps", "max", "--fault", "VIDIOC_DQBUF@/dev/video1#30+=EIO"});
    EXPECT_EQ(panel.awaitEnd(), 0) << panel.errors();
    const std::string message = "(VideoManager): Could not dequeue buffer from camera channel #2";
    const std::string output = panel.output();
    const size_t first = output.find(message);
    ASSERT_NE(first, std::string::npos) << output;
    EXPECT_NE(output.find(message, first + 1), std::string::npos) << output;
    EXPECT_NE(output.find("FPS "), std::string::npos);
    EXPECT_TRUE(support::readRecording(panel.recording()).wellFormed);
}

/// Runs that are interrupted at any instant of the start, of the work and of a change of state, once or
/// twice.
TEST(Endings, AnInterruptAtSomeInstantHangsTheDaemonOrTearsTheRecording)
{
    const int runs = scenes::isLong() ? 300 : 10;
    constexpr unsigned kLongest = 500'000;  // us: past the start
    constexpr int kKilledByInterrupt = 130;
    const MediaState states[] = {MediaState::kIdle, MediaState::kCamera, MediaState::kBackup,
                                 MediaState::kTransfer};
    std::minstd_rand random(11);
    Panel panel;
    int beforeItsHandler = 0;
    for (int run = 0; run < runs; ++run) {
        SCOPED_TRACE("run " + std::to_string(run));
        panel.start(
            {"--cpu", run % 2 == 0 ? "dual-lite" : "quad", "--fps", "max", "--codec-preset", "ultrafast"});
        std::this_thread::sleep_for(std::chrono::microseconds(random() % (kLongest * scenes::kSlowness)));
        panel.request(
            control::stateRequest(states[random() % std::size(states)], {1, 2}));  // it may not be up yet
        std::this_thread::sleep_for(std::chrono::microseconds(random() % kLongest));
        panel.interrupt();
        if (random() % 2 == 0) {
            panel.interrupt();
        }
        const auto status = panel.awaitEnd();
        ASSERT_TRUE(status == 0 || status == kKilledByInterrupt) << panel.output() << panel.errors();
        beforeItsHandler += status == 0 ? 0 : 1;
        if (status == 0) {
            EXPECT_EQ(panel.report().live(), std::vector<std::string>());
            EXPECT_EQ(panel.report().refused(), std::vector<std::string>());
        }
        const bool written = std::filesystem::exists(panel.recording());
        ASSERT_TRUE(!written || support::readRecording(panel.recording()).wellFormed);
        std::error_code none;  // the next run begins without one
        std::filesystem::remove(panel.recording(), none);
    }
    std::printf("%d runs, %d of them interrupted before the daemon was ready for it\n", runs,
                beforeItsHandler);
    EXPECT_LT(beforeItsHandler, runs);
}

TEST(Endings, AMediumThatHangsKeepsNeitherTheFramesNorTheEnd)
{
    Panel panel;
    panel.start({"--cpu", "dual-lite", "--fps", "max", "--fault", "fsync@*/cam.avi#1+=hang"});
    ASSERT_TRUE(panel.awaitUp()) << panel.errors();
    constexpr size_t kMany = 100;
    EXPECT_TRUE(
        support::waitUntil([&] { return support::readRecording(panel.recording()).chunks.size() > kMany; }));
    const auto asked = Clock::now();
    EXPECT_EQ(panel.end(), 0) << panel.errors();
    constexpr Duration kASecond{1000};
    EXPECT_LT(std::chrono::duration_cast<Duration>(Clock::now() - asked), kASecond * scenes::kSlowness);
    EXPECT_EQ(panel.report().faultsFired(), 1U) << "nothing else waited for the medium";
    EXPECT_TRUE(support::readRecording(panel.recording()).wellFormed);
}

TEST(Endings, AMediumThatRefusesIsSaidOnceInTheLog)
{
    Panel panel;
    panel.start({"--cpu", "dual-lite", "--fps", "max", "--fault", "fsync@*camrecord*#*=EIO"});
    ASSERT_TRUE(panel.awaitUp()) << panel.errors();
    const std::string line = "[Warning]: (core): Recording does not reach its medium";
    ASSERT_TRUE(panel.awaitOutput(line));
    constexpr int kOverTwoSeconds = 25;  // reports; it is looked at in every tenth
    for (int report = 0; report < kOverTwoSeconds; ++report) {
        ASSERT_TRUE(panel.watch().await([](const Status&) { return true; }, Clock::now()));
    }
    EXPECT_EQ(panel.end(), 0);
    const std::string output = panel.output();
    EXPECT_EQ(output.find(line, output.find(line) + 1), std::string::npos) << output;
}

TEST(Endings, ACameraThatFailsOnceDoesNotEndTheDaemon)
{
    Panel panel;
    panel.start({"--cpu", "dual-lite", "--fps", "max", "--frames", "100", "--fault",
                 "VIDIOC_DQBUF@/dev/video1#30=EIO"});
    EXPECT_EQ(panel.awaitEnd(), 0) << panel.errors();
    EXPECT_EQ(panel.report().faultsFired(), 1U);
    constexpr size_t kEnough = 60;
    EXPECT_GT(support::readRecording(panel.recording()).chunks.size(), kEnough);
}

}  // namespace
