#include "drivers/mx_vpu_buffer.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <iomanip>
#include <sstream>
#include <string>

#include "OnBoard.h"

namespace {

using support::Command;

constexpr int kStride = 1280;
constexpr int kHeight = 736;
constexpr int kLuma = 942080;
constexpr int kChroma = 235520;
constexpr uint32_t kPageBytes = 4096;

/// The codec library in use for as long as this stands: its memory is to be had only then.
struct Library {
    Library() { vpu_Init(nullptr); }
    ~Library() { vpu_UnInit(); }
    Library(const Library&) = delete;
    Library& operator=(const Library&) = delete;
};

/// Writes the whole block, so that a mapping shorter than its size does not pass.
void fill(const mx_vpu_buffer& memory)
{
    // NOLINTNEXTLINE(performance-no-int-to-ptr): the library gives addresses as numbers
    auto* start = reinterpret_cast<void*>(memory.desc.virt_uaddr);
    std::memset(start, 1, static_cast<size_t>(memory.desc.size));
}

BOARD_TEST(mx_vpu_buffer, CutsARasterBlockElsewhereOrLeaksIt, Command())
{
    const Library library;
    mx_vpu_buffer plain;
    ASSERT_TRUE(plain.b_alloc(STD_AVC, 0, kStride, kHeight, 0));
    EXPECT_EQ(plain.desc.size, kLuma + 2 * kChroma);
    EXPECT_EQ(static_cast<unsigned long>(plain.addrY), plain.desc.phy_addr);
    EXPECT_EQ(plain.addrCb - plain.addrY, kLuma);
    EXPECT_EQ(plain.addrCr - plain.addrCb, kChroma);
    EXPECT_EQ(plain.mvColBuf, 0);
    EXPECT_EQ(plain.strideY, kStride);
    EXPECT_EQ(plain.strideC, kStride / 2);
    fill(plain);

    mx_vpu_buffer withMotion;
    ASSERT_TRUE(withMotion.b_alloc(STD_AVC, 0, kStride, kHeight, 1));
    EXPECT_EQ(withMotion.desc.size, kLuma + 3 * kChroma);
    EXPECT_EQ(withMotion.mvColBuf - withMotion.addrCr, kChroma);
    fill(withMotion);
}

BOARD_TEST(mx_vpu_buffer, DividesChromaByTheWrongSideOfTheFormat, Command())
{
    constexpr int kSide = 64;
    struct Row {
        int format, chromaStride, chromaSize;
    };
    for (const Row& row :
         {Row{0, 32, 32 * 32}, Row{1, 32, 32 * 64}, Row{2, 64, 64 * 32}, Row{3, 64, 64 * 64}}) {
        const Library library;
        mx_vpu_buffer memory;
        ASSERT_TRUE(memory.b_alloc(STD_AVC, row.format, kSide, kSide, 0)) << row.format;
        EXPECT_EQ(memory.strideC, row.chromaStride) << row.format;
        EXPECT_EQ(memory.desc.size, kSide * kSide + 2 * row.chromaSize) << row.format;
    }
}

BOARD_TEST(mx_vpu_buffer, TakesASecondBlockAndForgetsTheFirst, Command())
{
    const Library library;
    mx_vpu_buffer memory;
    ASSERT_TRUE(memory.b_alloc(STD_AVC, 0, kStride, kHeight, 0));
    const int first = memory.addrY;
    EXPECT_FALSE(memory.b_alloc(STD_AVC, 0, kStride, kHeight, 0));
    EXPECT_FALSE(memory.b_alloc_tiled(STD_AVC, 0, kStride, kHeight, 0, TILED_FRAME_MB_RASTER_MAP));
    EXPECT_EQ(memory.addrY, first);
    memory.b_free();
    EXPECT_FALSE(memory.alloc);
    EXPECT_TRUE(memory.b_alloc(STD_AVC, 0, kStride, kHeight, 0));
}

template <typename Number>
std::string hex(Number number, int digits)
{
    std::ostringstream text;
    text << std::hex << std::setfill('0') << std::setw(digits) << static_cast<uint32_t>(number);
    return text.str();
}

/// The page numbers that the three words hold, luma top, chroma top, luma bottom, chroma bottom: five hex
/// digits each.
std::string pagesOf(const mx_vpu_buffer& memory)
{
    return hex(memory.addrY, 8) + hex(memory.addrCb, 8) + hex(memory.addrCr, 8);
}

std::string pages(uint32_t lumaTop, uint32_t chromaTop, uint32_t lumaBottom, uint32_t chromaBottom)
{
    return hex(lumaTop, 5) + hex(chromaTop, 5) + hex(lumaBottom, 5) + hex(chromaBottom, 5) + "0000";
}

BOARD_TEST(mx_vpu_buffer, PacksTiledPlanesThatOverlapOrStartInsideAPage, Command())
{
    constexpr int kOddStride = 80;  // no plane of it is a whole number of pages
    constexpr int kOddHeight = 80;
    const Library library;
    mx_vpu_buffer frame;
    ASSERT_TRUE(frame.b_alloc_tiled(STD_AVC, 0, kOddStride, kOddHeight, 1, TILED_FRAME_MB_RASTER_MAP));
    const auto base = static_cast<uint32_t>(frame.desc.phy_addr / kPageBytes);
    // 6400 bytes of luma are 2 pages, 3200 of chroma 1, 1600 of motion vectors 1
    EXPECT_EQ(frame.desc.size, static_cast<int>(4 * kPageBytes));
    EXPECT_EQ(pagesOf(frame), pages(base, base + 2, 0, 0));
    EXPECT_EQ(static_cast<uint32_t>(frame.mvColBuf), (base + 3) * kPageBytes);

    mx_vpu_buffer fields;
    ASSERT_TRUE(fields.b_alloc_tiled(STD_AVC, 0, kOddStride, kOddHeight, 0, TILED_FIELD_MB_RASTER_MAP));
    const auto first = static_cast<uint32_t>(fields.desc.phy_addr / kPageBytes);
    EXPECT_EQ(fields.desc.size, static_cast<int>(4 * kPageBytes)) << "a page for each plane of each field";
    EXPECT_EQ(pagesOf(fields), pages(first, first + 2, first + 1, first + 3));
    EXPECT_EQ(fields.mvColBuf, 0);
}

class BufferFailure : public testing::TestWithParam<const char*> {};

TEST_P(BufferFailure, LeaksTheBlockOrHoldsIt)
{
    support::runOnBoard({"--fault", GetParam()}, [] {
        const Library library;
        mx_vpu_buffer memory;
        EXPECT_FALSE(memory.b_alloc(STD_AVC, 0, kStride, kHeight, 0));
        EXPECT_FALSE(memory.alloc);
        EXPECT_TRUE(memory.b_alloc_tiled(STD_AVC, 0, kStride, kHeight, 0, TILED_FRAME_MB_RASTER_MAP));
    });
}

INSTANTIATE_TEST_SUITE_P(mx_vpu_buffer, BufferFailure,
                         testing::Values("IOGetPhyMem@*#1=ENOMEM", "IOGetVirtMem@*#1=ENOMEM"),
                         [](const auto& chosen) { return chosen.index == 0 ? "Memory" : "Mapping"; });

}  // namespace
