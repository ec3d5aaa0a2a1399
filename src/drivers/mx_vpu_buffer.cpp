#include "drivers/mx_vpu_buffer.h"

#include <array>
#include <cstddef>
#include <cstdint>

namespace {

constexpr int kPageBytes = 4096;  // what the tiled layouts align to
constexpr unsigned kPageShift = 12;
constexpr int kWordBits = 32;
constexpr int kPageNumberBits = 20;

enum PixelFormat { k420 = 0, k422 = 1, k224 = 2 };

struct PlaneSizes {
    int chromaStride;
    int luma;
    int chroma;  // of one of the two planes
};

PlaneSizes planeSizes(int pixelFormat, int lumaStride, int height)
{
    const int horizontalDivisor = pixelFormat == k420 || pixelFormat == k422 ? 2 : 1;
    const int verticalDivisor = pixelFormat == k420 || pixelFormat == k224 ? 2 : 1;
    PlaneSizes sizes = {};
    sizes.chromaStride = lumaStride / horizontalDivisor;
    sizes.luma = lumaStride * height;
    sizes.chroma = sizes.chromaStride * (height / verticalDivisor);
    return sizes;
}

int wholePages(int size)
{
    return (size + kPageBytes - 1) / kPageBytes * kPageBytes;
}

/// The record keeps an address as 32 bits in an int.
int word(uint32_t address)
{
    return static_cast<int>(address);
}

/// A page number moved up, or down for a negative shift; what leaves the word is cut off.
uint32_t shifted(uint32_t page, int shift)
{
    if (shift <= -kPageNumberBits || shift >= kWordBits) {
        return 0;
    }
    return shift >= 0 ? page << shift : page >> -shift;
}

/// A tiled frame: top planes, bottom planes, motion vectors, each on whole pages.
struct TiledLayout {
    int planes;  // of luma, and of chroma: 1 for both fields, or 2
    int luma;    // bytes of one plane
    int chroma;  // bytes of one plane, Cb and Cr together
    int motion;
};

TiledLayout tiledLayout(const PlaneSizes& sizes, int mapType, int mvCol)
{
    TiledLayout layout = {};
    layout.planes = mapType == TILED_FRAME_MB_RASTER_MAP ? 1 : 2;
    layout.luma = wholePages(sizes.luma / layout.planes);
    layout.chroma = wholePages(2 * sizes.chroma / layout.planes);
    layout.motion = mvCol != 0 ? wholePages(sizes.chroma) : 0;
    return layout;
}

/// The three address words of a tiled frame, taken as one row of bits from the highest of the first word on:
/// the page numbers of luma top, chroma top, luma bottom and chroma bottom one behind the other. The bits
/// that are left are 0, and so are the bottom planes where one plane holds both fields.
using TiledWords = std::array<uint32_t, 3>;

TiledWords packTiled(uint32_t base, const TiledLayout& layout)
{
    const auto luma = static_cast<uint32_t>(layout.luma);
    const auto chroma = static_cast<uint32_t>(layout.chroma);
    const bool fields = layout.planes == 2;
    const uint32_t chromaBase = base + luma * (fields ? 2 : 1);
    const std::array<uint32_t, 4> starts{base, chromaBase, fields ? base + luma : 0,
                                         fields ? chromaBase + chroma : 0};
    TiledWords words = {};
    for (int plane = 0; plane < static_cast<int>(starts.size()); ++plane) {
        const uint32_t page = starts[static_cast<size_t>(plane)] >> kPageShift;
        for (int index = 0; index < static_cast<int>(words.size()); ++index) {
            const int shift = kWordBits * (index + 1) - kPageNumberBits * (plane + 1);
            words[static_cast<size_t>(index)] |= shifted(page, shift);
        }
    }
    return words;
}

}  // namespace

mx_vpu_buffer::~mx_vpu_buffer()
{
    if (alloc) {
        b_free();
    }
}

bool mx_vpu_buffer::b_alloc(int /*stdMode*/, int pixelFormat, int lumaStride, int height, int mvCol)
{
    if (alloc) {
        return false;
    }
    const PlaneSizes sizes = planeSizes(pixelFormat, lumaStride, height);
    const int motionSize = mvCol != 0 ? sizes.chroma : 0;
    if (!takeBlock(sizes.luma + 2 * sizes.chroma + motionSize)) {
        return false;
    }
    const auto base = static_cast<uint32_t>(desc.phy_addr);
    const uint32_t cb = base + static_cast<uint32_t>(sizes.luma);
    const uint32_t cr = cb + static_cast<uint32_t>(sizes.chroma);
    addrY = word(base);
    addrCb = word(cb);
    addrCr = word(cr);
    mvColBuf = mvCol != 0 ? word(cr + static_cast<uint32_t>(sizes.chroma)) : 0;
    strideY = lumaStride;
    strideC = sizes.chromaStride;
    return mapBlock();
}

bool mx_vpu_buffer::b_alloc_tiled(int /*stdMode*/, int pixelFormat, int lumaStride, int height, int mvCol,
                                  int mapType)
{
    if (alloc) {
        return false;
    }
    const PlaneSizes sizes = planeSizes(pixelFormat, lumaStride, height);
    const TiledLayout layout = tiledLayout(sizes, mapType, mvCol);
    const int planesSize = layout.planes * (layout.luma + layout.chroma);
    if (!takeBlock(planesSize + layout.motion)) {
        return false;
    }
    // The block starts on a page of its own accord: the allocator hands out whole pages.
    const auto base = static_cast<uint32_t>(desc.phy_addr);
    const TiledWords words = packTiled(base, layout);
    addrY = word(words[0]);
    addrCb = word(words[1]);
    addrCr = word(words[2]);
    mvColBuf = mvCol != 0 ? word(base + static_cast<uint32_t>(planesSize)) : 0;
    strideY = lumaStride;
    strideC = sizes.chromaStride;
    return mapBlock();
}

bool mx_vpu_buffer::takeBlock(int size)
{
    desc = {};
    desc.size = size;
    return IOGetPhyMem(&desc) == 0;
}

bool mx_vpu_buffer::mapBlock()
{
    if (IOGetVirtMem(&desc) == -1) {
        IOFreePhyMem(&desc);
        desc = {};
        return false;
    }
    alloc = true;
    return true;
}

void mx_vpu_buffer::b_free()
{
    if (desc.virt_uaddr != 0) {
        IOFreeVirtMem(&desc);
    }
    if (desc.phy_addr != 0) {
        IOFreePhyMem(&desc);
    }
    desc = {};
    alloc = false;
}
