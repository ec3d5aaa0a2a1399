// The player's video sink: real pipelines draw into the overlay of a running board, and the panel is looked
// at.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/fb.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdlib>
#include <string>

#include "Folder.h"
#include "OnBoard.h"
#include "drivers/mxcfb.h"
#include "ipu/PixelFormat.h"
#include "panel/Panel.h"

namespace {

using support::Command;

constexpr uint32_t kWidth = 400;
constexpr uint32_t kHeight = 240;
constexpr uint32_t kPitch = 416;  // pixels from one line to the next
constexpr uint32_t kX = 115;
constexpr uint32_t kY = 40;

struct Mode {
    const char* label;
    uint32_t fourCharacters;
    uint32_t bits;
};
constexpr Mode kNv12Mode{"NV12", board::kNv12, 12};
constexpr Mode kRgb32Mode{"32 bits", 0, 32};

/// An overlay of two pages, the second one shown.
class Overlay {
public:
    Overlay() : fd_(::open("/dev/fb1", O_RDWR | O_CLOEXEC))
    {
        const int background = ::open("/dev/fb0", O_RDWR | O_CLOEXEC);
        mxcfb_gbl_alpha transparent{1, 0};
        EXPECT_EQ(::ioctl(background, MXCFB_SET_GBL_ALPHA, &transparent), 0);
        ::close(background);
    }
    ~Overlay() { ::close(fd_); }
    Overlay(const Overlay&) = delete;
    Overlay& operator=(const Overlay&) = delete;

    void show(const Mode& mode) const
    {
        fb_var_screeninfo screen{};
        screen.xres = kWidth;
        screen.xres_virtual = kPitch;
        screen.yres = kHeight;
        screen.yres_virtual = 2 * kHeight;
        screen.nonstd = mode.fourCharacters;
        screen.bits_per_pixel = mode.bits;
        mxcfb_pos position{kX, kY};
        ASSERT_EQ(::ioctl(fd_, FBIOPUT_VSCREENINFO, &screen), 0);
        ASSERT_EQ(::ioctl(fd_, MXCFB_SET_OVERLAY_POS, &position), 0);
        blank(FB_BLANK_UNBLANK);
        screen.yoffset = kHeight;
        ASSERT_EQ(::ioctl(fd_, FBIOPAN_DISPLAY, &screen), 0);
    }

    void blank(int level) const { ASSERT_EQ(::ioctl(fd_, FBIOBLANK, level), 0); }

private:
    int fd_;
};

using Rgb = std::array<uint8_t, 3>;
constexpr Rgb kRed{255, 0, 0};
constexpr Rgb kBlack{0, 0, 0};

/// Whether the panel has this colour at a place in the overlay.
bool isAt(const Rgb& colour, uint32_t x, uint32_t y)
{
    constexpr int kTolerance = 12;  // of conversions there and back
    const auto panel = board::composePanel(*board::Board::current());
    const size_t at = (size_t{kY + y} * board::kPanelWidth + kX + x) * colour.size();
    for (size_t i = 0; i < colour.size(); ++i) {
        if (std::abs(panel[at + i] - colour[i]) > kTolerance) {
            return false;
        }
    }
    return true;
}

/// A red square fills the overlay's height in its middle, and what is beside it is black.
bool showsSquare()
{
    constexpr uint32_t kLeft = (kWidth - kHeight) / 2;
    constexpr uint32_t kRight = kLeft + kHeight;
    constexpr uint32_t kMargin = 4;  // edges are soft
    return isAt(kRed, kLeft + kMargin, 0) && isAt(kRed, kRight - kMargin, kHeight - 1) &&
           isAt(kBlack, kLeft - kMargin, kHeight / 2) && isAt(kBlack, kRight + kMargin, 0) &&
           isAt(kBlack, 0, 0) && isAt(kBlack, kWidth - 1, kHeight - 1);
}

Command pipeline(const std::string& pictures, const std::string& framebuffer = "/dev/fb1")
{
    return {"/usr/bin/env",
            "LSAN_OPTIONS=detect_leaks=0",  // what the player's libraries keep is not ours to judge
            "/usr/bin/gst-launch-1.0",
            "videotestsrc",
            "pattern=red",
            pictures,
            "!",
            "video/x-raw,format=I420,width=200,height=200",
            "!",
            "imxipuvideosink",
            "framebuffer=" + framebuffer};
}

constexpr const char* kOne = "num-buffers=1";
constexpr const char* kNoEnd = "is-live=true";

BOARD_TEST(VideoSink, DrawsBesideTheShownPageOrShowsABlankedOverlay, Command{})
{
    constexpr std::array kModes{
        kRgb32Mode,
        kNv12Mode,
        Mode{"24 bits", 0, 24},
        Mode{"RGBP", board::kRgbp, 16},
        Mode{"YU12", board::kYu12, 12},
        Mode{"16 bits", 0, 16},  // the pixels of RGBP: not next to it
        Mode{"YUYV", board::kYuyv, 16},
        Mode{"UYVY", board::kUyvy, 16},
    };
    const Overlay overlay;
    for (const Mode& mode : kModes) {
        SCOPED_TRACE(mode.label);
        overlay.show(mode);
        EXPECT_FALSE(showsSquare());
        overlay.blank(FB_BLANK_NORMAL);
        const auto before = board::composePanel(*board::Board::current());
        const support::Outcome outcome = support::runToEnd(pipeline(kOne));
        EXPECT_EQ(outcome.status, 0) << outcome.output << outcome.error;
        EXPECT_EQ(board::composePanel(*board::Board::current()), before) << "its owner has blanked it";
        overlay.blank(FB_BLANK_UNBLANK);
        EXPECT_TRUE(showsSquare());
    }
}

BOARD_TEST(VideoSink, KeepsTheModeThatItBeganWith, Command{})
{
    const support::Folder folder;
    const Overlay overlay;
    overlay.show(kRgb32Mode);
    support::Child player(pipeline(kNoEnd), folder.file("output"), folder.file("error"));
    EXPECT_TRUE(support::waitUntil(showsSquare));
    overlay.show(kNv12Mode);
    EXPECT_TRUE(support::waitUntil(showsSquare)) << support::readFile(folder.file("error"));
    player.signal(SIGINT);
    EXPECT_TRUE(player.wait().has_value());
}

BOARD_TEST(VideoSink, PlaysWithoutAFramebuffer, Command{})
{
    const support::Outcome outcome = support::runToEnd(pipeline(kOne, "/dev/fb9"));
    EXPECT_TRUE(outcome.status.has_value());
    EXPECT_NE(outcome.status, 0);
    EXPECT_NE(outcome.error.find("Cannot open /dev/fb9: No such file or directory"), std::string::npos)
        << outcome.error;
}

}  // namespace
