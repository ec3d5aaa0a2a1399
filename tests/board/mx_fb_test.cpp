#include "drivers/mx_fb.h"

#include <gtest/gtest.h>

#include <algorithm>

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

BOARD_TEST(mx_fb, OpensAPageThatIsNotBlackOrShowsThemOutOfTurn, Command())
{
    constexpr size_t kLuma = size_t{kWidth} * kHeight;
    constexpr size_t kPage = kLuma * 3 / 2;
    Overlay overlay;
    ASSERT_TRUE(overlay.setup());
    for (int time = 0; time < 2; ++time) {
        EXPECT_FALSE(overlay.isShown());
        ASSERT_TRUE(overlay.fb.cameraOverlay(15, 75));
        EXPECT_TRUE(overlay.isShown());
        EXPECT_EQ(overlay.plane().x, 15);
        EXPECT_EQ(overlay.plane().y, 75);
        EXPECT_EQ(overlay.plane().mode.yres_virtual, 4U * kHeight);
        for (size_t page = 0; page < 2 * mx_fb::kPages; ++page) {
            const size_t expected = page % mx_fb::kPages * kPage;
            EXPECT_EQ(overlay.fb.getBufferOffset(), overlay.plane().physicalBase + expected);
            ASSERT_TRUE(overlay.fb.process());
            EXPECT_EQ(overlay.plane().mode.yoffset, page % mx_fb::kPages * kHeight);

            uint8_t* const start = board::Board::current()->framebuffer(1) + expected;
            const bool drawn = page >= mx_fb::kPages;
            EXPECT_EQ(std::count(start, start + kLuma, drawn ? 77 : 0), ptrdiff_t{kLuma});
            EXPECT_EQ(std::count(start + kLuma, start + kPage, drawn ? 77 : 128), ptrdiff_t{kPage - kLuma});
            std::fill(start, start + kPage, uint8_t{77});
        }
        ASSERT_TRUE(overlay.fb.hideOverlay());
    }
}

BOARD_TEST(mx_fb, PansWhileHiddenOrClosesTwiceOrGivesThePlayerItsOwnMode, Command())
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

    ASSERT_TRUE(overlay.fb.simpleOverlay(115, 40));
    EXPECT_EQ(overlay.plane().mode.bits_per_pixel, 32U);
    EXPECT_EQ(overlay.plane().mode.nonstd, 0U);
    EXPECT_EQ(overlay.plane().mode.xres, unsigned{kWidth});
    EXPECT_EQ(overlay.plane().mode.yres_virtual, unsigned{kHeight});
    EXPECT_EQ(overlay.plane().x, 115);
    EXPECT_EQ(overlay.plane().y, 40);
    EXPECT_TRUE(overlay.isShown());
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

INSTANTIATE_TEST_SUITE_P(
    mx_fb, FramebufferSetupFailure,
    testing::Values(Failure{"Background", "open@/dev/fb0#*=ENODEV", "Unable to open bg frame buffer\n"},
                    Failure{"Alpha", "MXCFB_SET_GBL_ALPHA@/dev/fb0#*=EINVAL", "Set global alpha failed\n"},
                    Failure{"Overlay", "open@/dev/fb1#*=ENODEV", "Unable to open /dev/fb1\n"},
                    Failure{"Mode", "FBIOGET_VSCREENINFO@/dev/fb1#1=EIO",
                            "fb_display_setup FBIOGET_VSCREENINFO failed\n", true},
                    Failure{"Blank", "FBIOBLANK@/dev/fb1#5=EIO", "", true}),
    driver::nameOf);

class OverlayFailure : public testing::TestWithParam<Failure> {};

TEST_P(OverlayFailure, IsSaidWithItsStepAndDoesNotCountAsOpen)
{
    // Priming goes through the same steps, and does not care.
    support::runOnBoard(
        {"--fault", GetParam().fault},
        [] {
            Overlay overlay;
            outputOf([&] { ASSERT_TRUE(overlay.setup()); });
            const bool simple = GetParam().message[0] == 's';
            const auto open = [&] {
                return simple ? overlay.fb.simpleOverlay(0, 0) : overlay.fb.cameraOverlay(0, 0);
            };
            EXPECT_EQ(outputOf([&] { EXPECT_FALSE(open()); }), GetParam().message);
            EXPECT_FALSE(overlay.fb.isOverlayOpen());
        },
        Leaves::kSomething);
}

INSTANTIATE_TEST_SUITE_P(mx_fb, OverlayFailure,
                         testing::Values(Failure{"Fixed", "FBIOGET_FSCREENINFO@/dev/fb1#3=EIO",
                                                 "cameraOverlay FBIOGET_FSCREENINFO failed\n"},
                                         Failure{"Mode", "FBIOPUT_VSCREENINFO@/dev/fb1#3=EINVAL",
                                                 "cameraOverlay FBIOPUET_VSCREENINFO failed\n"},
                                         Failure{"Position", "MXCFB_SET_OVERLAY_POS@/dev/fb1#3=EINVAL",
                                                 "cameraOverlay MXCFB_SET_OVERLAY_POS failed\n"},
                                         Failure{"PlayersPosition", "MXCFB_SET_OVERLAY_POS@/dev/fb1#3=EINVAL",
                                                 "simpleOverlay MXCFB_SET_OVERLAY_POS failed\n"},
                                         Failure{"Unblank", "FBIOBLANK@/dev/fb1#6=EIO", ""}),
                         driver::nameOf);

}  // namespace
