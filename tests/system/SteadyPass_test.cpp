#include <gtest/gtest.h>

#include "HeapCounts.h"
#include "Scenes.h"
#include "board/Board.h"

namespace {

using control::MediaState;
using support::HeapCounts;
using support::Panel;

struct Pass {
    const char* name;
    const char* cpu;
    control::Channels shown;
};
void PrintTo(const Pass& pass, std::ostream* stream)
{
    *stream << pass.name;
}

class SteadyPass : public testing::TestWithParam<Pass> {};

TEST_P(SteadyPass, TakesNoMemoryFromTheHeap)
{
    constexpr uint64_t kFrames = 300;
    constexpr uint32_t kFlips = 30;  // until the view has settled
    const support::Folder folder;
    const std::string counts = folder.file("heap");
    ASSERT_TRUE(support::writeFile(counts, std::string(sizeof(HeapCounts), '\0')));
    const board::Mapping mapping(counts, sizeof(HeapCounts), 0);
    const auto& taken = static_cast<const HeapCounts*>(static_cast<const void*>(mapping.data()))->mainThread;
    Panel panel;
    panel.start({"--cpu", GetParam().cpu, "--devices", "idle", "--fps", "1000"},
                {support::program("under"), "last", HEAPWATCH, counts, support::program("velcamd")});
    ASSERT_TRUE(panel.awaitUp()) << panel.output() << panel.errors();
    const board::Board board(panel.board());
    ASSERT_TRUE(board.usable());
    const auto& frames = board.state().framesEncoded;
    if (GetParam().shown[0] != 0) {
        ASSERT_TRUE(panel.enter(MediaState::kCamera, GetParam().shown));
        ASSERT_TRUE(support::waitUntil([&] { return board.state().framebuffers[1].pans >= kFlips; }));
    }
    ASSERT_TRUE(support::waitUntil([&] { return frames >= kFrames; }));

    const uint64_t before = taken;
    ASSERT_GT(before, 0U) << "the start-up takes memory: nothing is counted";
    const uint64_t until = frames + kFrames;
    ASSERT_TRUE(support::waitUntil([&] { return frames >= until; }));
    EXPECT_EQ(taken.load(), before);
    EXPECT_EQ(panel.end(), 0);
}

INSTANTIATE_TEST_SUITE_P(Recording, SteadyPass,
                         testing::Values(Pass{"Quad", "quad", {}}, Pass{"QuadShowingTwo", "quad", {1, 2}},
                                         Pass{"DualLite", "dual-lite", {}},
                                         Pass{"DualLiteShowingOne", "dual-lite", {2}}),
                         [](const auto& chosen) { return std::string(chosen.param.name); });

}  // namespace
