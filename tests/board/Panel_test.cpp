#include "panel/Panel.h"

#include <gtest/gtest.h>
#include <linux/fb.h>
#include <png.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "drivers/mxcfb.h"
#include "framebuffer/FramebufferDevice.h"
#include "ipu/Picture.h"
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
    const char* name;
    uint32_t code, bits;
    std::array<std::vector<uint8_t>, 3> patterns;
};

void PrintTo(const OrangeRow& row, std::ostream* out)
{
    *out << row.name;
}

std::string nameOf(const ::testing::TestParamInfo<OrangeRow>& test)
{
    return test.param.name;
}

// Orange is red 240, green 128, blue 16; by BT.601 in video range Y 144, U 62, V 185.
constexpr Rgb kOrange{240, 128, 16};
const std::vector<OrangeRow> kOrangeRows{
    {"Nv12", board::kNv12, 0, {{{144}, {62, 185}}}},
    {"Yu12", board::kYu12, 0, {{{144}, {62}, {185}}}},
    {"Yuyv", board::kYuyv, 0, {{{144, 62, 144, 185}}}},
    {"Uyvy", board::kUyvy, 0, {{{62, 144, 185, 144}}}},
    {"Rgbp", board::kRgbp, 0, {{{0x02, 0xEC}}}},
    {"Bits16", 0, 16, {{{0x02, 0xEC}}}},
    {"Bits24", 0, 24, {{{16, 128, 240}}}},
    {"Bits32", 0, 32, {{{16, 128, 240, 0}}}},
};

class PanelFormat : public Panel, public ::testing::WithParamInterface<OrangeRow> {
protected:
    void paintSecondPage()
    {
        const board::PixelFormat* const format = board::findPixelFormat(GetParam().code);
        const size_t planes = format == nullptr ? 1 : format->planeCount;
        const size_t pixels = size_t{kWidth} * kHeight;
        const size_t bits = format == nullptr ? GetParam().bits : format->bitsPerPixel;
        uint8_t* byte = scratch_.board().framebuffer(1) + pixels * bits / 8;
        for (size_t plane = 0; plane < planes; ++plane) {
            const size_t bytes =
                planes == 1 ? pixels * bits / 8 : (plane == 0 ? pixels : pixels / 2 / (planes - 1));
            const std::vector<uint8_t>& pattern = GetParam().patterns.at(plane);
            for (size_t i = 0; i < bytes; ++i) {
                *byte++ = pattern.at(i % pattern.size());
            }
        }
    }
};

TEST_P(PanelFormat, ShowsThePageThatWasPannedToAtItsPlaceInItsColour)
{
    openOverlay(GetParam().code, GetParam().bits);
    paintSecondPage();
    fb_var_screeninfo mode{};
    mode.yoffset = kHeight;
    ASSERT_EQ(overlay_->ioctl(FBIOPAN_DISPLAY, &mode), 0);

    constexpr int kTolerance = 6;
    const std::vector<uint8_t> panel = pixels();
    const uint32_t right = kX + kWidth - 1;
    const uint32_t bottom = kY + kHeight - 1;
    EXPECT_TRUE(near(at(panel, kX, kY), kOrange, kTolerance)) << ::testing::PrintToString(at(panel, kX, kY));
    EXPECT_TRUE(near(at(panel, right, bottom), kOrange, kTolerance))
        << ::testing::PrintToString(at(panel, right, bottom));
    EXPECT_EQ(at(panel, kX - 1, kY), at(booted_, kX - 1, kY));
    EXPECT_EQ(at(panel, right + 1, bottom), at(booted_, right + 1, bottom));
    EXPECT_EQ(at(panel, kX, bottom + 1), at(booted_, kX, bottom + 1));
}

INSTANTIATE_TEST_SUITE_P(Formats, PanelFormat, ::testing::ValuesIn(kOrangeRows), nameOf);

TEST_F(Panel, BackgroundCoversTheOverlayUntilItsOpacityGoes)
{
    openWhiteOverlay();
    setOpacity(255);
    EXPECT_EQ(pixels(), booted_);
    setOpacity(0);
    EXPECT_EQ(at(kX, kY), kWhite);
}

TEST_F(Panel, HalfOpaqueBackgroundMixes)
{
    openWhiteOverlay();
    setOpacity(128);
    const Rgb under = at(booted_, kX, kY);
    const Rgb expected{(255 * 127 + under[0] * 128) / 255, (255 * 127 + under[1] * 128) / 255,
                       (255 * 127 + under[2] * 128) / 255};
    EXPECT_TRUE(near(at(kX, kY), expected, 1)) << ::testing::PrintToString(at(kX, kY));
}

TEST_F(Panel, BlankedOverlayIsNotShown)
{
    openWhiteOverlay();
    ASSERT_EQ(overlay_->ioctl(FBIOBLANK, reinterpret_cast<void*>(intptr_t{FB_BLANK_NORMAL})), 0);
    EXPECT_EQ(pixels(), booted_);
}

TEST_F(Panel, BlankedBackgroundIsBlackAroundTheOverlay)
{
    openWhiteOverlay();
    ASSERT_EQ(background_->ioctl(FBIOBLANK, reinterpret_cast<void*>(intptr_t{FB_BLANK_NORMAL})), 0);
    EXPECT_EQ(at(0, 0), kBlack);
    EXPECT_EQ(at(kX, kY), kWhite);
}

TEST_F(Panel, OverlayThatReachesOutIsCutOff)
{
    openWhiteOverlay();
    scratch_.state().framebuffers[1].x = 900;
    scratch_.state().framebuffers[1].y = 500;
    const std::vector<uint8_t> panel = pixels();
    EXPECT_EQ(at(panel, 1023, 599), kWhite);
    EXPECT_EQ(at(panel, 899, 599), at(booted_, 899, 599));
    EXPECT_EQ(at(panel, 0, 501), at(booted_, 0, 501)) << "lines must not wrap round to the left";
}

TEST_F(Panel, SnapshotIsAPngOfWhatThePanelShows)
{
    openWhiteOverlay();
    const std::string file = scratch_.file("panel.png");
    ASSERT_TRUE(board::writeSnapshot(scratch_.board(), file));

    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    ASSERT_NE(png_image_begin_read_from_file(&image, file.c_str()), 0);
    image.format = PNG_FORMAT_RGB;
    ASSERT_EQ(image.width, 1024U);
    ASSERT_EQ(image.height, 600U);
    std::vector<uint8_t> read(PNG_IMAGE_SIZE(image));
    ASSERT_NE(png_image_finish_read(&image, nullptr, read.data(), 0, nullptr), 0);
    EXPECT_EQ(read, pixels());
}

TEST_F(Panel, SnapshotSaysWhenItCannotBeWritten)
{
    EXPECT_FALSE(board::writeSnapshot(scratch_.board(), scratch_.file("missing/panel.png")));
}

}  // namespace
