// What players make of the files that velcamrec makes from a recording of the real daemon.

#include <gtest/gtest.h>

#include <csignal>

#include "Recordings.h"
#include "Sample.h"
#include "Verbs.h"
#include "support/Child.h"
#include "support/Pictures.h"

namespace {

using support::Command;
using support::Folder;
using support::operator+;

constexpr size_t kKeyFrames = 300;     // from one to the next within a run
constexpr uintmax_t kBegun = 100'000;  // bytes of a recording that has a few frames
constexpr support::Rectangle kTile{0, 0, 720, 480};

enum class Complaints { kNone, kSome };

/// A hash for each picture as an independent decoder sees it.
std::vector<std::string> pictures(const std::string& file, Complaints complaints = Complaints::kNone)
{
    const auto outcome = support::runToEnd({"/usr/bin/ffmpeg", "-nostdin", "-v", "error", "-i", file,
                                            "-fps_mode", "passthrough", "-f", "framemd5", "-"});
    EXPECT_EQ(outcome.status, 0) << outcome.error;
    EXPECT_EQ(outcome.error.empty(), complaints == Complaints::kNone) << outcome.error;
    std::vector<std::string> hashes;
    std::istringstream lines(outcome.output);
    for (std::string line; std::getline(lines, line);) {
        if (line[0] != '#') {
            hashes.push_back(line.substr(line.rfind(' ') + 1));
        }
    }
    return hashes;
}

std::string probe(const std::string& file, const Command& questions)
{
    const auto outcome = support::runToEnd(Command{"/usr/bin/ffprobe", "-v", "error", "-of", "csv=p=0"} +
                                           questions + Command{file});
    EXPECT_EQ(outcome.status, 0) << outcome.error;
    return outcome.output;
}

/// The coded pictures, without what containers may add or leave out.
std::string streamOf(const std::string& file, const Folder& folder)
{
    const std::string out = folder.file("stream.h264");
    const auto outcome =
        support::runToEnd({"/usr/bin/ffmpeg", "-nostdin", "-v", "error", "-y", "-i", file, "-c", "copy",
                           "-bsf:v", "filter_units=remove_types=6-9", "-f", "h264", out});
    EXPECT_EQ(outcome.status, 0) << outcome.error;
    return support::readFile(out);
}

class RealRecording : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_NE(recordings::sample().path, "") << recordings::sample().fault;
        const support::Recording recorded = support::readRecording(input());
        ASSERT_TRUE(recorded.wellFormed);
        frames_ = recorded.chunks.size();
        while (++second_ < frames_ && !recorded.chunks[second_].parameterSets) {
        }
        ASSERT_GT(second_, kKeyFrames) << "no key frame within the first run";
        ASSERT_GT(frames_, second_ + kKeyFrames) << "no key frame within the second run";
        secondOffset_ = recorded.chunks[second_].offset;
    }

    std::string input() const { return recordings::sample().path; }
    virtual std::string output() const { return folder_.file("out.avi"); }
    const Folder& folder() const { return folder_; }

    size_t frames_ = 0;
    size_t second_ = 0;        // number of the second run's first frame
    size_t secondOffset_ = 0;  // of its chunk

private:
    Folder folder_;
};

class Players : public RealRecording, public ::testing::WithParamInterface<const char*> {
protected:
    std::string output() const override { return folder().file(std::string("out.") + GetParam()); }
};

TEST_P(Players, SeeEveryFrameOfAnIndexedFileUnchanged)
{
    ASSERT_EQ(recording::runIndex({input(), output(), false}), 0);
    const auto before = pictures(input());
    EXPECT_EQ(before.size(), frames_);
    EXPECT_EQ(pictures(output()), before);
    const std::string stream = streamOf(input(), folder());
    EXPECT_FALSE(stream.empty());
    EXPECT_TRUE(streamOf(output(), folder()) == stream) << "the coded bytes differ";
}

TEST_P(Players, KnowLengthRateAndKeyFramesOfAnIndexedFileAndSeekInIt)
{
    ASSERT_EQ(recording::runIndex({input(), output(), false}), 0);
    const double seconds = std::stod(probe(output(), {"-show_entries", "format=duration"}));
    EXPECT_NEAR(seconds, static_cast<double>(frames_) / 30, 0.002);
    EXPECT_EQ(probe(output(), {"-show_entries", "stream=r_frame_rate"}), "30/1\n");
    const std::string flags = probe(output(), {"-show_entries", "packet=flags"});
    std::string keys;
    std::istringstream lines(flags);
    size_t frame = 0;
    for (std::string line; std::getline(lines, line); ++frame) {
        keys += line[0] == 'K' ? std::to_string(frame) + " " : "";
    }
    EXPECT_EQ(keys, "0 300 " + std::to_string(second_) + " " + std::to_string(second_ + kKeyFrames) + " ");

    const auto outcome = support::runToEnd({"/usr/bin/ffmpeg", "-nostdin", "-v", "error", "-ss", "21", "-i",
                                            output(), "-frames:v", "1", "-y", folder().file("seen.png")});
    ASSERT_EQ(outcome.status, 0) << outcome.error;
    ASSERT_EQ(recording::runGrab({{input(), folder().file("grabbed.png"), false}, 21, 0}), 0);
    constexpr support::Rectangle kFirstTile{0, 30, 720, 480};
    const auto seen = support::shownIn(support::readPng(folder().file("seen.png")).luma(), kFirstTile);
    const auto grabbed = support::shownIn(support::readPng(folder().file("grabbed.png")).luma(), kFirstTile);
    ASSERT_TRUE(seen && grabbed);
    EXPECT_EQ(seen->frame, grabbed->frame);
}

TEST_P(Players, SeeACutFromKeyFrameToKeyFrame)
{
    ASSERT_EQ(recording::runCut({{input(), output(), false}, 10.5, 10.6}), 0);
    auto expected = pictures(input());
    ASSERT_EQ(expected.size(), frames_);
    expected = {expected.begin() + kKeyFrames, expected.begin() + static_cast<long>(second_)};
    EXPECT_EQ(pictures(output()), expected);
}

INSTANTIATE_TEST_SUITE_P(Each, Players, ::testing::Values("avi", "mp4", "mkv"),
                         [](const auto& one) { return std::string(one.param); });

/// The encoder skips the first two frames, then some.
TEST(SkippedFrames, AreTakenForDamageOrMoveTheFramesBehindThem)
{
    const Folder folder;
    const std::string board = folder.file("board");
    const auto run =
        support::runToEnd({support::program("vboard"), "run", "--board", board, "--cpu", "dual-lite", "--fps",
                           "max", "--frames", "60", "--fault", "vpu_EncStartOneFrame@*#1=skip", "--fault",
                           "vpu_EncStartOneFrame@*#2/15=skip", "--", support::program("velcamd")});
    ASSERT_EQ(run.status, 0) << run.output << run.error;
    EXPECT_NE(run.output.find("Skip encoding one Frame!\nSkip encoding one Frame!\n"), std::string::npos);

    const std::string raw = board + "/root/velmarine/f/camrecord/cam.avi";
    const support::Recording recorded = support::readRecording(raw);
    ASSERT_TRUE(recorded.wellFormed);
    size_t skipped = 0;
    for (const auto& chunk : recorded.chunks) {
        skipped += chunk.bytes == 0 || (chunk.parameterSets && !chunk.keyFrame) ? 1U : 0U;
    }
    EXPECT_GE(skipped, 5U);
    const size_t shown = recorded.chunks.size() - skipped;
    testing::internal::CaptureStdout();
    EXPECT_EQ(recording::runCheck({{raw}, false}), 0);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              raw + ": sound; " + std::to_string(shown) + " frames in 1 session, 1 key frame, " +
                  std::to_string(skipped) + " skipped by the encoder, " +
                  recording::clockText(static_cast<double>(recorded.chunks.size()) / 30) + "\n");

    const auto seen = pictures(raw, Complaints::kSome);  // of the codec header that stands alone
    EXPECT_EQ(seen.size(), shown);
    ASSERT_EQ(recording::runRepair({raw, folder.file("repaired.avi"), false}), 0);
    EXPECT_TRUE(support::readFile(folder.file("repaired.avi")) == support::readFile(raw));
    for (const char* name : {"out.avi", "out.mp4", "out.mkv"}) {
        const std::string made = folder.file(name);
        ASSERT_EQ(recording::runIndex({raw, made, false}), 0);
        EXPECT_EQ(pictures(made), seen) << name;
        const auto places = static_cast<double>(recorded.chunks.size() - 2);  // from the first picture on
        EXPECT_NEAR(std::stod(probe(made, {"-show_entries", "format=duration"})), places / 30, 0.002) << name;
        ASSERT_EQ(recording::runCut({{raw, made, true}, 0.5, 0.6}), 0);
        EXPECT_EQ(pictures(made), seen) << name << ": there is one key frame";
    }
}

TEST_F(RealRecording, IsFoundSound)
{
    testing::internal::CaptureStdout();
    const int status = recording::runCheck({{input()}, false});
    const std::string said = testing::internal::GetCapturedStdout();
    EXPECT_EQ(status, 0);
    EXPECT_EQ(said, input() + ": sound; " + std::to_string(frames_) +
                        " frames in 2 sessions, 4 key frames, " +
                        recording::clockText(static_cast<double>(frames_) / 30) + "\n");
}

TEST_F(RealRecording, KeepsEveryWholeFrameWhenATornOneIsTakenOut)
{
    const auto walked = recordings::walk(input());
    ASSERT_EQ(walked.frames.size(), frames_);
    const std::string content = support::readFile(input());
    const std::string damaged = folder().file("damaged.avi");
    recordings::writeOld(damaged, content.substr(0, secondOffset_ - 100) + content.substr(secondOffset_));

    ASSERT_EQ(recording::runRepair({damaged, output(), false}), 0);
    auto expected = pictures(input());
    expected.erase(expected.begin() + static_cast<long>(second_) - 1);
    EXPECT_EQ(pictures(output()), expected);
    auto frames = walked.frames;
    frames.erase(frames.begin() + static_cast<long>(second_) - 1);
    EXPECT_EQ(recordings::walk(output()).frames, frames);
}

TEST_F(RealRecording, GivesAHeaderTheSizeOfItsPictureAgain)
{
    const std::string damaged = folder().file("damaged.avi");
    const std::string content = support::readFile(input());
    recordings::writeOld(damaged, content.substr(recording::kHeaderBytes));
    ASSERT_EQ(recording::runRepair({damaged, output(), false}), 0);
    EXPECT_TRUE(support::readFile(output()) == content);
}

TEST_F(RealRecording, ShowsInAGrabTheCameraAndTheMomentAskedFor)
{
    const std::string first = folder().file("first.png");
    const std::string later = folder().file("later.png");
    for (unsigned camera = 1; camera <= 4; ++camera) {
        ASSERT_EQ(recording::runGrab({{input(), first, true}, 1, camera}), 0);
        ASSERT_EQ(recording::runGrab({{input(), later, true}, 2.5, camera}), 0);
        const auto before = support::shownIn(support::readPng(first).luma(), kTile);
        const auto after = support::shownIn(support::readPng(later).luma(), kTile);
        ASSERT_TRUE(before && after) << "camera " << camera;
        EXPECT_EQ(before->camera, static_cast<int>(camera));
        EXPECT_EQ(after->camera, static_cast<int>(camera));
        EXPECT_EQ(after->frame - before->frame, 45U);
    }
}

TEST_F(RealRecording, IsReadWhileTheDaemonWritesIt)
{
    const std::string board = folder().file("board");
    const std::string live = board + "/root/velmarine/f/camrecord/cam.avi";
    const support::Child daemon(
        {support::program("vboard"), "run", "--board", board, "--", support::program("velcamd")}, "/dev/null",
        "/dev/null");
    const auto grown = [&](uintmax_t bytes) {
        std::error_code none;
        return support::waitUntil([&] {
            const uintmax_t now = std::filesystem::file_size(live, none);
            return !none && now > bytes;
        });
    };
    uintmax_t size = kBegun;
    for (int i = 0; i < 10; ++i) {
        ASSERT_TRUE(grown(size)) << "the daemon stopped recording";
        size = std::filesystem::file_size(live);
        EXPECT_EQ(recording::runCheck({{live}, false}), 0);
    }
    EXPECT_EQ(recording::runList({folder().file("board/root/velmarine/f/camrecord"), false}), 0);
    EXPECT_EQ(recording::runIndex({live, output(), false}), 0);
    EXPECT_TRUE(grown(size)) << "the daemon stopped recording";
    daemon.signal(SIGINT);
}

}  // namespace
