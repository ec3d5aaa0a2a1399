#pragma once

#include <gst/video/video.h>

#include <memory>

#include "gst/OverlaySurface.h"

/// Draws pictures onto a surface: converted to its pixels, scaled to fill it as far as their shape allows, on
/// black.
///
/// Threads: one at a time.
/// Errors:  false for a picture that cannot be read, or cannot be turned into the surface's pixels.
class Painter {
public:
    /// The pictures that come from now on.
    void expect(const GstVideoInfo& pictures);

    bool paint(GstBuffer* picture, const OverlaySurface& surface);

private:
    struct Release {
        void operator()(GstVideoConverter* converter) const { gst_video_converter_free(converter); }
    };

    bool prepare(const GstVideoInfo& layout);

    GstVideoInfo pictures_ = {};
    GstVideoInfo target_ = {};  ///< the surface's layout that the converter was made for
    std::unique_ptr<GstVideoConverter, Release> converter_;
};
