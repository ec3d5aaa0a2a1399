#include "framebuffer/FramebufferDevice.h"

#include <gtest/gtest.h>
#include <linux/fb.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <memory>

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

struct FormatRow {
    uint32_t code;
    uint32_t bits, lineLength;
};

TEST_F(Framebuffers, AFormatGetsOtherBitsOrAnotherLineLength)
{
    for (const FormatRow& row : {FormatRow{board::kNv12, 12, 1200}, FormatRow{board::kYu12, 12, 1200},
                                 FormatRow{board::kYuyv, 16, 1600}, FormatRow{board::kUyvy, 16, 1600},
                                 FormatRow{board::kRgbp, 16, 1600}}) {
        SCOPED_TRACE(row.code);
        fb_var_screeninfo wanted = cameraMode();
        wanted.nonstd = row.code;
        wanted.bits_per_pixel = 8;
        ASSERT_EQ(put(wanted), 0);
        EXPECT_EQ(mode().bits_per_pixel, row.bits);
        EXPECT_EQ(fixed().line_length, row.lineLength);
        EXPECT_GE(fixed().smem_len, kPages * kHeight * row.lineLength);
    }
}

TEST_F(Framebuffers, ALargerModeKeepsItsAddressOrOldPictureAndASmallerOneMoves)
{
    constexpr size_t kBytes = size_t{kWidth} * kHeight * kPages * 3 / 2;
    std::fill_n(scratch_.board().framebuffer(1), kBytes, uint8_t{77});
    const unsigned long before = fixed().smem_start;
    openCameraOverlay();
    const unsigned long after = fixed().smem_start;
    EXPECT_NE(after, before);
    EXPECT_EQ(scratch_.memory().at(static_cast<uint32_t>(before), 1), nullptr);
    EXPECT_NE(scratch_.memory().at(static_cast<uint32_t>(after), kBytes), nullptr);
    const uint8_t* const memory = scratch_.board().framebuffer(1);
    EXPECT_TRUE(std::all_of(memory, memory + kBytes, [](uint8_t byte) { return byte == 0; }));

    ASSERT_EQ(pan(3 * kHeight), 0);
    fb_var_screeninfo simple = mode();  // which carries the page shown
    simple.yres_virtual = kHeight;
    simple.nonstd = 0;
    simple.bits_per_pixel = 32;
    ASSERT_EQ(put(simple), 0);
    EXPECT_EQ(mode().yoffset, 0U);
    ASSERT_EQ(put(cameraMode()), 0);
    EXPECT_EQ(fixed().smem_start, after);
}

void wantsTwelvePlainBits(fb_var_screeninfo& mode)
{
    mode.nonstd = 0;
    mode.bits_per_pixel = 12;
}

struct WrongMode {
    const char* name;
    int error;
    void (*spoil)(fb_var_screeninfo&);
};

constexpr WrongMode kWrongModes[] = {
    {"no width", -EINVAL, [](fb_var_screeninfo& mode) { mode.xres = 0; }},
    {"no height", -EINVAL, [](fb_var_screeninfo& mode) { mode.yres = 0; }},
    {"wider than the panel", -EINVAL, [](fb_var_screeninfo& mode) { mode.xres = mode.xres_virtual = 1032; }},
    {"higher than the panel", -EINVAL, [](fb_var_screeninfo& mode) { mode.yres = 601; }},
    {"virtual width below width", -EINVAL, [](fb_var_screeninfo& mode) { mode.xres_virtual = 640; }},
    {"virtual height below height", -EINVAL, [](fb_var_screeninfo& mode) { mode.yres_virtual = 499; }},
    {"unknown four characters", -EINVAL, [](fb_var_screeninfo& mode) { mode.nonstd = 0x34363248; }},
    {"twelve bits without four characters", -EINVAL, wantsTwelvePlainBits},
    {"more than the memory", -ENOMEM, [](fb_var_screeninfo& mode) { mode.yres_virtual = 28 * kHeight; }},
    {"beyond 32 bits", -ENOMEM, [](fb_var_screeninfo& mode) { mode.yres_virtual = 0xFFFFFFFF; }},
};

TEST_F(Framebuffers, AModeThatIsWrongOrOnlyTriedChangesTheOldOne)
{
    EXPECT_EQ(scratch_.state().framebuffers[0].blank, 0U) << "as the panel boots";
    EXPECT_NE(overlay().blank, 0U);
    const uint32_t oldWidth = mode().xres;
    fb_var_screeninfo tried = cameraMode();
    tried.activate = FB_ACTIVATE_TEST;
    ASSERT_EQ(overlay_->ioctl(FBIOPUT_VSCREENINFO, &tried), 0);
    EXPECT_EQ(tried.bits_per_pixel, 12U) << "the answer says what the mode would be";
    EXPECT_EQ(mode().xres, oldWidth);
    EXPECT_LT(fixed().smem_len, kWidth * kHeight);

    openCameraOverlay();
    for (const WrongMode& row : kWrongModes) {
        SCOPED_TRACE(row.name);
        fb_var_screeninfo wrong = cameraMode();
        row.spoil(wrong);
        const uint32_t before = scratch_.refusals();
        EXPECT_EQ(put(wrong), row.error);
        EXPECT_EQ(scratch_.refusals(), before + 1);
        EXPECT_EQ(mode().xres, kWidth);
        EXPECT_EQ(mode().yres_virtual, kHeight * kPages);
        EXPECT_EQ(mode().nonstd, board::kNv12);
    }
}

TEST_F(Framebuffers, PansFurtherThanToItsPagesOrWhileBlanked)
{
    openCameraOverlay();
    for (uint32_t page = 0; page < kPages; ++page) {
        EXPECT_EQ(pan(page * kHeight), 0) << page;
        EXPECT_EQ(mode().yoffset, page * kHeight);
    }
    EXPECT_EQ(pan(kPages * kHeight), -EINVAL);
    EXPECT_EQ(pan(3 * kHeight + 1), -EINVAL);
    EXPECT_EQ(pan(0xFFFFFF00), -EINVAL) << "the sum must not wrap";
    ASSERT_EQ(blank(FB_BLANK_NORMAL), 0);
    EXPECT_EQ(pan(kHeight), -EINVAL) << "blanked";
    EXPECT_EQ(mode().yoffset, 3 * kHeight);
    EXPECT_EQ(overlay().pans, kPages);
    EXPECT_EQ(scratch_.refusals(), 4U);
}

TEST_F(Framebuffers, TheOverlayLeavesThePanelOrTheBackgroundMovesOrTakesAnyOpacity)
{
    ASSERT_EQ(move(784, 280), 0);
    openCameraOverlay();  // larger: it is pulled back
    EXPECT_EQ(overlay().x, 224);
    EXPECT_EQ(overlay().y, 100);
    EXPECT_EQ(move(225, 100), -EINVAL);
    EXPECT_EQ(move(224, 101), -EINVAL);
    EXPECT_EQ(move(224, 100), 0);
    mxcfb_pos position{0, 0};
    EXPECT_EQ(background_->ioctl(MXCFB_SET_OVERLAY_POS, &position), -EINVAL);
    for (const int opacity : {256, -1}) {
        mxcfb_gbl_alpha alpha{1, opacity};
        EXPECT_EQ(background_->ioctl(MXCFB_SET_GBL_ALPHA, &alpha), -EINVAL);
    }
    EXPECT_EQ(scratch_.state().framebuffers[0].alpha, 255U);
}

}  // namespace
