#pragma once

#include <linux/fb.h>
#include <sys/types.h>

#include <array>
#include <cstddef>

#include "lib/buffer.h"

/// The overlay plane above the background framebuffer.
///
/// It opens in one of two ways: cameraOverlay() shows one of four pages of video that process() flips
/// through, and simpleOverlay() is a plain 32-bit surface that another process draws into.
///
/// Threads:  main thread only.
/// Lifetime: setup() opens the overlay's node, once; the destructor unmaps, blanks and closes. The DISP_INFO
///           is the caller's and must outlive this object. Opening the camera overlay again replaces the
///           former mapping.
/// Errors:   false, mostly after a line on standard output that names the step of the setup or opening;
/// before
///           setup() nothing opens. A failed setup() may leave the overlay's node open; the destructor closes
///           it.
/// Units:    pixels; sizes in bytes; `offset` of a page is physical.
class mx_fb {
public:
    static constexpr unsigned kPages = 4;

    /// The overlay that the owner wants; its position is written by opening it.
    struct DISP_INFO {
        struct {
            int x, y;  ///< on the panel
            int width, height;
        } main;
        int format;  ///< V4L2 four-character code
    };

    mx_fb() = default;
    ~mx_fb();

    mx_fb(const mx_fb&) = delete;
    mx_fb& operator=(const mx_fb&) = delete;
    mx_fb(mx_fb&&) = delete;
    mx_fb& operator=(mx_fb&&) = delete;

    /// Makes the background transparent to the overlay, opens the overlay's node, remembers its mode, primes
    /// the driver by opening and closing the camera overlay twice, and leaves the overlay blank.
    bool setup(const char* overlayDev, const char* bgDev, DISP_INFO& displayInfo);

    bool isOverlayOpen() const { return overlayOpen; }

    /// Whether the overlay is shown as another process's surface: it has one page then, and that is not ours
    /// to fill.
    bool isLentOut() const { return overlayOpen && fb_buff == nullptr; }

    /// Shows four black pages of the size and format of the DISP_INFO, page 0 first.
    bool cameraOverlay(int x, int y);

    /// Shows an 800 by 500 surface of 32 bits a pixel for another process to draw into. Nothing is mapped.
    bool simpleOverlay(int x, int y);

    /// Blanks the overlay and keeps its mapping.
    bool hideOverlay();

    /// Unmaps the pages. False, with the mapping kept, when the mode cannot be read.
    bool closeOverlay();

    /// The page that the next process() shows, to be filled until then; 0 when the last cameraOverlay() did
    /// not get so far as to know its pages.
    size_t getBufferOffset() const { return buffers[data.currentBuffer].offset; }

    /// Fills all pages with NV12 black; nothing while nothing is mapped.
    void clearBuffers();

    /// Shows the current page and steps on to the next; nothing, and true, while the overlay is not open.
    bool process();

private:
    static bool prepareBackground(const char* bgDev);
    bool openNode();
    bool readOriginalMode();
    void primeDriver();
    bool readFixedInfo(fb_fix_screeninfo& fixed);
    bool setCameraMode();
    bool setSimpleMode();
    bool mapPages(const fb_fix_screeninfo& fixed);
    void dropMapping();
    size_t mappedBytes() const;
    bool moveTo(int x, int y, const char* failureText);
    bool unblank();
    bool blank(int mode);
    static bool call(int device, unsigned long request, void* argument, const char* failureText);

    int fb = -1;
    DISP_INFO* info = nullptr;
    bool overlayOpen = false;
    struct {
        u_int8_t currentBuffer;  // shown by the next process()
        int phy;                 // start of the overlay's memory
        int size;                // of one page
        fb_var_screeninfo screen_info;
        fb_var_screeninfo screen_info_orig;  // as read at set-up, and again by closeOverlay()
    } data = {};
    const char* r_dev = nullptr;
    unsigned char* fb_buff = nullptr;  // all pages
    std::array<buffer, kPages> buffers = {};
};
