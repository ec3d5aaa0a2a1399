// What a person sees when the real player plays stored videos: whole ways through the daemon's states.

#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <filesystem>

#include "Clips.h"
#include "Processes.h"
#include "Scenes.h"
#include "board/Board.h"

namespace {

using clips::Clip;
using clips::Sound;
using control::MediaState;
using control::Status;
using support::Clock;
using support::operator+;
using support::Png;
using support::Shown;

constexpr const char* kVideos = "/velmarine/f/video/";

constexpr Clip kLong{3, 30, "1/4"};  // outlasts any test

bool isIn(MediaState state, const Status& status)
{
    return status.state == static_cast<uint8_t>(state);
}
bool plays(const Status& status)
{
    return isIn(MediaState::kPlay, status) && !status.isRecording && !status.playbackDone;
}
bool hasPlayed(const Status& status)
{
    return isIn(MediaState::kPlay, status) && !status.isRecording && status.playbackDone;
}

class Journey : public testing::Test {
protected:
    void bringUp(const support::Command& options = {})
    {
        panel_.start(support::Command{"--cpu", "dual-lite"} + options);
        ASSERT_TRUE(panel_.awaitUp()) << panel_.output() << panel_.errors();
        daemon_ = board::Board(panel_.board()).state().program;
        withoutOverlay_ = panel_.snapshot();
        ASSERT_FALSE(withoutOverlay_.rgb.empty());
    }

    void TearDown() override
    {
        if (panel_.running()) {
            endWell();
        }
        for (const auto& process : onBoard()) {  // of this test's own board: what a failed one left
            ::kill(process.id, SIGKILL);
        }
    }

    std::string video(const std::string& name) const { return panel_.file(kVideos + name); }

    /// Asks for a video by any bytes that a packet can carry.
    void play(const std::string& name)
    {
        std::string payload = '\1' + name + '\0';  // the state to enter, the name, its end
        payload.resize(std::min(payload.size(), control::kPayloadMax));
        const control::Packet packet{static_cast<uint8_t>(control::MessageId::kState),
                                     {payload.begin(), payload.end()}};
        asked_ = Clock::now();
        ASSERT_TRUE(panel_.request(packet));
    }

    void enter(MediaState state, const control::Channels& channels = {})
    {
        asked_ = Clock::now();
        ASSERT_TRUE(panel_.enter(state, channels)) << panel_.output();
    }

    /// A status since the last request.
    bool reports(const support::StatusWatch::Condition& condition)
    {
        return panel_.watch().await(condition, asked_).has_value();
    }

    /// Whether `condition` holds of the next status, and of some more.
    bool keepsReporting(const support::StatusWatch::Condition& condition)
    {
        constexpr int kPolls = 25;  // more than two looks after the player
        for (int report = 0; report < kPolls; ++report) {
            const auto seen = panel_.watch().await([](const Status&) { return true; }, Clock::now());
            if (!seen || !condition(seen->status)) {
                return false;
            }
        }
        return true;
    }

    std::vector<std::string> children() const
    {
        std::vector<std::string> names;
        for (const auto& child : processes::childrenOf(daemon_)) {
            names.push_back(child.name + (child.ended ? ", ended" : ""));
        }
        return names;
    }
    bool awaitPlayer()
    {
        return support::waitUntil([&] { return children() == std::vector<std::string>{"gst-launch-1.0"}; });
    }

    std::vector<processes::Process> onBoard() const
    {
        return processes::withSetting(std::string(board::kFolderVariable) + "=" + panel_.board());
    }

    bool showsCamera(int camera)
    {
        const auto pane = scenes::onePane(scenes::kCameraX, scenes::kCameraY);
        return panel_.awaitSnapshot(
            [&](const Png& picture) { return scenes::cameraIn(picture, pane) == camera; });
    }
    bool showsClip(int number)
    {
        return panel_.awaitSnapshot([&](const Png& picture) {
            const auto shown = clips::shownOn(picture);
            return shown && shown->camera == number;
        });
    }
    bool showsNoOverlay()
    {
        return panel_.awaitSnapshot([&](const Png& picture) { return picture.rgb == withoutOverlay_.rgb; });
    }

    /// Looks at the panel until the clip is reported as done, and once more: each picture that was seen,
    /// once. Before the first one, the overlay shows what the clip before has left in it.
    std::vector<Shown> watchToItsEnd()
    {
        std::vector<Shown> seen;
        const auto look = [&] {
            const auto shown = clips::shownOn(panel_.snapshot());
            const auto& last = seen.empty() ? leftInOverlay_ : seen.back();
            if (shown && (!last || shown->camera != last->camera || shown->frame != last->frame)) {
                seen.push_back(*shown);
            }
        };
        const auto limit = Clock::now() + support::kGenerous;
        while (!panel_.watch().await(hasPlayed, asked_, support::Duration{1}) && Clock::now() < limit) {
            look();
        }
        look();
        leftInOverlay_ = seen.empty() ? leftInOverlay_ : seen.back();
        return seen;
    }

    /// Plays a clip from whatever state, and sees it on the panel up to its end.
    void seeWhole(const std::string& name, const Clip& clip)
    {
        SCOPED_TRACE(name);
        play(name);
        EXPECT_TRUE(reports(plays)) << panel_.output();
        EXPECT_TRUE(awaitPlayer());
        const std::vector<Shown> seen = watchToItsEnd();
        EXPECT_TRUE(reports(hasPlayed)) << panel_.output();
        ASSERT_FALSE(seen.empty()) << panel_.output() << panel_.errors();
        for (size_t i = 0; i < seen.size(); ++i) {
            EXPECT_EQ(seen[i].camera, clip.number);
            EXPECT_LT(seen[i].frame, static_cast<uint32_t>(clip.pictures));
            EXPECT_TRUE(i == 0 || seen[i].frame > seen[i - 1].frame) << "the clip runs backwards";
        }
        EXPECT_GT(seen.back().frame, 0U) << "the clip stands still";
        EXPECT_EQ(children(), std::vector<std::string>());
    }

    void leaveForIdle()
    {
        enter(MediaState::kIdle);
        EXPECT_TRUE(showsNoOverlay());
    }

    void endThePlayer()
    {
        leaveForIdle();
        EXPECT_TRUE(reports([](const Status& status) { return status.playbackDone && status.isRecording; }));
        EXPECT_EQ(children(), std::vector<std::string>());
    }

    void endWell()
    {
        EXPECT_EQ(panel_.end(), 0) << panel_.errors();
        EXPECT_TRUE(support::waitUntil([&] { return onBoard().empty(); })) << "a process outlived the board";
        EXPECT_EQ(panel_.report().refused(), std::vector<std::string>());
        EXPECT_EQ(panel_.report().live(), std::vector<std::string>());
    }

    support::Panel panel_;

private:
    pid_t daemon_ = -1;
    Png withoutOverlay_;
    std::optional<Shown> leftInOverlay_;
    Clock::time_point asked_;
};

class JourneyTo : public Journey, public testing::WithParamInterface<const char*> {};

TEST_P(JourneyTo, AClipsEndAndBackToTheCamera)
{
    const Clip clip{2};
    const std::string name = std::string("clip.") + GetParam();
    bringUp();
    ASSERT_TRUE(clips::make(clip, video(name)));
    enter(MediaState::kCamera, {1});
    EXPECT_TRUE(showsCamera(1));

    seeWhole(name, clip);
    EXPECT_TRUE(showsClip(clip.number)) << "the last picture goes before the controller says so";

    enter(MediaState::kCamera, {1});
    EXPECT_TRUE(reports([](const Status& status) { return status.isRecording; }));
    EXPECT_TRUE(showsCamera(1));
    leaveForIdle();
}

INSTANTIATE_TEST_SUITE_P(As, JourneyTo, testing::Values("avi", "mp4", "mkv"),
                         [](const auto& row) { return std::string(row.param); });

TEST_F(Journey, EndsALongClipWhenTheControllerHasEnough)
{
    bringUp();
    ASSERT_TRUE(clips::make(kLong, video("long.mp4")));
    play("long.mp4");
    EXPECT_TRUE(showsClip(3));
    EXPECT_TRUE(reports(plays));

    endThePlayer();
}

TEST_F(Journey, HoldsTheFirstPictureOfAVideoWithoutSoundUntilItIsEnded)
{
    bringUp();
    ASSERT_TRUE(clips::make({4, clips::kShort, "10", Sound::kNone}, video("silent.mp4")));
    play("silent.mp4");
    EXPECT_TRUE(showsClip(4));
    EXPECT_TRUE(keepsReporting(plays)) << panel_.output();
    const auto shown = clips::shownOn(panel_.snapshot());
    ASSERT_TRUE(shown);
    EXPECT_EQ(shown->frame, 0U);

    endThePlayer();
}

TEST_F(Journey, WaitsForAPictureInASoundUntilItIsEnded)
{
    bringUp();
    ASSERT_TRUE(clips::makeSound(video("sound.mp4")));
    play("sound.mp4");
    EXPECT_TRUE(awaitPlayer());
    EXPECT_TRUE(keepsReporting(plays)) << panel_.output();
    endThePlayer();
}

TEST_F(Journey, PlaysARecordingThatWasGivenASoundTrack)
{
    bringUp();
    enter(MediaState::kCamera, {1, 2});
    EXPECT_TRUE(reports([](const Status& status) { return status.isRecording; }));
    enter(MediaState::kTransfer, {1, 2});  // closes the recording
    EXPECT_TRUE(reports([](const Status& status) { return !status.isRecording; }));
    std::filesystem::copy_file(panel_.recording(), video("recorded.avi"));
    ASSERT_TRUE(clips::addSilence(panel_.recording(), video("recorded.mp4")));

    const scenes::Layout& layout = scenes::dualLite();
    const auto place = clips::placeOnPanel(layout.width, layout.height);
    const auto tileAt = [&](const support::Rectangle& tile) {
        const auto scaled = [&](int length) { return length * place.width / layout.width; };
        return support::Rectangle{place.x + scaled(tile.x), place.y + scaled(tile.y), scaled(tile.width),
                                  scaled(tile.height)};
    };
    const auto showsBothTiles = [&](const Png& picture) {
        return scenes::cameraIn(picture, tileAt(layout.tiles[0])) == 1 &&
               scenes::cameraIn(picture, tileAt(layout.tiles[1])) == 2;
    };
    play("recorded.avi");
    EXPECT_TRUE(panel_.awaitSnapshot(showsBothTiles)) << panel_.output();
    EXPECT_TRUE(keepsReporting(plays)) << "it has no sound";
    endThePlayer();

    play("recorded.mp4");
    EXPECT_TRUE(panel_.awaitSnapshot(showsBothTiles)) << panel_.output();
    EXPECT_TRUE(reports(hasPlayed)) << panel_.output();
    leaveForIdle();
}

TEST_F(Journey, KeepsTheClipThatPlaysWhenAnotherOneIsAskedFor)
{
    bringUp();
    ASSERT_TRUE(clips::make(kLong, video("long.mp4")));
    ASSERT_TRUE(clips::make({1}, video("other.mp4")));
    play("long.mp4");
    EXPECT_TRUE(showsClip(kLong.number));
    play("other.mp4");
    EXPECT_TRUE(keepsReporting(plays));
    EXPECT_TRUE(showsClip(kLong.number));
    EXPECT_EQ(children().size(), 1U);
    endThePlayer();
}

TEST_F(Journey, StartsNothingForARequestInTheStateOfAClipThatHasEnded)
{
    bringUp();
    ASSERT_TRUE(clips::make({1}, video("clip.mp4")));
    seeWhole("clip.mp4", {1});
    play("clip.mp4");
    EXPECT_TRUE(reports(plays));
    EXPECT_TRUE(keepsReporting(plays)) << "neither a state nor a player changed";
    EXPECT_EQ(children(), std::vector<std::string>());

    leaveForIdle();
    seeWhole("clip.mp4", {1});
}

TEST_F(Journey, LosesTheCameraForAControllerThatDoesNotWaitForTheClipsEnd)
{
    bringUp();
    ASSERT_TRUE(clips::make({2, 60}, video("clip.mp4")));
    play("clip.mp4");
    EXPECT_TRUE(showsClip(2));
    enter(MediaState::kCamera, {1});
    EXPECT_TRUE(reports([](const Status& status) { return status.isRecording && !status.playbackDone; }));
    // Both draw until the clip ends.
    EXPECT_TRUE(reports([](const Status& status) { return status.isRecording && status.playbackDone; }));
    EXPECT_EQ(children(), std::vector<std::string>());
    EXPECT_TRUE(showsCamera(1));
    leaveForIdle();
}

TEST_F(Journey, PlaysWithoutARecordingDirectory)
{
    bringUp({"--no-mount"});
    ASSERT_TRUE(clips::make({1}, video("clip.mp4")));
    enter(MediaState::kCamera, {2});
    EXPECT_TRUE(showsCamera(2));
    seeWhole("clip.mp4", {1});
    EXPECT_TRUE(reports([](const Status& status) { return !status.canRecord; }));
    enter(MediaState::kCamera, {2});
    EXPECT_TRUE(showsCamera(2));
    EXPECT_TRUE(keepsReporting([](const Status& status) { return !status.isRecording; }));
    leaveForIdle();
    EXPECT_FALSE(std::filesystem::exists(panel_.recording()));
}

TEST_F(Journey, LeavesNoPlayerBehindWhenTheDaemonEnds)
{
    bringUp();
    ASSERT_TRUE(clips::make({4, clips::kShort, "10", Sound::kNone}, video("endless.mp4")));
    play("endless.mp4");
    EXPECT_TRUE(showsClip(4));
    endWell();
}

TEST_F(Journey, EndsAtOnceOnAClipWithANameThatItCanCarry)
{
    const std::string names[] = {
        std::string(94, 'n') + ".mp4",  // the longest one with a terminator
        std::string(95, 'n') + ".mp4",  // the longest one
        "../video/elsewhere.mp4",       //
        " two  blanks .mp4",            //
        "driver's 'two' words.mp4",     //
        "a ! fakesink!.mp4",            //
        u8"r\u00FCckfahrt.mp4",         //
        "$(ls);%s%n&.mp4",              //
    };
    bringUp();
    // In turns, as the last picture of the one is still there when the other begins.
    const Clip made[] = {{1}, {2}};
    ASSERT_TRUE(clips::make(made[0], video("even.mp4")));
    ASSERT_TRUE(clips::make(made[1], video("odd.mp4")));
    for (size_t i = 0; i < std::size(names); ++i) {
        std::filesystem::copy_file(video(i % 2 == 0 ? "even.mp4" : "odd.mp4"), video(names[i]));
        seeWhole(names[i], made[i % 2]);
        leaveForIdle();
    }
}

TEST_F(Journey, WaitsForEverForAPlayerThatCannotPlay)
{
    // The player reads its arguments as one text: a quote or a white space other than a blank ends the name,
    // a backslash goes, and what is left has to be UTF-8.
    const std::string namesOfClips[] = {"\"quoted clip\".mp4", "one\" quote.mp4", "back\\slash.mp4",
                                        "new\nline.mp4",       "ta\tb.mp4",       "R\xFCW.mp4"};
    bringUp();
    std::vector<std::string> names{"missing.mp4", "", "folder.mp4", "noise.mp4"};
    std::filesystem::create_directory(video("folder.mp4"));
    ASSERT_TRUE(support::writeFile(video("noise.mp4"), std::string(100'000, '\x9F')));
    ASSERT_TRUE(clips::make({1}, video("made.mp4")));
    for (const std::string& name : namesOfClips) {
        std::filesystem::copy_file(video("made.mp4"), video(name));
        names.push_back(name);
    }

    for (const std::string& name : names) {
        SCOPED_TRACE(name);
        enter(MediaState::kCamera, {1});
        EXPECT_TRUE(showsCamera(1));
        play(name);
        EXPECT_TRUE(reports(hasPlayed)) << panel_.output();
        EXPECT_EQ(children(), std::vector<std::string>());
        EXPECT_FALSE(clips::shownOn(panel_.snapshot()));
    }
    enter(MediaState::kCamera, {1});
    EXPECT_TRUE(showsCamera(1));
    EXPECT_TRUE(reports([](const Status& status) { return status.isRecording; }));
    leaveForIdle();
}

}  // namespace
