#pragma once

#include <gst/video/video.h>

#include <cstddef>
#include <cstdint>

/// A framebuffer as the player's drawing surface: the page that it shows, in the mode that it has.
///
/// Position, blanking and mode are the owner's of the overlay (the daemon): they are taken as they are and
/// never set, so a picture drawn while the plane is blanked is not seen.
///
/// Threads:  one at a time.
/// Lifetime: open() to close(), or the destructor.
/// Errors:   false, with errno.
class OverlaySurface {
public:
    OverlaySurface() = default;
    OverlaySurface(const OverlaySurface&) = delete;
    OverlaySurface& operator=(const OverlaySurface&) = delete;
    OverlaySurface(OverlaySurface&&) = delete;
    OverlaySurface& operator=(OverlaySurface&&) = delete;
    ~OverlaySurface() { close(); }

    bool open(const char* device);
    void close();

    /// Looks which mode the plane has now, and maps its memory. EOPNOTSUPP for a mode of which the pixels are
    /// not known here.
    bool look();

    /// The shown page as of the last look().
    const GstVideoInfo& layout() const { return layout_; }
    uint8_t* page() const { return memory_ + pageOffset_; }

private:
    bool map(size_t bytes);
    void unmap();

    int device_ = -1;
    uint8_t* memory_ = nullptr;
    size_t mappedBytes_ = 0;
    size_t pageOffset_ = 0;
    GstVideoInfo layout_ = {};
};
