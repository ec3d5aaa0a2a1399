#include "framebuffer/FramebufferDevice.h"

#include <gtest/gtest.h>
#include <linux/fb.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "drivers/mxcfb.h"
#include "ipu/PixelFormat.h"
#include "support/ScratchBoard.h"

namespace {

constexpr uint32_t kWidth = 800;
constexpr uint32_t kHeight = 500;
constexpr uint32_t kPages = 4;

class Framebuffers : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(scratch_.usable());
        board::initFramebuffers(scratch_.board());
        background_ = board::makeFramebufferDevice(scratch_.board(), 0);
        overlay_ = board::makeFramebufferDevice(scratch_.board(), 1);
    }

    fb_var_screeninfo mode()
    {
        fb_var_screeninfo mode{};
        EXPECT_EQ(overlay_->ioctl(FBIOGET_VSCREENINFO, &mode), 0);
        return mode;
    }

    fb_fix_screeninfo fixed()
    {
        fb_fix_screeninfo fixed{};
        EXPECT_EQ(overlay_->ioctl(FBIOGET_FSCREENINFO, &fixed), 0);
        return fixed;
    }

    fb_var_screeninfo cameraMode()
    {
        fb_var_screeninfo mode = this->mode();
        mode.xres = mode.xres_virtual = kWidth;
        mode.yres = kHeight;
        mode.yres_virtual = kHeight * kPages;
        mode.nonstd = board::kNv12;
        return mode;
    }

    int put(fb_var_screeninfo mode) { return overlay_->ioctl(FBIOPUT_VSCREENINFO, &mode); }
    void openCameraOverlay()
    {
        ASSERT_EQ(put(cameraMode()), 0);
        ASSERT_EQ(blank(FB_BLANK_UNBLANK), 0);
    }
    int blank(intptr_t level) { return overlay_->ioctl(FBIOBLANK, reinterpret_cast<void*>(level)); }
    int pan(uint32_t line)
    {
        fb_var_screeninfo mode = this->mode();
        mode.yoffset = line;
        return overlay_->ioctl(FBIOPAN_DISPLAY, &mode);
    }
    int move(uint16_t x, uint16_t y)
    {
        mxcfb_pos position{x, y};
        return overlay_->ioctl(MXCFB_SET_OVERLAY_POS, &position);
    }

    const board::Framebuffer& overlay() { return scratch_.state().framebuffers[1]; }

    support::ScratchBoard scratch_;
    std::unique_ptr<board::Device> background_, overlay_;
};

TEST_F(Framebuffers, BootsWithTheBackgroundShownAndTheOverlaySmallAndBlanked)
{
    fb_var_screeninfo shown{};
    ASSERT_EQ(background_->ioctl(FBIOGET_VSCREENINFO, &shown), 0);
    EXPECT_EQ(shown.xres, 1024U);
    EXPECT_EQ(shown.yres, 600U);
    EXPECT_EQ(shown.bits_per_pixel, 32U);
    EXPECT_EQ(scratch_.state().framebuffers[0].blank, 0U);
    EXPECT_NE(overlay().blank, 0U);
    EXPECT_LT(fixed().smem_len, kWidth * kHeight);
}

struct FormatRow {
    uint32_t code;
    uint32_t bits, lineLength;
};

class FramebufferFormat : public Framebuffers, public ::testing::WithParamInterface<FormatRow> {};

TEST_P(FramebufferFormat, DriverChoosesBitsAndLineLengthFromTheFourCharacters)
{
    fb_var_screeninfo wanted = cameraMode();
    wanted.nonstd = GetParam().code;
    wanted.bits_per_pixel = 8;
    ASSERT_EQ(put(wanted), 0);
    EXPECT_EQ(mode().bits_per_pixel, GetParam().bits);
    EXPECT_EQ(fixed().line_length, GetParam().lineLength);
    EXPECT_GE(fixed().smem_len, kPages * kHeight * GetParam().lineLength);
}

INSTANTIATE_TEST_SUITE_P(Formats, FramebufferFormat,
                         ::testing::Values(FormatRow{board::kNv12, 12, 1200},
                                           FormatRow{board::kYu12, 12, 1200},
                                           FormatRow{board::kYuyv, 16, 1600},
                                           FormatRow{board::kUyvy, 16, 1600},
                                           FormatRow{board::kRgbp, 16, 1600}));

TEST_F(Framebuffers, AddressReadBeforeALargerModeIsStale)
{
    const unsigned long before = fixed().smem_start;
    ASSERT_EQ(put(cameraMode()), 0);
    const unsigned long after = fixed().smem_start;
    EXPECT_NE(after, before);
    EXPECT_EQ(scratch_.memory().at(static_cast<uint32_t>(before), 1), nullptr);
    EXPECT_NE(scratch_.memory().at(static_cast<uint32_t>(after), size_t{kWidth} * kHeight * 6), nullptr);
}

TEST_F(Framebuffers, MemoryStaysWhereItIsWhileItIsLargeEnough)
{
    ASSERT_EQ(put(cameraMode()), 0);
    const unsigned long address = fixed().smem_start;
    fb_var_screeninfo simple = mode();
    simple.yres_virtual = kHeight;
    simple.nonstd = 0;
    simple.bits_per_pixel = 32;
    ASSERT_EQ(put(simple), 0);
    ASSERT_EQ(put(cameraMode()), 0);
    EXPECT_EQ(fixed().smem_start, address);
}

TEST_F(Framebuffers, NewMemoryShowsNothingOfTheOldPicture)
{
    std::fill_n(scratch_.board().framebuffer(1), kWidth * kHeight * 6, uint8_t{77});
    ASSERT_EQ(put(cameraMode()), 0);
    const uint8_t* const memory = scratch_.board().framebuffer(1);
    EXPECT_TRUE(std::all_of(memory, memory + kWidth * kHeight * 6, [](uint8_t byte) { return byte == 0; }));
}

struct WrongMode {
    const char* name;
    int error;
    void (*spoil)(fb_var_screeninfo&);
};

void PrintTo(const WrongMode& wrong, std::ostream* out)
{
    *out << wrong.name;
}

std::string nameOf(const ::testing::TestParamInfo<WrongMode>& test)
{
    return test.param.name;
}

const std::vector<WrongMode> kWrongModes{
    {"NoWidth", -EINVAL, [](fb_var_screeninfo& mode) { mode.xres = 0; }},
    {"NoHeight", -EINVAL, [](fb_var_screeninfo& mode) { mode.yres = 0; }},
    {"WiderThanThePanel", -EINVAL, [](fb_var_screeninfo& mode) { mode.xres = mode.xres_virtual = 1032; }},
    {"HigherThanThePanel", -EINVAL, [](fb_var_screeninfo& mode) { mode.yres = 601; }},
    {"VirtualWidthBelowWidth", -EINVAL, [](fb_var_screeninfo& mode) { mode.xres_virtual = 640; }},
    {"VirtualHeightBelowHeight", -EINVAL, [](fb_var_screeninfo& mode) { mode.yres_virtual = 499; }},
    {"UnknownFourCharacters", -EINVAL, [](fb_var_screeninfo& mode) { mode.nonstd = 0x34363248; }},
    {"TwelveBitsWithoutFourCharacters", -EINVAL,
     [](fb_var_screeninfo& mode) {
         mode.nonstd = 0;
         mode.bits_per_pixel = 12;
     }},
    {"MorePagesThanThereIsMemory", -ENOMEM,
     [](fb_var_screeninfo& mode) { mode.yres_virtual = 28 * kHeight; }},
    {"ProductBeyond32Bits", -ENOMEM, [](fb_var_screeninfo& mode) { mode.yres_virtual = 0xFFFFFFFF; }},
};

class FramebufferRefusal : public Framebuffers, public ::testing::WithParamInterface<WrongMode> {};

TEST_P(FramebufferRefusal, ModeIsRefusedAndTheOldOneStays)
{
    openCameraOverlay();
    fb_var_screeninfo wrong = cameraMode();
    GetParam().spoil(wrong);
    EXPECT_EQ(put(wrong), GetParam().error);
    EXPECT_FALSE(scratch_.lastRefusal().empty());
    EXPECT_EQ(mode().xres, kWidth);
    EXPECT_EQ(mode().yres_virtual, kHeight * kPages);
    EXPECT_EQ(mode().nonstd, board::kNv12);
}

INSTANTIATE_TEST_SUITE_P(Modes, FramebufferRefusal, ::testing::ValuesIn(kWrongModes), nameOf);

TEST_F(Framebuffers, TryingAModeChangesNothing)
{
    fb_var_screeninfo wanted = cameraMode();
    wanted.activate = FB_ACTIVATE_TEST;
    const unsigned long address = fixed().smem_start;
    ASSERT_EQ(overlay_->ioctl(FBIOPUT_VSCREENINFO, &wanted), 0);
    EXPECT_EQ(wanted.bits_per_pixel, 12U) << "the answer says what the mode would be";
    EXPECT_NE(mode().xres, kWidth);
    EXPECT_EQ(fixed().smem_start, address);
}

TEST_F(Framebuffers, PansToEveryPageAndNoFurther)
{
    openCameraOverlay();
    for (uint32_t page = 0; page < kPages; ++page) {
        EXPECT_EQ(pan(page * kHeight), 0) << page;
        EXPECT_EQ(mode().yoffset, page * kHeight);
    }
    EXPECT_EQ(pan(kPages * kHeight), -EINVAL);
    EXPECT_EQ(pan(3 * kHeight + 1), -EINVAL);
    EXPECT_EQ(pan(0xFFFFFF00), -EINVAL) << "the sum must not wrap";
    EXPECT_EQ(mode().yoffset, 3 * kHeight);
    EXPECT_EQ(overlay().pans, kPages);
    EXPECT_EQ(scratch_.refusals(), 3U);
}

TEST_F(Framebuffers, BlankedPlaneDoesNotPan)
{
    openCameraOverlay();
    ASSERT_EQ(blank(FB_BLANK_NORMAL), 0);
    EXPECT_EQ(pan(kHeight), -EINVAL);
    EXPECT_EQ(overlay().pans, 0U);
}

TEST_F(Framebuffers, SmallerModeAfterTheLastPageStartsAtTheTop)
{
    openCameraOverlay();
    ASSERT_EQ(pan(3 * kHeight), 0);
    fb_var_screeninfo simple = mode();
    simple.yres_virtual = kHeight;
    simple.nonstd = 0;
    simple.bits_per_pixel = 32;
    EXPECT_EQ(put(simple), 0) << "the mode that was read carries the page shown";
    EXPECT_EQ(mode().yoffset, 0U);
}

TEST_F(Framebuffers, OverlayStaysOnThePanel)
{
    openCameraOverlay();
    EXPECT_EQ(move(224, 100), 0);
    EXPECT_EQ(move(225, 100), -EINVAL);
    EXPECT_EQ(move(224, 101), -EINVAL);
    EXPECT_EQ(overlay().x, 224);
    EXPECT_EQ(overlay().y, 100);
}

TEST_F(Framebuffers, OverlayThatGrowsIsPulledBackOntoThePanel)
{
    ASSERT_EQ(move(784, 280), 0);
    ASSERT_EQ(put(cameraMode()), 0);
    EXPECT_EQ(overlay().x, 224);
    EXPECT_EQ(overlay().y, 100);
}

TEST_F(Framebuffers, BackgroundHasNoPosition)
{
    mxcfb_pos position{0, 0};
    EXPECT_EQ(background_->ioctl(MXCFB_SET_OVERLAY_POS, &position), -EINVAL);
}

TEST_F(Framebuffers, OpacityAbove255IsRefused)
{
    mxcfb_gbl_alpha alpha{1, 256};
    EXPECT_EQ(background_->ioctl(MXCFB_SET_GBL_ALPHA, &alpha), -EINVAL);
    alpha.alpha = -1;
    EXPECT_EQ(background_->ioctl(MXCFB_SET_GBL_ALPHA, &alpha), -EINVAL);
    EXPECT_EQ(scratch_.state().framebuffers[0].alpha, 255U);
}

}  // namespace
