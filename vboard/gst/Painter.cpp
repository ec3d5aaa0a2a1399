#include "gst/Painter.h"

#include <gst/video/gstvideosink.h>

namespace {

/// A buffer's or a surface's pixels, mapped.
class MappedFrame {
public:
    MappedFrame(const GstVideoInfo& info, GstBuffer* buffer, GstMapFlags access)
        : mapped_(gst_video_frame_map(&frame_, &info, buffer, access) != FALSE)
    {
    }
    ~MappedFrame()
    {
        if (mapped_) {
            gst_video_frame_unmap(&frame_);
        }
    }
    MappedFrame(const MappedFrame&) = delete;
    MappedFrame& operator=(const MappedFrame&) = delete;

    bool isMapped() const { return mapped_; }
    GstVideoFrame* get() { return &frame_; }

private:
    GstVideoFrame frame_ = {};
    bool mapped_;
};

/// Where a picture lies on a surface: in its middle, as large as its shape allows.
GstVideoRectangle placeOf(const GstVideoInfo& picture, const GstVideoInfo& surface)
{
    const auto shownWidth =
        gst_util_uint64_scale_int(static_cast<guint64>(picture.width), picture.par_n, picture.par_d);
    const GstVideoRectangle shape{0, 0, static_cast<int>(shownWidth), picture.height};
    const GstVideoRectangle whole{0, 0, surface.width, surface.height};
    GstVideoRectangle place{};
    gst_video_sink_center_rect(shape, whole, &place, TRUE);
    return place;
}

}  // namespace

void Painter::expect(const GstVideoInfo& pictures)
{
    pictures_ = pictures;
    converter_.reset();
}

bool Painter::prepare(const GstVideoInfo& layout)
{
    // The converter changes neither: what comes at a rate, and in fields, leaves so.
    GstVideoInfo target = layout;
    target.fps_n = pictures_.fps_n;
    target.fps_d = pictures_.fps_d;
    target.interlace_mode = pictures_.interlace_mode;
    if (converter_ != nullptr && gst_video_info_is_equal(&target, &target_) != FALSE) {
        return true;
    }
    const GstVideoRectangle place = placeOf(pictures_, target);
    GstStructure* const options =
        gst_structure_new("options",                                                //
                          GST_VIDEO_CONVERTER_OPT_DEST_X, G_TYPE_INT, place.x,      //
                          GST_VIDEO_CONVERTER_OPT_DEST_Y, G_TYPE_INT, place.y,      //
                          GST_VIDEO_CONVERTER_OPT_DEST_WIDTH, G_TYPE_INT, place.w,  //
                          GST_VIDEO_CONVERTER_OPT_DEST_HEIGHT, G_TYPE_INT, place.h, nullptr);
    converter_.reset(gst_video_converter_new(&pictures_, &target, options));  // takes the options
    target_ = target;
    return converter_ != nullptr;
}

bool Painter::paint(GstBuffer* picture, const OverlaySurface& surface)
{
    if (!prepare(surface.layout())) {
        return false;
    }
    GstBuffer* const page = gst_buffer_new_wrapped_full(GstMemoryFlags{}, surface.page(), target_.size, 0,
                                                        target_.size, nullptr, nullptr);
    bool painted = false;
    {
        MappedFrame from(pictures_, picture, GST_MAP_READ);
        MappedFrame to(target_, page, GST_MAP_WRITE);
        painted = from.isMapped() && to.isMapped();
        if (painted) {
            gst_video_converter_frame(converter_.get(), from.get(), to.get());
        }
    }
    gst_buffer_unref(page);
    return painted;
}
