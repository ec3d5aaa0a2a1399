#include "drivers/mx_vpu_buffer.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>

#include "OnBoard.h"

namespace {

using support::Command;

constexpr int kStride = 1280;
constexpr int kHeight = 736;
constexpr uint32_t kPageBytes = 4096;

/// The codec library in use for as long as this stands: its memory is to be had only then.
struct Library {
    Library() { vpu_Init(nullptr); }
    ~Library() { vpu_UnInit(); }
    Library(const Library&) = delete;
    Library& operator=(const Library&) = delete;
};

struct Raster {
    int format, stride, height, motion;
    int chromaStride, chroma;  ///< to come: bytes of a line, and of one plane
};

BOARD_TEST(mx_vpu_buffer, CutsARasterBlockElsewhereOrLeaksIt, Command())
{
    constexpr Raster kRasters[] = {
        {0, kStride, kHeight, 0, 640, 235520}, {0, kStride, kHeight, 1, 640, 235520},
        {0, 64, 64, 0, 32, 32 * 32},           {1, 64, 64, 0, 32, 32 * 64},
        {2, 64, 64, 0, 64, 64 * 32},           {3, 64, 64, 1, 64, 64 * 64}};
    const Library library;
    for (const Raster& row : kRasters) {
        SCOPED_TRACE(&row - kRasters);
        mx_vpu_buffer memory;
        ASSERT_TRUE(memory.b_alloc(STD_AVC, row.format, row.stride, row.height, row.motion));
        EXPECT_EQ(memory.desc.size, row.stride * row.height + (2 + row.motion) * row.chroma);
        EXPECT_EQ(static_cast<unsigned long>(memory.addrY), memory.desc.phy_addr);
        EXPECT_EQ(memory.addrCb - memory.addrY, row.stride * row.height);
        EXPECT_EQ(memory.addrCr - memory.addrCb, row.chroma);
        EXPECT_EQ(memory.mvColBuf, row.motion * (memory.addrCr + row.chroma));
        EXPECT_EQ(memory.strideY, row.stride);
        EXPECT_EQ(memory.strideC, row.chromaStride);
        // NOLINTNEXTLINE(performance-no-int-to-ptr): the library gives addresses as numbers
        auto* start = reinterpret_cast<void*>(memory.desc.virt_uaddr);
        std::memset(start, 1, static_cast<size_t>(memory.desc.size));  // a shorter mapping does not pass
    }
}

/// The page numbers that the three words hold, luma top, chroma top, luma bottom, chroma bottom: five hex
/// digits each.
std::string pagesOf(const mx_vpu_buffer& memory)
{
    std::array<char, 25> text{};
    std::snprintf(text.data(), text.size(), "%08x%08x%08x", static_cast<unsigned>(memory.addrY),
                  static_cast<unsigned>(memory.addrCb), static_cast<unsigned>(memory.addrCr));
    return text.data();
}

std::string pages(unsigned lumaTop, unsigned chromaTop, unsigned lumaBottom, unsigned chromaBottom)
{
    std::array<char, 40> text{};
    std::snprintf(text.data(), text.size(), "%05x%05x%05x%05x0000", lumaTop, chromaTop, lumaBottom,
                  chromaBottom);
    return text.data();
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

BOARD_TEST(mx_vpu_buffer, HoldsABlockThatItCouldNotGetOrForgetsOneForASecond,
           (Command{"--fault", "IOGetPhyMem@*#1=ENOMEM", "--fault", "IOGetVirtMem@*#1=ENOMEM"}))
{
    const Library library;
    mx_vpu_buffer memory;
    const auto tiled = [&] {
        return memory.b_alloc_tiled(STD_AVC, 0, kStride, kHeight, 0, TILED_FRAME_MB_RASTER_MAP);
    };
    for (int failure = 0; failure < 2; ++failure) {
        EXPECT_FALSE(memory.b_alloc(STD_AVC, 0, kStride, kHeight, 0));
        EXPECT_FALSE(memory.alloc);
    }
    ASSERT_TRUE(tiled());
    const int first = memory.addrY;
    EXPECT_FALSE(tiled());
    EXPECT_FALSE(memory.b_alloc(STD_AVC, 0, kStride, kHeight, 0));
    EXPECT_EQ(memory.addrY, first);
    memory.b_free();
    EXPECT_FALSE(memory.alloc);
    EXPECT_TRUE(tiled());
}

}  // namespace
