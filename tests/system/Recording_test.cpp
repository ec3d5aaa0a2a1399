#include <gtest/gtest.h>

#include <algorithm>

#include "Scenes.h"

namespace {

using scenes::Layout;
using support::Panel;
using support::Recording;

/// Frames of the short and of the long form.
int frameCount()
{
    constexpr int kShort = scenes::kSlowness == 1 ? 150 : 60;
    constexpr int kLong = 1800;
    return support::isLong() ? kLong : kShort;
}

class EachBoard : public testing::TestWithParam<const Layout*> {
protected:
    const Layout& layout() const { return *GetParam(); }

    /// Records so many frames of each camera and leaves the recording behind.
    void record(int frames, const char* rate = "max")
    {
        panel_.start({"--cpu", layout().cpu, "--fps", rate, "--frames", std::to_string(frames)});
        ASSERT_EQ(panel_.awaitEnd(), 0) << panel_.output() << panel_.errors();
    }

    Panel panel_;
};

TEST_P(EachBoard, RecordsEveryFrameOfEveryCameraInItsOwnTile)
{
    record(frameCount());
    const Recording recording = support::readRecording(panel_.recording());
    EXPECT_TRUE(recording.wellFormed);
    EXPECT_EQ(recording.width, layout().width);
    EXPECT_EQ(recording.height, layout().height);

    const auto reading = scenes::readUnbroken(panel_.recording(), layout());
    EXPECT_EQ(reading.fault, "");
    EXPECT_EQ(reading.frames, recording.chunks.size());
    EXPECT_EQ(reading.frames, panel_.report().framesEncoded());
    // The first pass is not encoded, and the interrupt may end the one that it falls into.
    EXPECT_GE(reading.frames, static_cast<uint32_t>(frameCount()) - 3);
}

TEST_P(EachBoard, DropsAFrameAtThePaceOfRealCameras)
{
    if (!support::isLong()) {
        GTEST_SKIP() << "20 s in real time: set VELCAM_LONG=1";
    }
    constexpr int kTwentySeconds = 600;
    record(kTwentySeconds, "30");
    EXPECT_EQ(scenes::readUnbroken(panel_.recording(), layout()).fault, "");
    for (int camera = 1; camera <= static_cast<int>(layout().tiles.size()); ++camera) {
        EXPECT_EQ(panel_.report().framesDropped(camera), 0U) << "camera " << camera;
    }
}

TEST_P(EachBoard, WritesTheClockIntoItsBandAndNothingElseThere)
{
    constexpr int kBand = 30;
    constexpr int kMargin = 3;       // lines above the text
    constexpr int kTextWidth = 500;  // 20 characters of 25 pixels
    constexpr int kBright = 150;
    constexpr int kDark = 60;         // encoding leaves traces
    constexpr int kOverASecond = 35;  // the clock is drawn once in thirty frames
    record(kOverASecond);
    support::FrameReader reader(panel_.recording(), layout().width, layout().height);
    support::Frame frame;
    ASSERT_TRUE(reader.next(frame));

    int text = 0;
    for (int y = 0; y < kBand - 2; ++y) {
        for (int x = 0; x < layout().width; ++x) {
            const bool inText = y >= kMargin && x < kTextWidth;
            text += inText && frame.luma.at(x, y) > kBright ? 1 : 0;
            ASSERT_TRUE(inText || frame.luma.at(x, y) < kDark) << "at " << x << ", " << y;
        }
    }
    constexpr int kLeastText = 300;  // pixels: fourteen digits, two strokes and two colons
    EXPECT_GT(text, kLeastText);

    const auto coloured = [&](const std::vector<uint8_t>& plane) {
        constexpr int kNeutral = 128;
        constexpr int kTolerance = 6;
        // The blocks of the band's last lines are encoded together with the first ones of the tiles.
        constexpr int kOwnLines = 11;
        const auto bandEnd = plane.begin() + kOwnLines * layout().width / 2;
        return std::count_if(plane.begin(), bandEnd,
                             [](uint8_t value) { return std::abs(value - kNeutral) > kTolerance; });
    };
    EXPECT_EQ(coloured(frame.blue), 0);
    EXPECT_EQ(coloured(frame.red), 0);
}

INSTANTIATE_TEST_SUITE_P(Recording, EachBoard, testing::Values(&scenes::quad(), &scenes::dualLite()),
                         [](const auto& chosen) {
                             return std::string(chosen.param->cpu == std::string("quad") ? "Quad"
                                                                                         : "DualLite");
                         });

TEST(Recording, IsWholeOnADiskThatTakesEveryWriteInPieces)
{
    Panel panel;
    panel.start(
        {"--cpu", "dual-lite", "--fps", "max", "--frames", "40", "--fault", "write@*/cam.avi#*=short"});
    ASSERT_EQ(panel.awaitEnd(), 0) << panel.errors();
    EXPECT_EQ(scenes::readUnbroken(panel.recording(), scenes::dualLite()).fault, "");
    EXPECT_TRUE(support::readRecording(panel.recording()).wellFormed);
    const support::Report report = panel.report();
    EXPECT_GT(report.faultsFired(), 2 * report.framesEncoded());
}

TEST(Recording, OfIdleDevicesDoesNotPlayOrHasFramesOfAnotherSizeThan8Kilobytes)
{
    constexpr size_t kFrameBytes = 8192;
    Panel panel;
    panel.start({"--devices", "idle", "--fps", "max", "--frames", "40"});
    ASSERT_EQ(panel.awaitEnd(), 0) << panel.errors();
    EXPECT_EQ(panel.report().refused(), std::vector<std::string>());

    const Recording recording = support::readRecording(panel.recording());
    ASSERT_TRUE(recording.wellFormed);
    ASSERT_GT(recording.chunks.size(), 1U);
    for (size_t i = 1; i < recording.chunks.size(); ++i) {  // the first one carries the codec header, too
        EXPECT_EQ(recording.chunks[i].bytes, kFrameBytes) << "chunk " << i;
    }
    support::FrameReader reader(panel.recording(), recording.width, recording.height);
    support::Frame frame;
    size_t frames = 0;
    for (; reader.next(frame); ++frames) {
    }
    EXPECT_EQ(frames, recording.chunks.size());
    EXPECT_EQ(reader.complaints(), "");
}

TEST(Recording, IsNotTouchedWhenItsDirectoryIsNotMounted)
{
    Panel panel;
    panel.start({"--no-mount", "--cpu", "dual-lite", "--fps", "max", "--frames", "40"});
    ASSERT_EQ(panel.awaitEnd(), 0) << panel.errors();
    EXPECT_FALSE(std::filesystem::exists(panel.recording()));
    EXPECT_EQ(panel.report().framesEncoded(), 0U);
}

}  // namespace
