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
    void SetUp() override { ASSERT_TRUE(panel_.layOutWithPlayer(PLAYER)); }

    /// False when the daemon does not get there.
    bool enter(const Situation& situation)
    {
        if (situation.state == MediaState::kIdle) {
            return true;  // where it begins
        }
        const bool plays = situation.state == MediaState::kPlay;
        const auto packet = plays ? control::playRequest("clip1.avi")
                                  : control::stateRequest(situation.state, situation.channels);
        const bool records = !plays && situation.state != MediaState::kTransfer;
        const auto isThere = [&](const Status& status) {
            return status.state == static_cast<uint8_t>(situation.state) && status.isRecording == records;
        };
        const auto asked = Clock::now();
        return panel_.request(*packet) && panel_.watch().await(isThere, asked);
    }

    /// A run that is ended in this situation: how long that takes.
    Duration runAndEnd(const Situation& situation)
    {
        panel_.start();
        EXPECT_TRUE(panel_.awaitUp() && enter(situation)) << panel_.output() << panel_.errors();
        const auto asked = Clock::now();
        EXPECT_EQ(panel_.end(), 0) << panel_.output() << panel_.errors();
        const auto took = std::chrono::duration_cast<Duration>(Clock::now() - asked);
        std::printf("ended after %d ms\n", static_cast<int>(took.count()));
        return took;
    }

    Panel panel_;
};

TEST_P(Shutdown, EndsSoonWithEverythingReleasedAndTheLogCarriedOver)
{
    // A busy machine takes longer now and then; a daemon that waits for something does so each time.
    constexpr int kTries = 3;
    constexpr Duration kSoon{1000 * scenes::kSlowness};
    Duration took = runAndEnd(GetParam());
    for (int tries = 1; tries < kTries && took > kSoon && !HasFailure(); ++tries) {
        took = runAndEnd(GetParam());
    }
    EXPECT_LE(took, kSoon);

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

/// Runs that are interrupted at any instant of the start, the work and a change of state, once or twice.
TEST(Endings, AnInterruptAtSomeInstantHangsTheDaemonOrTearsTheRecording)
{
    const int runs = support::isLong() ? 300 : 10;
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
    EXPECT_EQ(panel.end(), 0) << panel.errors();
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
    constexpr int kOverTwoSeconds = 25;  // reports; the medium is tried in every tenth
    ASSERT_TRUE(panel.awaitReports(kOverTwoSeconds));
    EXPECT_EQ(panel.end(), 0);
    const std::string output = panel.output();
    EXPECT_EQ(output.find(line, output.find(line) + 1), std::string::npos) << output;
}

}  // namespace
