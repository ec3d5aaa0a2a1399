#include "panel/Panel.h"

#include <gtest/gtest.h>
#include <linux/fb.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <vector>

#include "drivers/mxcfb.h"
#include "framebuffer/FramebufferDevice.h"
#include "ipu/PixelFormat.h"
#include "support/Pictures.h"
#include "support/ScratchBoard.h"

namespace {

constexpr uint32_t kWidth = 400;
constexpr uint32_t kHeight = 240;
constexpr uint32_t kX = 115;
constexpr uint32_t kY = 40;

using Rgb = std::array<int, 3>;

bool near(const Rgb& a, const Rgb& b, int tolerance)
{
    return std::equal(a.begin(), a.end(), b.begin(),
                      [&](int left, int right) { return std::abs(left - right) <= tolerance; });
}

/// A panel with an overlay of two pages that shines through fully; a test paints it and looks at pixels.
class Panel : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(scratch_.usable());
        board::initFramebuffers(scratch_.board());
        background_ = board::makeFramebufferDevice(scratch_.board(), 0);
        overlay_ = board::makeFramebufferDevice(scratch_.board(), 1);
        booted_ = pixels();
        setOpacity(0);
    }

    void openOverlay(uint32_t fourCharacters, uint32_t bits)
    {
        fb_var_screeninfo mode{};
        mode.xres = mode.xres_virtual = kWidth;
        mode.yres = kHeight;
        mode.yres_virtual = 2 * kHeight;
        mode.nonstd = fourCharacters;
        mode.bits_per_pixel = bits;
        mxcfb_pos position{kX, kY};
        ASSERT_EQ(overlay_->ioctl(FBIOPUT_VSCREENINFO, &mode), 0);
        ASSERT_EQ(overlay_->ioctl(MXCFB_SET_OVERLAY_POS, &position), 0);
        ASSERT_EQ(overlay_->ioctl(FBIOBLANK, nullptr), 0);
    }

    void openWhiteOverlay()
    {
        openOverlay(0, 32);
        std::fill_n(scratch_.board().framebuffer(1), kWidth * kHeight * 4, uint8_t{255});
    }

    void setOpacity(int opacity)
    {
        mxcfb_gbl_alpha alpha{1, opacity};
        ASSERT_EQ(background_->ioctl(MXCFB_SET_GBL_ALPHA, &alpha), 0);
    }

    std::vector<uint8_t> pixels() { return board::composePanel(scratch_.board()); }
    static Rgb at(const std::vector<uint8_t>& panel, uint32_t x, uint32_t y)
    {
        const uint8_t* const pixel = panel.data() + (size_t{y} * board::kPanelWidth + x) * 3;
        return {pixel[0], pixel[1], pixel[2]};
    }
    Rgb at(uint32_t x, uint32_t y) { return at(pixels(), x, y); }

    support::ScratchBoard scratch_;
    std::unique_ptr<board::Device> background_, overlay_;
    std::vector<uint8_t> booted_;
};

constexpr Rgb kWhite{255, 255, 255};
constexpr Rgb kBlack{0, 0, 0};

/// A format and the bytes that paint orange in it, one pattern a plane.
struct OrangeRow {
    uint32_t code, bits;
    std::array<std::vector<uint8_t>, 3> patterns;
};

// Orange is red 240, green 128, blue 16; by BT.601 in video range Y 144, U 62, V 185.
constexpr Rgb kOrange{240, 128, 16};
const OrangeRow kOrangeRows[] = {
    {board::kNv12, 12, {{{144}, {62, 185}}}},
    {board::kYu12, 12, {{{144}, {62}, {185}}}},
    {board::kYuyv, 16, {{{144, 62, 144, 185}}}},
    {board::kUyvy, 16, {{{62, 144, 185, 144}}}},
    {board::kRgbp, 16, {{{0x02, 0xEC}}}},
    {0, 16, {{{0x02, 0xEC}}}},
    {0, 24, {{{16, 128, 240}}}},
    {0, 32, {{{16, 128, 240, 0}}}},
};

/// A page by its format's own words: twelve bits are a plane of luma, and chroma for each four pixels.
std::vector<uint8_t> orangePage(const OrangeRow& row)
{
    constexpr size_t kPixels = size_t{kWidth} * kHeight;
    const size_t first = row.bits == 12 ? kPixels : kPixels * row.bits / 8;
    std::vector<uint8_t> page;
    for (const std::vector<uint8_t>& pattern : row.patterns) {
        const size_t end = page.empty() ? first : page.size() + kPixels / 4 * pattern.size();
        for (size_t i = 0; page.size() < end; ++i) {
            page.push_back(pattern[i % pattern.size()]);
        }
    }
    return page;
}

TEST_F(Panel, ShowsAnotherPageThanWasPannedToOrInAnotherPlaceOrColour)
{
    constexpr int kTolerance = 6;
    const uint32_t right = kX + kWidth - 1;
    const uint32_t bottom = kY + kHeight - 1;
    for (const OrangeRow& row : kOrangeRows) {
        SCOPED_TRACE(testing::Message() << row.code << ", " << row.bits << " bits");
        openOverlay(row.code, row.bits);
        const std::vector<uint8_t> page = orangePage(row);
        std::copy(page.begin(), page.end(), scratch_.board().framebuffer(1) + page.size());
        fb_var_screeninfo mode{};
        mode.yoffset = kHeight;
        ASSERT_EQ(overlay_->ioctl(FBIOPAN_DISPLAY, &mode), 0);

        const std::vector<uint8_t> panel = pixels();
        EXPECT_TRUE(near(at(panel, kX, kY), kOrange, kTolerance));
        EXPECT_TRUE(near(at(panel, right, bottom), kOrange, kTolerance));
        EXPECT_EQ(at(panel, kX - 1, kY), at(booted_, kX - 1, kY));
        EXPECT_EQ(at(panel, right + 1, bottom), at(booted_, right + 1, bottom));
        EXPECT_EQ(at(panel, kX, bottom + 1), at(booted_, kX, bottom + 1));
    }
}

TEST_F(Panel, MixesThePlanesWrongOrShowsABlankedOne)
{
    openWhiteOverlay();
    setOpacity(255);
    EXPECT_EQ(pixels(), booted_);
    setOpacity(128);
    Rgb mixed = at(booted_, kX, kY);
    std::transform(mixed.begin(), mixed.end(), mixed.begin(),
                   [](int under) { return (255 * 127 + under * 128) / 255; });
    EXPECT_TRUE(near(at(kX, kY), mixed, 1)) << ::testing::PrintToString(at(kX, kY));
    setOpacity(0);
    EXPECT_EQ(at(kX, kY), kWhite);

    void* const hidden = reinterpret_cast<void*>(intptr_t{FB_BLANK_NORMAL});
    ASSERT_EQ(background_->ioctl(FBIOBLANK, hidden), 0);
    EXPECT_EQ(at(0, 0), kBlack);
    EXPECT_EQ(at(kX, kY), kWhite);
    ASSERT_EQ(background_->ioctl(FBIOBLANK, nullptr), 0);
    ASSERT_EQ(overlay_->ioctl(FBIOBLANK, hidden), 0);
    EXPECT_EQ(pixels(), booted_);
}

TEST_F(Panel, AnOverlayThatReachesOutWrapsRound)
{
    openWhiteOverlay();
    scratch_.state().framebuffers[1].x = 900;
    scratch_.state().framebuffers[1].y = 500;
    const std::vector<uint8_t> panel = pixels();
    EXPECT_EQ(at(panel, 1023, 599), kWhite);
    EXPECT_EQ(at(panel, 899, 599), at(booted_, 899, 599));
    EXPECT_EQ(at(panel, 0, 501), at(booted_, 0, 501));
}

TEST_F(Panel, ASnapshotShowsSomethingElseOrHidesThatItCannotBeWritten)
{
    openWhiteOverlay();
    ASSERT_TRUE(board::writeSnapshot(scratch_.board(), scratch_.file("panel.png")));
    const support::Png picture = support::readPng(scratch_.file("panel.png"));
    EXPECT_EQ(picture.width, 1024);
    EXPECT_EQ(picture.height, 600);
    EXPECT_EQ(picture.rgb, pixels());
    EXPECT_FALSE(board::writeSnapshot(scratch_.board(), scratch_.file("missing/panel.png")));
}

}  // namespace
