#include <gtest/gtest.h>

#include "Drive.h"
#include "Panel.h"
#include "Scenes.h"

namespace {

using control::MediaState;
using control::Status;
using support::Clock;
using support::operator+;
using support::Panel;

/// The disk under a recording, as it goes wrong.
class Disk : public testing::Test {
protected:
    void bringUp(const support::Command& faults)
    {
        panel_.start(support::Command{"--cpu", "dual-lite"} + faults);
        ASSERT_TRUE(panel_.awaitUp()) << panel_.output() << panel_.errors();
    }

    bool awaitGrowth(const std::string& file) const
    {
        const size_t before = support::readFile(file).size();
        return support::waitUntil([&] { return support::readFile(file).size() > before; });
    }

    /// Stops the recording and starts it again.
    void restartRecording()
    {
        ASSERT_TRUE(panel_.enter(MediaState::kTransfer));
        ASSERT_TRUE(panel_.awaitRecording(false));
        ASSERT_TRUE(panel_.enter(MediaState::kIdle));
    }

    static bool isAtMost(const std::vector<std::string>& damage, const std::string& one)
    {
        return damage.empty() || damage == std::vector<std::string>{one};
    }

    const std::string kNoWriter = "(VideoManager): Could not start writer";
    Panel panel_;
    const std::string mount_ = panel_.file("/velmarine/f/camrecord");
};

TEST_F(Disk, ThatFillsUpLosesMoreThanTheFrameItCut)
{
    // Full inside a frame, of which ever smaller pieces fit; the frame after it fails too, and the daemon
    // ends for its supervisor to see. Where the frames lie is the encoder's affair: now and then the disk is
    // full between two.
    panel_.start({"--cpu", "dual-lite", "--fps", "max", "--fault", "write@*/cam.avi#110+=ENOSPC", "--fault",
                  "write@*/cam.avi#100+=short"});
    EXPECT_EQ(panel_.awaitEnd(), 0) << panel_.errors();
    EXPECT_TRUE(panel_.said("writing bitstream buffer failed\nCould not encode VPU buffer\n"))
        << panel_.output();
    EXPECT_TRUE(panel_.said("(VideoManager): Could not process VPU"));
    const auto cut = faults::readKept(panel_.recording());
    EXPECT_TRUE(cut.header && cut.opens);
    EXPECT_TRUE(isAtMost(cut.damage, "torn tail"));
    constexpr uint64_t kWhole = 25;  // frames in a hundred writes: a frame takes 2 to 5
    EXPECT_GE(cut.frames, kWhole - 5);

    // Still full: it starts, continues the file, and ends as before.
    panel_.start({"--cpu", "dual-lite", "--fps", "max", "--fault", "write@*/cam.avi#*=ENOSPC"});
    EXPECT_EQ(panel_.awaitEnd(), 0) << panel_.errors();
    EXPECT_EQ(faults::readKept(panel_.recording()).frames, cut.frames);

    // Room again: what follows the tear can be decoded from its first frame on.
    panel_.start({"--cpu", "dual-lite", "--fps", "max", "--frames", "30"});
    EXPECT_EQ(panel_.awaitEnd(), 0) << panel_.errors();
    const auto joined = faults::readKept(panel_.recording());
    EXPECT_TRUE(isAtMost(joined.damage, "torn chunk"));
    EXPECT_GT(joined.frames, cut.frames);
}

TEST_F(Disk, WithoutRoomAtTheStartTakesTheCamerasAway)
{
    bringUp({"--fault", "write@*/cam.avi#*=ENOSPC"});
    EXPECT_TRUE(panel_.awaitOutput(kNoWriter)) << panel_.output();
    const auto seen = panel_.enter(MediaState::kCamera, {1});
    ASSERT_TRUE(seen);
    EXPECT_FALSE(seen->status.isRecording);
    EXPECT_TRUE(seen->status.canRecord) << "the directory is mounted";
    EXPECT_EQ(panel_.end(), 0) << panel_.errors();
    EXPECT_EQ(panel_.report().live(), std::vector<std::string>());
}

TEST_F(Disk, ThatIsReadOnlyForAWhileStaysUnrecorded)
{
    bringUp({"--fault", "open@*/cam.avi#1=EROFS"});
    EXPECT_TRUE(panel_.awaitOutput(kNoWriter)) << panel_.output();
    EXPECT_TRUE(panel_.awaitRecording(false));
    ASSERT_TRUE(panel_.enter(MediaState::kCamera, {1}));
    EXPECT_TRUE(panel_.awaitRecording(true)) << "the next start request tries again";
    EXPECT_EQ(panel_.end(), 0) << panel_.errors();
    EXPECT_TRUE(faults::readKept(panel_.recording()).opens);
}

/// A lazy unmount: the open file lives on where nobody finds it by name.
TEST_F(Disk, ThatIsUnmountedWhileRecordingCutsTheFileOrKeepsTheNextFromStarting)
{
    const std::string away = mount_ + ".away";
    bringUp({});
    ASSERT_TRUE(awaitGrowth(panel_.recording()));
    std::filesystem::rename(mount_, away);
    EXPECT_TRUE(awaitGrowth(away + "/cam.avi")) << "the file that was open is written on";
    EXPECT_TRUE(panel_.awaitRecording(true));

    restartRecording();
    EXPECT_TRUE(panel_.awaitOutput(kNoWriter)) << panel_.output();
    EXPECT_TRUE(panel_.awaitRecording(false));

    std::filesystem::create_directory(mount_);
    restartRecording();
    EXPECT_TRUE(panel_.awaitRecording(true));
    ASSERT_TRUE(support::waitUntil([&] { return faults::readKept(panel_.recording()).frames > 0; }));
    EXPECT_EQ(panel_.end(), 0) << panel_.errors();
    for (const std::string& file : {away + "/cam.avi", panel_.recording()}) {
        const auto kept = faults::readKept(file);
        EXPECT_TRUE(kept.header && kept.opens) << file;
        EXPECT_EQ(kept.damage, std::vector<std::string>()) << file;
    }
}

TEST_F(Disk, ThatRefusesToRenameTheFullRecordingEndsItOrIsNotAskedAgain)
{
    constexpr uintmax_t kAboveTheLimit = 600'000'000;  // bytes
    panel_.start({"--cpu", "dual-lite", "--fps", "max", "--frames", "30"});
    ASSERT_EQ(panel_.awaitEnd(), 0) << panel_.errors();
    std::filesystem::resize_file(panel_.recording(), kAboveTheLimit);

    bringUp({"--fault", "rename@*/cam.avi#1=EIO"});
    const auto bytes = [&] { return std::filesystem::file_size(panel_.recording()); };
    const auto isReopened = [&] {
        const std::string output = panel_.output();
        const size_t first = output.find("Append: 1");
        return first != std::string::npos && output.find("Append: 1", first + 1) != std::string::npos;
    };
    ASSERT_TRUE(support::waitUntil(isReopened)) << panel_.output();
    ASSERT_FALSE(std::filesystem::exists(panel_.recording() + ".00.avi"));
    const std::string rotated = panel_.recording() + ".00.avi";
    const auto isRotated = [&] { return std::filesystem::exists(rotated); };
    const uintmax_t refused = bytes();
    ASSERT_TRUE(support::waitUntil(isRotated)) << "six seconds later";
    EXPECT_GT(std::filesystem::file_size(rotated), refused) << "recorded on in between";
    ASSERT_TRUE(support::waitUntil([&] { return faults::readKept(panel_.recording()).frames > 0; }));
    EXPECT_EQ(panel_.end(), 0) << panel_.errors();
    EXPECT_EQ(panel_.report().faultsFired(), 1U);
    const auto kept = faults::readKept(panel_.recording());
    EXPECT_TRUE(kept.header && kept.opens);
    EXPECT_EQ(kept.damage, std::vector<std::string>());
}

TEST_F(Disk, ThatNoThreadBringsTheRecordingToIsNotSpokenOfOrEndsIt)
{
    bringUp({"--fault", "pthread_create@velcamd#3=EAGAIN"});
    EXPECT_TRUE(panel_.said("(core): Recording does not reach its medium")) << panel_.output();
    EXPECT_TRUE(panel_.awaitRecording(true));
    EXPECT_EQ(panel_.end(), 0) << panel_.errors();
    EXPECT_EQ(panel_.report().faultsFired(), 1U);
    EXPECT_TRUE(support::readRecording(panel_.recording()).wellFormed);
}

TEST_F(Disk, ThatTakesSecondsForAWriteHoldsTheReportsUpOrEndsTheRecording)
{
    constexpr support::Duration kSlow{3000};
    bringUp({"--fault", "write@*/cam.avi#40=slow:3000"});
    ASSERT_TRUE(panel_.awaitRecording(true));
    const auto end = Clock::now() + 2 * kSlow;
    while (Clock::now() < end) {
        const auto records = [](const Status& status) { return status.isRecording; };
        ASSERT_TRUE(panel_.watch().await(records, Clock::now(), kSlow))
            << "no report for as long as the write";
    }
    EXPECT_TRUE(awaitGrowth(panel_.recording()));
    EXPECT_EQ(panel_.end(), 0) << panel_.errors();
    EXPECT_EQ(panel_.report().faultsFired(), 1U);
    const uint64_t dropped = panel_.report().framesDropped(1);
    std::printf("%d frames dropped\n", static_cast<int>(dropped));
    constexpr uint64_t kBuffered = 4;
    constexpr uint64_t kFrames = 90;
    EXPECT_GT(dropped, kFrames - 2 * kBuffered) << "the disk was not slow";
    EXPECT_TRUE(support::readRecording(panel_.recording()).wellFormed);
}

}  // namespace
