#include "drivers/mx_fb.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "drivers/mxcfb.h"
#include "lib/interrupted.h"

namespace {

constexpr int kPrimingRounds = 2;
constexpr uint32_t kSimpleWidth = 800;   // pixels, what the player draws into
constexpr uint32_t kSimpleHeight = 500;  // pixels
constexpr uint32_t kSimpleBitsPerPixel = 32;
constexpr int kBlackLuma = 0;
constexpr int kBlackChroma = 128;

int openForReadingAndWriting(const char* path)
{
    return retryInterrupted([&] { return open(path, O_RDWR | O_CLOEXEC); });
}

void setSize(fb_var_screeninfo& mode, uint32_t width, uint32_t height, uint32_t pages)
{
    mode.xres = width;
    mode.xres_virtual = width;
    mode.yres = height;
    mode.yres_virtual = height * pages;
}

}  // namespace

mx_fb::~mx_fb()
{
    dropMapping();
    if (fb != -1) {
        blank(FB_BLANK_NORMAL);  // on the way out there is nobody to tell
        close(fb);
    }
}

bool mx_fb::setup(const char* overlayDev, const char* bgDev, DISP_INFO& displayInfo)
{
    info = &displayInfo;
    r_dev = overlayDev;
    data.phy = 0;
    data.size = 0;
    if (!prepareBackground(bgDev) || !openNode() || !readOriginalMode()) {
        return false;
    }
    primeDriver();
    return blank(FB_BLANK_NORMAL);
}

bool mx_fb::prepareBackground(const char* bgDev)
{
    const int background = openForReadingAndWriting(bgDev);
    if (background == -1) {
        std::puts("Unable to open bg frame buffer");
        return false;
    }
    mxcfb_gbl_alpha alpha = {};
    alpha.enable = 1;
    alpha.alpha = 0;
    const bool done = call(background, MXCFB_SET_GBL_ALPHA, &alpha, "Set global alpha failed");
    close(background);
    return done;
}

bool mx_fb::openNode()
{
    fb = openForReadingAndWriting(r_dev);
    if (fb == -1) {
        std::printf("Unable to open %s\n", r_dev);
    }
    return fb != -1;
}

bool mx_fb::readOriginalMode()
{
    return call(fb, FBIOGET_VSCREENINFO, &data.screen_info_orig,
                "fb_display_setup FBIOGET_VSCREENINFO failed");
}

/// The first camera mode makes the driver allocate memory for four pages, which moves the overlay's memory.
/// Only an opening after that sees where it lies; results do not matter here, the last step of setup()
/// decides.
void mx_fb::primeDriver()
{
    for (int round = 0; round < kPrimingRounds; ++round) {
        cameraOverlay(0, 0);
        hideOverlay();
        closeOverlay();
    }
}

bool mx_fb::cameraOverlay(int x, int y)
{
    if (info == nullptr) {
        return false;
    }
    data.currentBuffer = 0;
    buffers = {};  // until it is known where they lie: a mode may move them
    info->main.x = x;
    info->main.y = y;
    fb_fix_screeninfo fixed = {};
    if (!readFixedInfo(fixed) || !setCameraMode() || !mapPages(fixed)) {
        return false;
    }
    clearBuffers();
    return moveTo(x, y, "cameraOverlay MXCFB_SET_OVERLAY_POS failed") && unblank();
}

bool mx_fb::simpleOverlay(int x, int y)
{
    if (info == nullptr) {
        return false;
    }
    data.currentBuffer = 0;
    info->main.x = x;
    info->main.y = y;
    dropMapping();
    return setSimpleMode() && moveTo(x, y, "simpleOverlay MXCFB_SET_OVERLAY_POS failed") && unblank();
}

bool mx_fb::readFixedInfo(fb_fix_screeninfo& fixed)
{
    return call(fb, FBIOGET_FSCREENINFO, &fixed, "cameraOverlay FBIOGET_FSCREENINFO failed");
}

bool mx_fb::setCameraMode()
{
    data.screen_info = data.screen_info_orig;
    setSize(data.screen_info, static_cast<uint32_t>(info->main.width),
            static_cast<uint32_t>(info->main.height), kPages);
    data.screen_info.nonstd = static_cast<uint32_t>(info->format);
    if (!call(fb, FBIOPUT_VSCREENINFO, &data.screen_info, "cameraOverlay FBIOPUET_VSCREENINFO failed")) {
        return false;
    }
    // What the driver made of it, the bits of a pixel above all. Without an answer the mode stands as asked
    // for.
    call(fb, FBIOGET_VSCREENINFO, &data.screen_info, nullptr);
    return true;
}

bool mx_fb::setSimpleMode()
{
    data.screen_info = data.screen_info_orig;
    setSize(data.screen_info, kSimpleWidth, kSimpleHeight, 1);
    data.screen_info.bits_per_pixel = kSimpleBitsPerPixel;
    data.screen_info.nonstd = 0;
    return call(fb, FBIOPUT_VSCREENINFO, &data.screen_info, "simpleOverlay FBIOPUET_VSCREENINFO failed");
}

bool mx_fb::mapPages(const fb_fix_screeninfo& fixed)
{
    dropMapping();  // a re-opened overlay still holds the former one, and address space is short on 32 bits
    const size_t pageBytes = static_cast<size_t>(data.screen_info.bits_per_pixel) * data.screen_info.xres *
                             data.screen_info.yres / 8;
    data.phy = static_cast<int>(static_cast<uint32_t>(fixed.smem_start));
    data.size = static_cast<int>(pageBytes);
    void* start = mmap(nullptr, mappedBytes(), PROT_READ | PROT_WRITE, MAP_SHARED, fb, 0);
    if (start == MAP_FAILED || start == nullptr) {
        return false;
    }
    fb_buff = static_cast<unsigned char*>(start);
    for (size_t page = 0; page < buffers.size(); ++page) {
        buffers[page].offset = static_cast<uint32_t>(data.phy) + page * pageBytes;
        buffers[page].length = pageBytes;
        buffers[page].start = fb_buff + page * pageBytes;
    }
    return true;
}

void mx_fb::dropMapping()
{
    if (fb_buff != nullptr) {
        munmap(fb_buff, mappedBytes());
        fb_buff = nullptr;
    }
}

size_t mx_fb::mappedBytes() const
{
    return static_cast<size_t>(data.size) * kPages;
}

bool mx_fb::moveTo(int x, int y, const char* failureText)
{
    mxcfb_pos position = {};
    position.x = static_cast<uint16_t>(x);
    position.y = static_cast<uint16_t>(y);
    return call(fb, MXCFB_SET_OVERLAY_POS, &position, failureText);
}

bool mx_fb::unblank()
{
    overlayOpen = blank(FB_BLANK_UNBLANK);
    return overlayOpen;
}

bool mx_fb::hideOverlay()
{
    overlayOpen = false;
    return blank(FB_BLANK_NORMAL);
}

bool mx_fb::closeOverlay()
{
    if (fb_buff == nullptr) {
        return true;
    }
    // The mode is read, not put back: the next opening starts from the mode that is set now.
    if (!call(fb, FBIOGET_VSCREENINFO, &data.screen_info_orig, nullptr)) {
        return false;
    }
    dropMapping();
    return true;
}

void mx_fb::clearBuffers()
{
    if (fb_buff == nullptr || buffers[0].start == nullptr) {
        return;
    }
    const size_t pixels = static_cast<size_t>(data.screen_info.xres) * data.screen_info.yres;
    for (buffer& page : buffers) {
        const size_t luma = std::min(pixels, page.length);
        const size_t chroma = std::min(pixels / 2, page.length - luma);
        auto* start = static_cast<unsigned char*>(page.start);
        std::memset(start, kBlackLuma, luma);
        std::memset(start + luma, kBlackChroma, chroma);
    }
}

bool mx_fb::process()
{
    if (!overlayOpen) {
        return true;
    }
    data.screen_info.yoffset = data.currentBuffer * static_cast<uint32_t>(info->main.height);
    if (!call(fb, FBIOPAN_DISPLAY, &data.screen_info, nullptr)) {
        return false;
    }
    data.currentBuffer = static_cast<u_int8_t>((data.currentBuffer + 1U) % kPages);
    return true;
}

/// The one request whose argument is a number instead of an address.
bool mx_fb::blank(int mode)
{
    return retryInterrupted([&] { return ioctl(fb, FBIOBLANK, static_cast<unsigned long>(mode)); }) == 0;
}

bool mx_fb::call(int device, unsigned long request, void* argument, const char* failureText)
{
    const bool done = retryInterrupted([&] { return ioctl(device, request, argument); }) != -1;
    if (!done && failureText != nullptr) {
        std::puts(failureText);
    }
    return done;
}
