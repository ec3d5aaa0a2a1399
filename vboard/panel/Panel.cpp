#include "panel/Panel.h"

#include <libyuv.h>
#include <png.h>

#include <algorithm>
#include <cstddef>

#include "framebuffer/FramebufferDevice.h"
#include "ipu/Picture.h"

namespace board {
namespace {

constexpr uint32_t kOpaque = 255;
constexpr size_t kRgbBytes = 3;
constexpr size_t kArgbBytes = 4;  // in memory: blue, green, red, unused

/// The visible page of a plane with 32 bits a pixel.
struct Page {
    Size size;
    std::vector<uint8_t> argb;

    uint8_t* at(uint32_t x, uint32_t y) { return argb.data() + (size_t{y} * size.width + x) * kArgbBytes; }
};

bool unpackYuv(const PictureView& from, uint8_t* argb, int stride)
{
    const auto& [first, second, third] = from.planes;
    switch (from.format->code) {
        case kNv12:
            return libyuv::NV12ToARGB(first.data, first.stride(), second.data, second.stride(), argb, stride,
                                      from.width(), from.height()) == 0;
        case kYu12:
            return libyuv::I420ToARGB(first.data, first.stride(), second.data, second.stride(), third.data,
                                      third.stride(), argb, stride, from.width(), from.height()) == 0;
        case kYuyv:
            return libyuv::YUY2ToARGB(first.data, first.stride(), argb, stride, from.width(),
                                      from.height()) == 0;
        case kUyvy:
            return libyuv::UYVYToARGB(first.data, first.stride(), argb, stride, from.width(),
                                      from.height()) == 0;
        default:
            return false;
    }
}

bool unpackRgb(const uint8_t* from, uint32_t bitsPerPixel, int fromStride, Size size, uint8_t* argb,
               int stride)
{
    constexpr uint32_t kBits16 = 16;
    constexpr uint32_t kBits24 = 24;
    constexpr uint32_t kBits32 = 32;
    const int width = static_cast<int>(size.width);
    const int height = static_cast<int>(size.height);
    switch (bitsPerPixel) {
        case kBits16:
            return libyuv::RGB565ToARGB(from, fromStride, argb, stride, width, height) == 0;
        case kBits24:
            return libyuv::RGB24ToARGB(from, fromStride, argb, stride, width, height) == 0;
        case kBits32:
            return libyuv::ARGBCopy(from, fromStride, argb, stride, width, height) == 0;
        default:
            return false;
    }
}

/// A page without size when the plane has no mode.
Page visiblePage(const Framebuffer& plane, uint8_t* memory)
{
    const fb_var_screeninfo& mode = plane.mode;
    Page page{{mode.xres, mode.yres}, std::vector<uint8_t>(size_t{mode.xres} * mode.yres * kArgbBytes)};
    const auto stride = static_cast<int>(mode.xres * kArgbBytes);
    uint8_t* start = memory + size_t{mode.yoffset} * lineBytes(mode);
    const PixelFormat* format = findPixelFormat(mode.nonstd);
    const bool unpacked = (format != nullptr && format->yuv)
                              ? unpackYuv(viewPicture(start, *format, {mode.xres_virtual, mode.yres},
                                                      {0, 0, mode.xres, mode.yres}),
                                          page.argb.data(), stride)
                              : unpackRgb(start, mode.bits_per_pixel, static_cast<int>(lineBytes(mode)),
                                          page.size, page.argb.data(), stride);
    return unpacked ? page : Page{};
}

/// How much of the overlay is seen where it lies, 0 to 255.
uint32_t overlayShare(const Framebuffer& background, const Framebuffer& overlay)
{
    const uint32_t covered = background.alphaEnable != 0 ? background.alpha : kOpaque;
    const uint32_t own = overlay.alphaEnable != 0 ? overlay.alpha : kOpaque;
    return overlay.blank == FB_BLANK_UNBLANK ? (kOpaque - covered) * own / kOpaque : 0;
}

void mixPixels(const uint8_t* from, uint8_t* to, size_t bytes, uint32_t share)
{
    for (size_t i = 0; i < bytes; ++i) {
        to[i] = static_cast<uint8_t>((from[i] * share + to[i] * (kOpaque - share) + kOpaque / 2) / kOpaque);
    }
}

/// Lays the overlay onto the panel's picture; what lies outside is cut off.
void layOver(Page& panel, Page& overlay, const Framebuffer& plane, uint32_t share)
{
    const auto x = static_cast<uint32_t>(std::max(plane.x, 0));
    const auto y = static_cast<uint32_t>(std::max(plane.y, 0));
    if (x >= panel.size.width) {
        return;
    }
    const size_t bytes = std::min(overlay.size.width, panel.size.width - x) * kArgbBytes;
    for (uint32_t line = 0; line < overlay.size.height && y + line < panel.size.height; ++line) {
        mixPixels(overlay.at(0, line), panel.at(x, y + line), bytes, share);
    }
}

Page blackPanel()
{
    return {{kPanelWidth, kPanelHeight},
            std::vector<uint8_t>(size_t{kPanelWidth} * kPanelHeight * kArgbBytes)};
}

}  // namespace

std::vector<uint8_t> composePanel(const Board& board)
{
    const auto [background, overlay] = [&] {
        const BoardLock lock(board);
        return board.state().framebuffers;
    }();
    Page panel = blackPanel();
    if (background.blank == FB_BLANK_UNBLANK) {
        Page page = visiblePage(background, board.framebuffer(0));
        layOver(panel, page, background, kOpaque);
    }
    if (const uint32_t share = overlayShare(background, overlay)) {
        Page page = visiblePage(overlay, board.framebuffer(1));
        layOver(panel, page, overlay, share);
    }
    std::vector<uint8_t> rgb(size_t{kPanelWidth} * kPanelHeight * kRgbBytes);
    libyuv::ARGBToRAW(panel.argb.data(), static_cast<int>(kPanelWidth * kArgbBytes), rgb.data(),
                      static_cast<int>(kPanelWidth * kRgbBytes), static_cast<int>(kPanelWidth),
                      static_cast<int>(kPanelHeight));
    return rgb;
}

bool writeSnapshot(const Board& board, const std::string& pngFile)
{
    const std::vector<uint8_t> rgb = composePanel(board);
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    image.width = kPanelWidth;
    image.height = kPanelHeight;
    image.format = PNG_FORMAT_RGB;
    const bool written = png_image_write_to_file(&image, pngFile.c_str(), 0, rgb.data(), 0, nullptr) != 0;
    png_image_free(&image);
    return written;
}

}  // namespace board
