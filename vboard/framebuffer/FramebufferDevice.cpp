#include "framebuffer/FramebufferDevice.h"

#include <linux/fb.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <string>

#include "board/Real.h"
#include "drivers/mxcfb.h"
#include "framebuffer/Background.h"
#include "ipu/PixelFormat.h"

namespace board {
namespace {

constexpr uint32_t kBackground = 0;
constexpr uint32_t kOverlay = 1;
constexpr uint32_t kOpaque = 255;

/// Where the background's memory starts: below everything that the overlay may get.
constexpr uint32_t kBackgroundBase = kOverlayBase - kFramebufferFileBytes;
constexpr uint32_t kOverlayWindows = 16;  // the addresses of earlier memories come round again after so many

constexpr uint64_t kRefreshUs = 16667;  // 60 pictures a second

constexpr uint32_t kBits16 = 16;
constexpr uint32_t kBits24 = 24;
constexpr uint32_t kBits32 = 32;

std::string sizeText(uint32_t width, uint32_t height)
{
    return std::to_string(width) + "x" + std::to_string(height);
}

uint64_t neededBytes(const fb_var_screeninfo& mode)
{
    const uint64_t bytes = uint64_t{lineBytes(mode)} * mode.yres_virtual;
    return (bytes + kPageBytes - 1) / kPageBytes * kPageBytes;
}

/// Why a plane takes no such mode; empty when it does.
std::string faultOf(const fb_var_screeninfo& mode)
{
    if (mode.xres == 0 || mode.yres == 0 || mode.xres > kPanelWidth || mode.yres > kPanelHeight) {
        return "mode " + sizeText(mode.xres, mode.yres) + " on a panel of " +
               sizeText(kPanelWidth, kPanelHeight);
    }
    if (mode.xres_virtual < mode.xres || mode.yres_virtual < mode.yres) {
        return "mode " + sizeText(mode.xres, mode.yres) + " in a virtual size of " +
               sizeText(mode.xres_virtual, mode.yres_virtual);
    }
    if (mode.nonstd != 0) {
        const bool known = findPixelFormat(mode.nonstd) != nullptr;
        return known ? std::string() : "unknown four-character code " + std::to_string(mode.nonstd);
    }
    const bool standard =
        mode.bits_per_pixel == kBits16 || mode.bits_per_pixel == kBits24 || mode.bits_per_pixel == kBits32;
    return standard ? std::string() : std::to_string(mode.bits_per_pixel) + " bits a pixel";
}

/// Offset and length in bits of each colour in a pixel; zero where a pixel has none (YUV).
struct Components {
    fb_bitfield red, green, blue, transparency;
};

constexpr Components kRgb16{{11, 5, 0}, {5, 6, 0}, {0, 5, 0}, {0, 0, 0}};
constexpr Components kRgb24{{16, 8, 0}, {8, 8, 0}, {0, 8, 0}, {0, 0, 0}};
constexpr Components kArgb32{{16, 8, 0}, {8, 8, 0}, {0, 8, 0}, {24, 8, 0}};

Components componentsOf(const fb_var_screeninfo& mode)
{
    if (mode.nonstd != 0 && mode.nonstd != kRgbp) {
        return {};
    }
    if (mode.bits_per_pixel == kBits16) {
        return kRgb16;
    }
    return mode.bits_per_pixel == kBits24 ? kRgb24 : kArgb32;
}

/// What the driver fills in by itself.
void completeMode(fb_var_screeninfo& mode)
{
    if (const PixelFormat* format = findPixelFormat(mode.nonstd)) {
        mode.bits_per_pixel = format->bitsPerPixel;
    }
    const Components components = componentsOf(mode);
    mode.red = components.red;
    mode.green = components.green;
    mode.blue = components.blue;
    mode.transp = components.transparency;
    // A page of the mode before may lie outside this one; the plane starts at the top then.
    mode.xoffset = 0;
    if (uint64_t{mode.yoffset} + mode.yres > mode.yres_virtual) {
        mode.yoffset = 0;
    }
}

void giveMemory(Board& board, uint32_t index, Framebuffer& plane, uint32_t bytes)
{
    if (index == kOverlay) {
        const bool hadMemory = plane.physicalBase >= kOverlayBase;
        const uint32_t window = (plane.physicalBase - kOverlayBase) / kFramebufferFileBytes + 1;
        plane.physicalBase =
            kOverlayBase + (hadMemory ? window % kOverlayWindows * kFramebufferFileBytes : 0);
    }
    plane.memoryBytes = bytes;
    std::memset(board.framebuffer(index), 0, bytes);
}

/// A plane that has grown at its place is pulled back onto the panel.
void keepOnPanel(Framebuffer& plane)
{
    plane.x = std::min(plane.x, static_cast<int32_t>(kPanelWidth - plane.mode.xres));
    plane.y = std::min(plane.y, static_cast<int32_t>(kPanelHeight - plane.mode.yres));
}

class FramebufferDevice : public Device {
public:
    FramebufferDevice(Board& board, unsigned index)
        : Device(board, index == kBackground ? "fb0" : "fb1", index == kBackground ? "/dev/fb0" : "/dev/fb1"),
          index_(index)
    {
    }

    const char* backingFile() const override { return name(); }

    int getMode(fb_var_screeninfo& mode);
    int putMode(fb_var_screeninfo& mode);
    int getFixed(fb_fix_screeninfo& fixed);
    int pan(fb_var_screeninfo& mode);
    int blank(int level);
    int setAlpha(mxcfb_gbl_alpha& alpha);
    int setPosition(mxcfb_pos& position);
    int waitForRefresh(uint32_t& unused);

protected:
    Table requests() const override;

private:
    Framebuffer& plane() const { return board().state().framebuffers[index_]; }
    Framebuffer copyOfPlane() const
    {
        const BoardLock lock(board());
        return plane();
    }

    uint32_t index_;
};

Device::Table FramebufferDevice::requests() const
{
    static constexpr std::array kRequests{
        request<FBIOGET_VSCREENINFO, &FramebufferDevice::getMode>("FBIOGET_VSCREENINFO"),
        request<FBIOPUT_VSCREENINFO, &FramebufferDevice::putMode>("FBIOPUT_VSCREENINFO"),
        request<FBIOGET_FSCREENINFO, &FramebufferDevice::getFixed>("FBIOGET_FSCREENINFO"),
        request<FBIOPAN_DISPLAY, &FramebufferDevice::pan>("FBIOPAN_DISPLAY"),
        request<FBIOBLANK, &FramebufferDevice::blank>("FBIOBLANK"),
        request<MXCFB_SET_GBL_ALPHA, &FramebufferDevice::setAlpha>("MXCFB_SET_GBL_ALPHA"),
        request<MXCFB_SET_OVERLAY_POS, &FramebufferDevice::setPosition>("MXCFB_SET_OVERLAY_POS"),
        request<FBIO_WAITFORVSYNC, &FramebufferDevice::waitForRefresh>("FBIO_WAITFORVSYNC"),
    };
    return {kRequests.data(), kRequests.size()};
}

int FramebufferDevice::getMode(fb_var_screeninfo& mode)
{
    mode = copyOfPlane().mode;
    return 0;
}

int FramebufferDevice::putMode(fb_var_screeninfo& mode)
{
    const std::string fault = faultOf(mode);
    if (!fault.empty()) {
        return refuse("FBIOPUT_VSCREENINFO", -EINVAL, fault);
    }
    completeMode(mode);
    const uint64_t bytes = neededBytes(mode);
    if (bytes > kFramebufferFileBytes) {
        return refuse("FBIOPUT_VSCREENINFO", -ENOMEM, "mode needs " + std::to_string(bytes) + " bytes");
    }
    if ((mode.activate & FB_ACTIVATE_MASK) == FB_ACTIVATE_TEST) {
        return 0;
    }
    const BoardLock lock(board());
    Framebuffer& shown = plane();
    shown.mode = mode;
    if (bytes > shown.memoryBytes) {
        giveMemory(board(), index_, shown, static_cast<uint32_t>(bytes));
    }
    keepOnPanel(shown);
    return 0;
}

int FramebufferDevice::getFixed(fb_fix_screeninfo& fixed)
{
    const Framebuffer shown = copyOfPlane();
    fixed = {};
    std::strncpy(fixed.id, index_ == kBackground ? "DISP3 BG" : "DISP3 FG", sizeof(fixed.id) - 1);
    fixed.smem_start = shown.physicalBase;
    fixed.smem_len = shown.memoryBytes;
    fixed.type = FB_TYPE_PACKED_PIXELS;
    fixed.visual = FB_VISUAL_TRUECOLOR;
    fixed.xpanstep = 0;
    fixed.ypanstep = 1;
    fixed.line_length = lineBytes(shown.mode);
    return 0;
}

int FramebufferDevice::pan(fb_var_screeninfo& mode)
{
    const Framebuffer shown = copyOfPlane();
    if (mode.xoffset != 0) {
        return refuse("FBIOPAN_DISPLAY", -EINVAL, "panning to the side: " + std::to_string(mode.xoffset));
    }
    if (uint64_t{mode.yoffset} + shown.mode.yres > shown.mode.yres_virtual) {
        return refuse("FBIOPAN_DISPLAY", -EINVAL,
                      "line " + std::to_string(mode.yoffset) + " leaves the virtual height of " +
                          std::to_string(shown.mode.yres_virtual));
    }
    if (shown.blank != FB_BLANK_UNBLANK) {
        return refuse("FBIOPAN_DISPLAY", -EINVAL, "the plane is blanked");
    }
    const BoardLock lock(board());
    plane().mode.yoffset = mode.yoffset;
    ++plane().pans;
    return 0;
}

int FramebufferDevice::blank(int level)
{
    if (level < FB_BLANK_UNBLANK) {
        return refuse("FBIOBLANK", -EINVAL, "level " + std::to_string(level));
    }
    const BoardLock lock(board());
    plane().blank = static_cast<uint32_t>(std::min(level, int{FB_BLANK_POWERDOWN}));
    return 0;
}

int FramebufferDevice::setAlpha(mxcfb_gbl_alpha& alpha)
{
    if (alpha.alpha < 0 || alpha.alpha > static_cast<int>(kOpaque)) {
        return refuse("MXCFB_SET_GBL_ALPHA", -EINVAL, "opacity " + std::to_string(alpha.alpha));
    }
    const BoardLock lock(board());
    plane().alphaEnable = alpha.enable != 0 ? 1 : 0;
    plane().alpha = static_cast<uint32_t>(alpha.alpha);
    return 0;
}

int FramebufferDevice::setPosition(mxcfb_pos& position)
{
    if (index_ != kOverlay) {
        return refuse("MXCFB_SET_OVERLAY_POS", -EINVAL, "the background has no position");
    }
    const Framebuffer shown = copyOfPlane();
    if (position.x + shown.mode.xres > kPanelWidth || position.y + shown.mode.yres > kPanelHeight) {
        return refuse("MXCFB_SET_OVERLAY_POS", -EINVAL,
                      sizeText(shown.mode.xres, shown.mode.yres) + " at " + std::to_string(position.x) + "," +
                          std::to_string(position.y) + " leaves the panel");
    }
    const BoardLock lock(board());
    plane().x = position.x;
    plane().y = position.y;
    return 0;
}

int FramebufferDevice::waitForRefresh(uint32_t& /*unused*/)
{
    return real::sleepUs(kRefreshUs - real::monotonicUs() % kRefreshUs) ? 0 : -EINTR;
}

Framebuffer planeOfSize(uint32_t width, uint32_t height, uint32_t bits, uint32_t base)
{
    Framebuffer plane{};
    plane.mode.xres = plane.mode.xres_virtual = width;
    plane.mode.yres = plane.mode.yres_virtual = height;
    plane.mode.bits_per_pixel = bits;
    completeMode(plane.mode);
    plane.physicalBase = base;
    plane.memoryBytes = static_cast<uint32_t>(neededBytes(plane.mode));
    plane.alphaEnable = 1;
    plane.alpha = kOpaque;
    return plane;
}

}  // namespace

uint32_t lineBytes(const fb_var_screeninfo& mode)
{
    constexpr uint64_t kBitsPerByte = 8;
    return static_cast<uint32_t>(uint64_t{mode.xres_virtual} * mode.bits_per_pixel / kBitsPerByte);
}

std::unique_ptr<Device> makeFramebufferDevice(Board& board, unsigned index)
{
    return std::make_unique<FramebufferDevice>(board, index);
}

void initFramebuffers(Board& board)
{
    constexpr uint32_t kSmallWidth = 240;
    constexpr uint32_t kSmallHeight = 320;
    {
        const BoardLock lock(board);
        auto& planes = board.state().framebuffers;
        planes[kBackground] = planeOfSize(kPanelWidth, kPanelHeight, kBits32, kBackgroundBase);
        planes[kOverlay] = planeOfSize(kSmallWidth, kSmallHeight, kBits16, kOverlayBase);
        planes[kOverlay].blank = FB_BLANK_POWERDOWN;
        std::memset(board.framebuffer(kOverlay), 0, planes[kOverlay].memoryBytes);
    }
    paintBackground(board.framebuffer(kBackground), kPanelWidth, kPanelHeight);
}

}  // namespace board
