#include <gtest/gtest.h>

#include <csignal>

#include "Scenes.h"

namespace {

using control::MediaState;
using control::Status;
using support::Clock;
using support::Panel;

/// A panel whose media player is the stand-in.
class Playback : public testing::Test {
protected:
    void bringUp()
    {
        ASSERT_TRUE(panel_.layOut());
        const std::filesystem::path player = panel_.file("/usr/bin/gst-launch-1.0");
        std::filesystem::create_directories(player.parent_path());
        std::filesystem::copy_file(PLAYER, player);
        panel_.start({"--cpu", "dual-lite"});
        ASSERT_TRUE(panel_.awaitUp()) << panel_.output() << panel_.errors();
    }

    void TearDown() override
    {
        // A player left behind is this test's own.
        const pid_t player = playerId();
        if (player > 0 && isAlive(player)) {
            ::kill(player, SIGKILL);
        }
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
    pid_t playerId() const
    {
        const std::string text = note("id");
        return text.empty() ? -1 : static_cast<pid_t>(std::stol(text));
    }
    /// Also true for one that has ended and was not collected.
    static bool isAlive(pid_t process) { return ::kill(process, 0) == 0; }

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
    bringUp();
    play("clip1.avi");
    ASSERT_TRUE(awaitNote("id")) << panel_.output();
    EXPECT_EQ(
        note("arguments"),
        "gst-launch-1.0\nfilesrc\nlocation=/velmarine/f/video/"
        "clip1.avi\n!\ndecodebin\nname=d\n!\nvideoconvert\n!\n"
        "imxipuvideosink\nframebuffer=/dev/fb1\nd.\n!\naudioconvert\n!\naudioresample\n!\nautoaudiosink\n");
    EXPECT_EQ(note("group"), note("id"));
    EXPECT_TRUE(awaitStatus(isPlaying));

    ASSERT_TRUE(panel_.enter(MediaState::kIdle));
    EXPECT_TRUE(awaitNote("interrupted"));
    EXPECT_TRUE(awaitStatus([](const Status& status) { return status.playbackDone && status.isRecording; }));
    EXPECT_FALSE(isAlive(playerId())) << "not collected";
    EXPECT_EQ(panel_.end(), 0);
    EXPECT_EQ(panel_.report().live(), std::vector<std::string>());
}

TEST_F(Playback, ReportsAVideoThatEndsByItself)
{
    bringUp();
    play("short.avi");
    EXPECT_TRUE(awaitStatus([](const Status& status) {
        return status.state == static_cast<uint8_t>(MediaState::kPlay) && status.playbackDone &&
               !status.isRecording;
    }));
    EXPECT_FALSE(isAlive(playerId())) << "not collected";
    EXPECT_EQ(panel_.end(), 0);
}

TEST_F(Playback, KeepsTheRecordingClosedWhilePlaying)
{
    bringUp();
    play("clip1.avi");
    ASSERT_TRUE(awaitStatus(isPlaying));
    const auto size = std::filesystem::file_size(panel_.recording());
    EXPECT_TRUE(support::readRecording(panel_.recording()).wellFormed);
    for (int report = 0; report < 5; ++report) {
        ASSERT_TRUE(panel_.watch().await(isPlaying, Clock::now()));
    }
    EXPECT_EQ(std::filesystem::file_size(panel_.recording()), size);
    EXPECT_EQ(panel_.end(), 0);
}

TEST_F(Playback, LeavesThePlayersOverlayAloneInATransferThatFollows)
{
    bringUp();
    play("clip1.avi");
    ASSERT_TRUE(awaitStatus(isPlaying));
    ASSERT_TRUE(panel_.enter(MediaState::kTransfer, {1, 2}));
    for (int report = 0; report < 5; ++report) {  // some frames each
        ASSERT_TRUE(panel_.watch().await([](const Status&) { return true; }, Clock::now()))
            << panel_.output();
    }
    EXPECT_TRUE(panel_.running()) << panel_.output();
    EXPECT_EQ(panel_.output().find("Could not process framebuffer"), std::string::npos);
    EXPECT_EQ(panel_.end(), 0);
    EXPECT_EQ(panel_.report().refused(), std::vector<std::string>());
}

TEST_F(Playback, NeverRunsPartsOfAVideosName)
{
    bringUp();
    play("a b;touch hurt $(touch hurt) %s%n.avi");
    ASSERT_TRUE(awaitNote("id"));
    EXPECT_NE(note("arguments").find("\nlocation=/velmarine/f/video/a b;touch hurt $(touch hurt) %s%n.avi\n"),
              std::string::npos);
    ASSERT_TRUE(panel_.enter(MediaState::kIdle));
    EXPECT_TRUE(awaitStatus([](const Status& status) { return status.playbackDone; }));
    EXPECT_EQ(panel_.end(), 0);
}

}  // namespace
