// The element with which the player draws into the overlay of the virtual board, under the name and with the
// property that the panel's own has. It takes any raw video and leaves everything else to its base class.

#include <gst/video/gstvideosink.h>
#include <gst/video/video.h>

#include <cerrno>
#include <string>
#include <system_error>

#include "gst/OverlaySurface.h"
#include "gst/Painter.h"

namespace {

/// What the element owns beside its base's record; GObject knows no constructors.
struct Parts {
    std::string framebuffer = "/dev/fb1";
    OverlaySurface surface;
    Painter painter;
};

}  // namespace

struct ImxIpuVideoSink {
    GstVideoSink parent;
    Parts* parts;
};

struct ImxIpuVideoSinkClass {
    GstVideoSinkClass parent;
};

extern "C" {
GType imx_ipu_video_sink_get_type();
G_DEFINE_TYPE(ImxIpuVideoSink, imx_ipu_video_sink, GST_TYPE_VIDEO_SINK)  // NOLINT: the macro's own style
}

namespace {

constexpr guint kFramebuffer = 1;  // the property's number

Parts& partsOf(gpointer element)
{
    return *static_cast<ImxIpuVideoSink*>(element)->parts;
}

/// Ends the playback with a word on the framebuffer, and errno's.
void fail(gpointer sink, GstResourceError kind, const char* what)
{
    const std::string reason = std::generic_category().message(errno);
    const char* const framebuffer = partsOf(sink).framebuffer.c_str();
    gst_element_message_full(GST_ELEMENT(sink), GST_MESSAGE_ERROR, GST_RESOURCE_ERROR, kind,
                             g_strdup_printf("%s %s: %s", what, framebuffer, reason.c_str()), nullptr,
                             __FILE__, __func__, __LINE__);
}

void setProperty(GObject* object, guint number, const GValue* value, GParamSpec* property)
{
    if (number != kFramebuffer) {
        G_OBJECT_WARN_INVALID_PROPERTY_ID(object, number, property);
        return;
    }
    const char* const path = g_value_get_string(value);
    partsOf(object).framebuffer = path != nullptr ? path : "";
}

void getProperty(GObject* object, guint number, GValue* value, GParamSpec* property)
{
    if (number != kFramebuffer) {
        G_OBJECT_WARN_INVALID_PROPERTY_ID(object, number, property);
        return;
    }
    g_value_set_string(value, partsOf(object).framebuffer.c_str());
}

void finalize(GObject* object)
{
    delete &partsOf(object);
    G_OBJECT_CLASS(imx_ipu_video_sink_parent_class)->finalize(object);
}

gboolean start(GstBaseSink* sink)
{
    Parts& parts = partsOf(sink);
    if (parts.surface.open(parts.framebuffer.c_str())) {
        return TRUE;
    }
    fail(sink, GST_RESOURCE_ERROR_OPEN_READ_WRITE, "Cannot open");
    parts.surface.close();
    return FALSE;
}

gboolean stop(GstBaseSink* sink)
{
    partsOf(sink).surface.close();
    return TRUE;
}

gboolean setInfo(GstVideoSink* sink, GstCaps* /*caps*/, const GstVideoInfo* info)
{
    partsOf(sink).painter.expect(*info);
    return TRUE;
}

GstFlowReturn showFrame(GstVideoSink* sink, GstBuffer* picture)
{
    // The overlay's owner may have given it another mode, or page, since the last picture.
    Parts& parts = partsOf(sink);
    if (!parts.surface.look()) {
        fail(sink, GST_RESOURCE_ERROR_WRITE, "Cannot use the mode of");
        return GST_FLOW_ERROR;
    }
    if (!parts.painter.paint(picture, parts.surface)) {
        errno = EINVAL;
        fail(sink, GST_RESOURCE_ERROR_WRITE, "Cannot draw this picture on");
        return GST_FLOW_ERROR;
    }
    return GST_FLOW_OK;
}

gboolean registerElement(GstPlugin* plugin)
{
    return gst_element_register(plugin, "imxipuvideosink", GST_RANK_NONE, imx_ipu_video_sink_get_type());
}

}  // namespace

static void imx_ipu_video_sink_init(ImxIpuVideoSink* self)
{
    self->parts = new Parts;
}

static void imx_ipu_video_sink_class_init(ImxIpuVideoSinkClass* type)
{
    GObjectClass* const object = G_OBJECT_CLASS(type);
    object->set_property = setProperty;
    object->get_property = getProperty;
    object->finalize = finalize;
    constexpr auto kFlags = static_cast<GParamFlags>(G_PARAM_READWRITE | G_PARAM_STATIC_STRINGS);
    g_object_class_install_property(
        object, kFramebuffer,
        g_param_spec_string("framebuffer", "Framebuffer", "The framebuffer's node", "/dev/fb1", kFlags));

    GstElementClass* const element = GST_ELEMENT_CLASS(type);
    gst_element_class_set_static_metadata(element, "Overlay video sink", "Sink/Video",
                                          "Draws video into the overlay of a virtual board",
                                          "the velcam authors");
    GstCaps* const caps = gst_caps_from_string(GST_VIDEO_CAPS_MAKE(GST_VIDEO_FORMATS_ALL));
    gst_element_class_add_pad_template(element,
                                       gst_pad_template_new("sink", GST_PAD_SINK, GST_PAD_ALWAYS, caps));
    gst_caps_unref(caps);

    GST_BASE_SINK_CLASS(type)->start = start;
    GST_BASE_SINK_CLASS(type)->stop = stop;
    GST_VIDEO_SINK_CLASS(type)->set_info = setInfo;
    GST_VIDEO_SINK_CLASS(type)->show_frame = showFrame;
}

GST_PLUGIN_DEFINE(GST_VERSION_MAJOR, GST_VERSION_MINOR, imxipuvideosink, "Overlay of the virtual board",
                  registerElement, VELCAM_VERSION, "MIT/X11", PACKAGE, "velcam")
