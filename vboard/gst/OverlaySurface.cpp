#include "gst/OverlaySurface.h"

#include <fcntl.h>
#include <linux/fb.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>

namespace {

struct Mode {
    uint32_t nonstd;  // a four-character code, or 0: by bits a pixel
    uint32_t bitsPerPixel;
    GstVideoFormat pixels;
};

constexpr std::array kModes{
    Mode{0, 16, GST_VIDEO_FORMAT_RGB16},
    Mode{0, 24, GST_VIDEO_FORMAT_BGR},
    Mode{0, 32, GST_VIDEO_FORMAT_BGRx},
    Mode{GST_MAKE_FOURCC('R', 'G', 'B', 'P'), 16, GST_VIDEO_FORMAT_RGB16},
    Mode{GST_MAKE_FOURCC('N', 'V', '1', '2'), 12, GST_VIDEO_FORMAT_NV12},
    Mode{GST_MAKE_FOURCC('Y', 'U', '1', '2'), 12, GST_VIDEO_FORMAT_I420},
    Mode{GST_MAKE_FOURCC('Y', 'U', 'Y', 'V'), 16, GST_VIDEO_FORMAT_YUY2},
    Mode{GST_MAKE_FOURCC('U', 'Y', 'V', 'Y'), 16, GST_VIDEO_FORMAT_UYVY},
};

GstVideoFormat pixelsOf(const fb_var_screeninfo& mode)
{
    const auto* const known = std::find_if(kModes.begin(), kModes.end(), [&](const Mode& row) {
        return row.nonstd == mode.nonstd && row.bitsPerPixel == mode.bits_per_pixel;
    });
    return known != kModes.end() ? known->pixels : GST_VIDEO_FORMAT_UNKNOWN;
}

/// The first component that lies in a plane: its size is the plane's.
unsigned componentIn(const GstVideoFormatInfo& format, unsigned plane)
{
    unsigned component = 0;
    while (component + 1 < format.n_components && format.plane[component] != plane) {
        ++component;
    }
    return component;
}

/// Planes one behind the other without padding, as wide as the virtual picture.
bool describe(const fb_var_screeninfo& mode, GstVideoInfo& layout)
{
    const GstVideoFormat pixels = pixelsOf(mode);
    if (pixels == GST_VIDEO_FORMAT_UNKNOWN ||
        gst_video_info_set_format(&layout, pixels, mode.xres, mode.yres) == FALSE) {
        return false;
    }
    const GstVideoFormatInfo& format = *layout.finfo;
    const auto lines = static_cast<int>(mode.yres);
    const auto pixelsALine = static_cast<int>(mode.xres_virtual);
    size_t offset = 0;
    for (unsigned plane = 0; plane < format.n_planes; ++plane) {
        const unsigned component = componentIn(format, plane);
        const int stride = (pixelsALine >> format.w_sub[component]) * format.pixel_stride[component];
        layout.stride[plane] = stride;
        layout.offset[plane] = offset;
        offset += static_cast<size_t>(stride) * static_cast<size_t>(lines >> format.h_sub[component]);
    }
    layout.size = offset;
    return true;
}

}  // namespace

bool OverlaySurface::open(const char* device)
{
    close();
    device_ = ::open(device, O_RDWR | O_CLOEXEC);
    return device_ != -1 && look();
}

void OverlaySurface::close()
{
    unmap();
    if (device_ != -1) {
        ::close(device_);
        device_ = -1;
    }
}

bool OverlaySurface::look()
{
    fb_var_screeninfo mode = {};
    fb_fix_screeninfo memory = {};
    if (::ioctl(device_, FBIOGET_VSCREENINFO, &mode) == -1 ||
        ::ioctl(device_, FBIOGET_FSCREENINFO, &memory) == -1) {
        return false;
    }
    if (!describe(mode, layout_)) {
        errno = EOPNOTSUPP;
        return false;
    }
    pageOffset_ = size_t{mode.yoffset} * memory.line_length;
    if (pageOffset_ + layout_.size > memory.smem_len) {
        errno = EOVERFLOW;  // the mode changed between the two questions
        return false;
    }
    return map(memory.smem_len);
}

bool OverlaySurface::map(size_t bytes)
{
    if (memory_ != nullptr && bytes == mappedBytes_) {
        return true;
    }
    unmap();
    void* const mapped = ::mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED, device_, 0);
    if (mapped == MAP_FAILED) {
        return false;
    }
    memory_ = static_cast<uint8_t*>(mapped);
    mappedBytes_ = bytes;
    return true;
}

void OverlaySurface::unmap()
{
    if (memory_ != nullptr) {
        ::munmap(memory_, mappedBytes_);
        memory_ = nullptr;
    }
}
