#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>

#include <sstream>

#include "HeapCounts.h"
#include "Scenes.h"
#include "board/Board.h"

namespace {

using control::MediaState;
using support::HeapCounts;
using support::Panel;

/// The counts that `heapwatch` keeps of a program on the board, read while it runs.
class HeapFile {
public:
    HeapFile() : path_(folder_.file("heap"))
    {
        support::writeFile(path_, std::string(sizeof(HeapCounts), '\0'));
        mapping_ = std::make_unique<board::Mapping>(path_, sizeof(HeapCounts), 0);
    }

    const HeapCounts& counts() const
    {
        return *static_cast<const HeapCounts*>(static_cast<const void*>(mapping_->data()));
    }
    uint64_t taken() const { return counts().mainThread; }

    /// The daemon with the counter in it.
    support::Command daemon() const
    {
        return {support::program("under"), "last", HEAPWATCH, path_, support::program("velcamd")};
    }

    /// Who took memory last.
    std::string last() const
    {
        std::ostringstream text;
        for (uint32_t i = 0; i < counts().lastDepth; ++i) {
            text << "  " << counts().lastObjects[i] << " +0x" << std::hex << counts().lastOffsets[i]
                 << std::dec << '\n';
        }
        return text.str();
    }

private:
    support::Folder folder_;
    std::string path_;
    std::unique_ptr<board::Mapping> mapping_;
};

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
    const HeapFile heap;
    Panel panel;
    panel.start({"--cpu", GetParam().cpu, "--devices", "idle", "--fps", "1000"}, heap.daemon());
    ASSERT_TRUE(panel.awaitUp()) << panel.output() << panel.errors();
    const board::Board board(panel.board());
    ASSERT_TRUE(board.usable());
    const auto& frames = board.state().framesEncoded;
    if (GetParam().shown[0] != 0) {
        ASSERT_TRUE(panel.enter(MediaState::kCamera, GetParam().shown));
        ASSERT_TRUE(support::waitUntil([&] { return board.state().framebuffers[1].pans >= kFlips; }));
    }
    ASSERT_TRUE(support::waitUntil([&] { return frames >= kFrames; }));

    const uint64_t before = heap.taken();
    ASSERT_GT(before, 0U) << "the start-up takes memory: nothing is counted";
    const uint64_t until = frames + kFrames;
    ASSERT_TRUE(support::waitUntil([&] { return frames >= until; }));
    EXPECT_EQ(heap.taken(), before) << "last taken by\n" << heap.last();
    EXPECT_EQ(panel.end(), 0);
}

INSTANTIATE_TEST_SUITE_P(Recording, SteadyPass,
                         testing::Values(Pass{"Quad", "quad", {}}, Pass{"QuadShowingTwo", "quad", {1, 2}},
                                         Pass{"DualLite", "dual-lite", {}},
                                         Pass{"DualLiteShowingOne", "dual-lite", {2}}),
                         [](const auto& chosen) { return std::string(chosen.param.name); });

}  // namespace
