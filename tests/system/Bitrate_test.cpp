#include <gtest/gtest.h>

#include <cmath>

#include "Scenes.h"

namespace {

using support::Panel;

class Bitrate : public testing::TestWithParam<unsigned> {};

/// kbit/s of a recording at 30 frames a second.
double rateOf(const support::Recording& recording)
{
    constexpr double kFramesPerSecond = 30;
    constexpr double kBits = 8;
    constexpr double kKilo = 1000;
    double bytes = 0;
    for (const auto& chunk : recording.chunks) {
        bytes += static_cast<double>(chunk.bytes);
    }
    return bytes * kBits * kFramesPerSecond / kKilo / static_cast<double>(recording.chunks.size());
}

TEST_P(Bitrate, IsSavedAndInForceFromTheNextStart)
{
    const unsigned rate = GetParam();
    const auto packet = control::bitrateSelection(rate);
    ASSERT_TRUE(packet);
    Panel panel;
    ASSERT_TRUE(panel.layOut());
    const std::string saved = panel.file("/velmarine/config/bitrate");
    ASSERT_TRUE(support::writeFile(saved, "1500"));
    panel.start({"--cpu", "dual-lite"});
    ASSERT_TRUE(panel.awaitUp()) << panel.output() << panel.errors();
    ASSERT_TRUE(panel.request(*packet));
    EXPECT_TRUE(support::waitUntil([&] { return support::readFile(saved) == std::to_string(rate); }));
    ASSERT_EQ(panel.end(), 0);

    std::filesystem::remove(panel.recording());
    const int frames = support::isLong() ? 600 : 240;
    panel.start({"--cpu", "dual-lite", "--fps", "max", "--frames", std::to_string(frames)});
    ASSERT_EQ(panel.awaitEnd(), 0);
    EXPECT_TRUE(panel.said("VPU BITRATE " + std::to_string(rate) + "\n"));

    const auto recording = support::readRecording(panel.recording());
    ASSERT_TRUE(recording.wellFormed);
    ASSERT_FALSE(recording.chunks.empty());
    const double deviation = std::abs(rateOf(recording) - rate) / rate;
    std::printf("asked %u kbit/s, recorded %.0f kbit/s\n", rate, rateOf(recording));
    constexpr double kLongTolerance = 0.15;
    constexpr double kShortTolerance = 0.30;  // the rate control has less time to come around
    EXPECT_LT(deviation, support::isLong() ? kLongTolerance : kShortTolerance);
}

/// Where a picture takes its time, one stands for all.
std::vector<unsigned> rates()
{
    return scenes::kSlowness == 1 ? std::vector<unsigned>{1000, 2000, 4000} : std::vector<unsigned>{4000};
}

INSTANTIATE_TEST_SUITE_P(Each, Bitrate, testing::ValuesIn(rates()));

}  // namespace
