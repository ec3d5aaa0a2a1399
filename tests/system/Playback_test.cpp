#include <gtest/gtest.h>

#include <csignal>

#include "Scenes.h"

namespace {

using control::MediaState;
using control::Status;
using support::Clock;
using support::Panel;
using support::operator+;

/// A panel whose media player is the stand-in.
class Playback : public testing::Test {
protected:
    void SetUp() override { bringUp({}); }

    void bringUp(const support::Command& faults)
    {
        ASSERT_TRUE(panel_.layOutWithPlayer(PLAYER));
        panel_.start(support::Command{"--cpu", "dual-lite"} + faults);
        ASSERT_TRUE(panel_.awaitUp()) << panel_.output() << panel_.errors();
    }

    void play(const std::string& name)
    {
        const auto packet = control::playRequest(name);
        ASSERT_TRUE(packet);
        asked_ = Clock::now();
        ASSERT_TRUE(panel_.request(*packet));
    }

    bool awaitStatus(const support::StatusWatch::Condition& condition)
    {
        return panel_.watch().await(condition, asked_).has_value();
    }

    std::string note(const std::string& name) const
    {
        return support::readFile(panel_.board() + "/player." + name);
    }
    bool awaitNote(const std::string& name) const
    {
        return support::waitUntil(
            [&] { return std::filesystem::exists(panel_.board() + "/player." + name); });
    }
    /// Also when it has ended and was not collected.
    bool playerIsThere() const { return ::kill(static_cast<pid_t>(std::stol(note("id"))), 0) == 0; }

    Panel panel_;

private:
    Clock::time_point asked_;
};

bool isPlaying(const Status& status)
{
    return status.state == static_cast<uint8_t>(MediaState::kPlay) && !status.isRecording &&
           !status.playbackDone;
}

TEST_F(Playback, StartsThePlayerAsGivenAndEndsItOnIdle)
{
    const std::string name = "a b;touch hurt $(touch hurt) %s%n.avi";  // no part of it is run
    play(name);
    ASSERT_TRUE(awaitNote("id")) << panel_.output();
    EXPECT_EQ(note("arguments"),
              "gst-launch-1.0\nfilesrc\nlocation=/velmarine/f/video/" + name +
                  "\n!\ndecodebin\nname=d\n!\nvideoconvert\n!\nimxipuvideosink\nframebuffer=/dev/fb1\n"
                  "d.\n!\naudioconvert\n!\naudioresample\n!\nautoaudiosink\n");
    EXPECT_EQ(note("group"), note("id"));
    ASSERT_TRUE(awaitStatus(isPlaying));
    const auto size = std::filesystem::file_size(panel_.recording());
    EXPECT_TRUE(support::readRecording(panel_.recording()).wellFormed);
    for (int report = 0; report < 5; ++report) {
        ASSERT_TRUE(panel_.watch().await(isPlaying, Clock::now()));
    }
    EXPECT_EQ(std::filesystem::file_size(panel_.recording()), size) << "recorded on while playing";

    ASSERT_TRUE(panel_.enter(MediaState::kIdle));
    EXPECT_TRUE(awaitNote("interrupted"));
    EXPECT_TRUE(awaitStatus([](const Status& status) { return status.playbackDone && status.isRecording; }));
    EXPECT_FALSE(playerIsThere()) << "not collected";
    EXPECT_EQ(panel_.end(), 0);
    EXPECT_EQ(panel_.report().live(), std::vector<std::string>());
}

TEST_F(Playback, ReportsAVideoThatEndsByItself)
{
    play("short.avi");
    EXPECT_TRUE(awaitStatus([](const Status& status) {
        return status.state == static_cast<uint8_t>(MediaState::kPlay) && status.playbackDone &&
               !status.isRecording;
    }));
    EXPECT_FALSE(playerIsThere()) << "not collected";
    EXPECT_EQ(panel_.end(), 0);
}

class PlaybackWithoutAProcess : public Playback {
protected:
    void SetUp() override { bringUp({"--fault", "fork@velcamd#1=EAGAIN"}); }
};

TEST_F(PlaybackWithoutAProcess, GoesOnAsIfItPlayedOrPlaysNoMore)
{
    play("clip1.avi");
    EXPECT_TRUE(panel_.awaitOutput("(VideoManager): Unable to create process for video playback"));
    EXPECT_EQ(note("id"), "");
    ASSERT_TRUE(panel_.enter(MediaState::kIdle));
    EXPECT_TRUE(awaitStatus([](const Status& status) { return status.isRecording; }));
    play("short.avi");
    EXPECT_TRUE(awaitStatus([](const Status& status) { return status.playbackDone; }));
    EXPECT_NE(note("id"), "");
    EXPECT_EQ(panel_.end(), 0);
}

TEST_F(Playback, LeavesThePlayersOverlayAloneInATransferThatFollows)
{
    play("clip1.avi");
    ASSERT_TRUE(awaitStatus(isPlaying));
    ASSERT_TRUE(panel_.enter(MediaState::kTransfer, {1, 2}));
    EXPECT_TRUE(panel_.awaitReports(5)) << panel_.output();  // some frames each
    EXPECT_TRUE(panel_.running()) << panel_.output();
    EXPECT_FALSE(panel_.said("Could not process framebuffer"));
    EXPECT_EQ(panel_.end(), 0);
    EXPECT_EQ(panel_.report().refused(), std::vector<std::string>());
}

}  // namespace
