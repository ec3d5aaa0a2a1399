#include "drivers/mx_fb.h"

#include <gtest/gtest.h>

#include <array>

#include "Driver.h"

namespace {

using driver::Failure;
using driver::fourcc;
using driver::outputOf;
using support::Command;
using support::Leaves;

constexpr int kWidth = 800;
constexpr int kHeight = 500;

struct Overlay {
    mx_fb::DISP_INFO info = {{50, 50, kWidth, kHeight}, fourcc("NV12")};
    mx_fb fb;

    bool setup() { return fb.setup("/dev/fb1", "/dev/fb0", info); }
    static const board::Framebuffer& plane() { return board::Board::current()->state().framebuffers[1]; }
    static bool isShown() { return plane().blank == FB_BLANK_UNBLANK; }
};

BOARD_TEST(mx_fb, ShowsItsPagesInTurn, Command())
{
    Overlay overlay;
    ASSERT_TRUE(overlay.setup());
    EXPECT_FALSE(overlay.isShown());
    ASSERT_TRUE(overlay.fb.cameraOverlay(15, 75));
    EXPECT_TRUE(overlay.isShown());
    EXPECT_EQ(overlay.plane().x, 15);
    EXPECT_EQ(overlay.plane().y, 75);
    EXPECT_EQ(overlay.plane().mode.yres_virtual, 4U * kHeight);

    constexpr size_t kPageBytes = size_t{kWidth} * kHeight * 3 / 2;
    const size_t first = overlay.fb.getBufferOffset();
    EXPECT_EQ(first, overlay.plane().physicalBase);
    for (unsigned page = 0; page < 2 * mx_fb::kPages; ++page) {
        const unsigned expected = page % mx_fb::kPages;
        EXPECT_EQ(overlay.fb.getBufferOffset(), first + expected * kPageBytes);
        ASSERT_TRUE(overlay.fb.process());
        EXPECT_EQ(overlay.plane().mode.yoffset, expected * kHeight);
    }
}

BOARD_TEST(mx_fb, DoesNotPanWhileHiddenAndClosesOnce, Command())
{
    Overlay overlay;
    ASSERT_TRUE(overlay.setup() && overlay.fb.cameraOverlay(0, 0) && overlay.fb.process());
    const uint32_t pans = overlay.plane().pans;
    ASSERT_TRUE(overlay.fb.hideOverlay());
    EXPECT_FALSE(overlay.isShown());
    const size_t page = overlay.fb.getBufferOffset();
    EXPECT_TRUE(overlay.fb.process());
    EXPECT_EQ(overlay.plane().pans, pans);
    EXPECT_EQ(overlay.fb.getBufferOffset(), page);
    EXPECT_TRUE(overlay.fb.closeOverlay());
    overlay.fb.clearBuffers();  // nothing is mapped now
    EXPECT_TRUE(overlay.fb.closeOverlay());
}

BOARD_TEST(mx_fb, GivesThePlayerAPlainSurface, Command())
{
    Overlay overlay;
    ASSERT_TRUE(overlay.setup() && overlay.fb.simpleOverlay(115, 40));
    EXPECT_EQ(overlay.plane().mode.bits_per_pixel, 32U);
    EXPECT_EQ(overlay.plane().mode.nonstd, 0U);
    EXPECT_EQ(overlay.plane().mode.xres, unsigned{kWidth});
    EXPECT_EQ(overlay.plane().mode.yres_virtual, unsigned{kHeight});
    EXPECT_EQ(overlay.plane().x, 115);
    EXPECT_EQ(overlay.plane().y, 40);
    EXPECT_TRUE(overlay.isShown());
    EXPECT_TRUE(overlay.fb.closeOverlay());
}

BOARD_TEST(mx_fb, OpensAllPagesBlackEachTime, Command())
{
    Overlay overlay;
    ASSERT_TRUE(overlay.setup());
    for (int time = 0; time < 2; ++time) {
        ASSERT_TRUE(overlay.fb.cameraOverlay(0, 0));
        uint8_t* const memory = board::Board::current()->framebuffer(1);
        constexpr size_t kLuma = size_t{kWidth} * kHeight;
        constexpr size_t kPage = kLuma * 3 / 2;
        for (size_t page = 0; page < mx_fb::kPages; ++page) {
            uint8_t* const start = memory + page * kPage;
            EXPECT_TRUE(std::all_of(start, start + kLuma, [](uint8_t value) { return value == 0; }));
            EXPECT_TRUE(
                std::all_of(start + kLuma, start + kPage, [](uint8_t value) { return value == 128; }));
            std::fill(start, start + kPage, uint8_t{77});
        }
        ASSERT_TRUE(overlay.fb.hideOverlay());
    }
}

class FramebufferSetupFailure : public testing::TestWithParam<Failure> {};

TEST_P(FramebufferSetupFailure, IsSaidWithItsStep)
{
    support::runOnBoard(
        {"--fault", GetParam().fault},
        [] {
            const long before = driver::openDescriptors();
            {
                Overlay overlay;
                EXPECT_EQ(outputOf([&] { EXPECT_FALSE(overlay.setup()); }), GetParam().message);
                EXPECT_EQ(driver::openDescriptors() > before, GetParam().staysOpen);
            }
            EXPECT_EQ(driver::openDescriptors(), before);
        },
        Leaves::kSomething);
}

INSTANTIATE_TEST_SUITE_P(mx_fb, FramebufferSetupFailure,
                         testing::Values(Failure{"Background", "open@/dev/fb0#*=ENODEV",
                                                 "Unable to open bg frame buffer\n", false},
                                         Failure{"Alpha", "MXCFB_SET_GBL_ALPHA@/dev/fb0#*=EINVAL",
                                                 "Set global alpha failed\n", false},
                                         Failure{"Overlay", "open@/dev/fb1#*=ENODEV",
                                                 "Unable to open /dev/fb1\n", false},
                                         Failure{"Mode", "FBIOGET_VSCREENINFO@/dev/fb1#1=EIO",
                                                 "fb_display_setup FBIOGET_VSCREENINFO failed\n", true},
                                         Failure{"Blank", "FBIOBLANK@/dev/fb1#5=EIO", "", true}),
                         driver::nameOf);

class CameraOverlayFailure : public testing::TestWithParam<Failure> {};

TEST_P(CameraOverlayFailure, IsSaidWithItsStepAndDoesNotCountAsOpen)
{
    // Priming goes through the same steps, and does not care.
    support::runOnBoard(
        {"--fault", GetParam().fault},
        [] {
            Overlay overlay;
            outputOf([&] { ASSERT_TRUE(overlay.setup()); });
            EXPECT_EQ(outputOf([&] { EXPECT_FALSE(overlay.fb.cameraOverlay(0, 0)); }), GetParam().message);
            EXPECT_FALSE(overlay.fb.isOverlayOpen());
        },
        Leaves::kSomething);
}

INSTANTIATE_TEST_SUITE_P(mx_fb, CameraOverlayFailure,
                         testing::Values(Failure{"Fixed", "FBIOGET_FSCREENINFO@/dev/fb1#3=EIO",
                                                 "cameraOverlay FBIOGET_FSCREENINFO failed\n", true},
                                         Failure{"Mode", "FBIOPUT_VSCREENINFO@/dev/fb1#3=EINVAL",
                                                 "cameraOverlay FBIOPUET_VSCREENINFO failed\n", true},
                                         Failure{"Position", "MXCFB_SET_OVERLAY_POS@/dev/fb1#3=EINVAL",
                                                 "cameraOverlay MXCFB_SET_OVERLAY_POS failed\n", true},
                                         Failure{"Unblank", "FBIOBLANK@/dev/fb1#6=EIO", "", true}),
                         driver::nameOf);

BOARD_TEST(mx_fb, SaysWhatFailedForThePlayersSurface,
           (Command{"--fault", "MXCFB_SET_OVERLAY_POS@/dev/fb1#3=EINVAL"}))
{
    Overlay overlay;
    ASSERT_TRUE(overlay.setup());
    EXPECT_EQ(outputOf([&] { EXPECT_FALSE(overlay.fb.simpleOverlay(0, 0)); }),
              "simpleOverlay MXCFB_SET_OVERLAY_POS failed\n");
    EXPECT_FALSE(overlay.fb.isOverlayOpen());
}

}  // namespace
