// One minute of the same access units written into an AVI file by velcam's writer, by bare calls, by FFmpeg's
// and by GStreamer's muxer. The file lies in the working directory; time is per frame (items) and counts all
// threads.

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "lib/AviWriter.h"

extern "C" {
#include <libavformat/avformat.h>
}

#ifdef BENCH_GSTREAMER
#include <gst/app/gstappsrc.h>
#include <gst/gst.h>
#endif

namespace {

constexpr int kFrames = 1800;
constexpr int kRate = 30;
constexpr unsigned kWidth = 1440, kHeight = 990;
constexpr const char* kFile = "writing.avi";
constexpr off_t kHeaderBytes = 792;

/// Sizes as at 2000 kbit/s: a large key frame each ten seconds, the others around 8 KB. The bytes are noise
/// behind a start code: no contestant looks further.
class AccessUnits {
public:
    AccessUnits()
    {
        constexpr int kKeyInterval = 300;
        constexpr size_t kKeyBytes = 60000, kLeast = 4000, kMost = 12400;
        std::mt19937 random(1);
        std::uniform_int_distribution<size_t> length(kLeast, kMost);
        bytes_.resize(kKeyBytes + kMost);
        std::generate(bytes_.begin(), bytes_.end(), [&] { return static_cast<uint8_t>(random() | 1U); });
        for (int i = 0; i < kFrames; ++i) {
            lengths_.push_back(i % kKeyInterval == 0 ? kKeyBytes : length(random));
        }
    }

    size_t length(int frame) const { return lengths_[static_cast<size_t>(frame)]; }
    bool isKey(int frame) const { return frame % 300 == 0; }
    uint8_t* data(int frame)
    {
        const std::array<uint8_t, 5> start{0, 0, 0, 1, isKey(frame) ? uint8_t{0x65} : uint8_t{0x41}};
        std::copy(start.begin(), start.end(), bytes_.begin());
        return bytes_.data();
    }

private:
    std::vector<uint8_t> bytes_;
    std::vector<size_t> lengths_;
};

AccessUnits& units()
{
    static AccessUnits made;
    return made;
}

[[noreturn]] void fail(const char* what)
{
    std::fprintf(stderr, "writing: %s failed\n", what);
    std::exit(1);
}

void require(bool done, const char* what)
{
    if (!done) {
        fail(what);
    }
}

/// The file as a contestant finds it: absent, or a recording of so many bytes.
void prepare(off_t bytes)
{
    ::unlink(kFile);
    if (bytes == 0) {
        return;
    }
    const int fd = ::open(kFile, O_WRONLY | O_CREAT | O_CLOEXEC, 0666);
    require(fd >= 0 && ::posix_fallocate(fd, 0, bytes) == 0, "making room for the file");
    ::close(fd);
}

void velcam()
{
    AviWriter writer;
    require(writer.start(kFile, {kRate, 10000000, kWidth, kHeight, VideoWriter::H264}), "starting");
    for (int i = 0; i < kFrames; ++i) {
        require(writer.writeChunk(units().data(i), static_cast<unsigned>(units().length(i))), "writing");
    }
}

void bareCalls()
{
    const int fd = ::open(kFile, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0777);
    std::array<char, kHeaderBytes> header{};
    require(::write(fd, header.data(), header.size()) == kHeaderBytes, "writing");
    std::array<char, 8> head{'0', '0', 'd', 'b'};
    std::array<char, 4> zeros{};
    for (int i = 0; i < kFrames; ++i) {
        const size_t length = units().length(i);
        const auto whole = static_cast<uint32_t>((length + 3) / 4 * 4);
        std::memcpy(head.data() + 4, &whole, sizeof(whole));
        const std::array parts{iovec{head.data(), head.size()}, iovec{units().data(i), length},
                               iovec{zeros.data(), whole - length}};
        require(::writev(fd, parts.data(), 3) == static_cast<ssize_t>(head.size() + whole), "writing");
    }
    ::close(fd);
}

enum class Delivery { kBuffered, kEachFrame };

void ffmpeg(Delivery delivery)
{
    AVFormatContext* context = nullptr;
    require(avformat_alloc_output_context2(&context, nullptr, "avi", kFile) >= 0, "FFmpeg's muxer");
    context->flags |= delivery == Delivery::kEachFrame ? AVFMT_FLAG_FLUSH_PACKETS : 0;
    context->flush_packets = delivery == Delivery::kEachFrame ? 1 : 0;
    AVStream* const stream = avformat_new_stream(context, nullptr);
    stream->time_base = {1, kRate};
    stream->codecpar->codec_type = AVMEDIA_TYPE_VIDEO;
    stream->codecpar->codec_id = AV_CODEC_ID_H264;
    stream->codecpar->width = kWidth;
    stream->codecpar->height = kHeight;
    require(avio_open(&context->pb, kFile, AVIO_FLAG_WRITE) >= 0, "FFmpeg's file");
    require(avformat_write_header(context, nullptr) >= 0, "FFmpeg's header");
    AVPacket* packet = av_packet_alloc();
    for (int i = 0; i < kFrames; ++i) {
        packet->data = units().data(i);
        packet->size = static_cast<int>(units().length(i));
        packet->pts = packet->dts = i;
        packet->duration = 1;
        packet->flags = units().isKey(i) ? AV_PKT_FLAG_KEY : 0;
        require(av_write_frame(context, packet) >= 0, "FFmpeg's writing");
    }
    av_packet_free(&packet);
    av_write_trailer(context);
    avio_closep(&context->pb);
    avformat_free_context(context);
}

#ifdef BENCH_GSTREAMER
void gstreamer(Delivery delivery)
{
    const std::string description =
        std::string("avimux name=mux ! filesink location=") + kFile +
        " buffer-mode=" + (delivery == Delivery::kEachFrame ? "unbuffered" : "full") +
        " appsrc name=source format=time max-bytes=0 caps=video/x-h264,"
        "stream-format=byte-stream,alignment=au,width=1440,height=990,framerate=30/1 "
        "! mux.video_0";
    GstElement* const pipeline = gst_parse_launch(description.c_str(), nullptr);
    require(pipeline != nullptr, "GStreamer's pipeline");
    GstElement* const source = gst_bin_get_by_name(GST_BIN(pipeline), "source");
    gst_element_set_state(pipeline, GST_STATE_PLAYING);
    for (int i = 0; i < kFrames; ++i) {
        GstBuffer* const buffer =
            gst_buffer_new_wrapped_full(GST_MEMORY_FLAG_READONLY, units().data(i), units().length(i), 0,
                                        units().length(i), nullptr, nullptr);
        GST_BUFFER_PTS(buffer) = GST_BUFFER_DTS(buffer) =
            gst_util_uint64_scale(static_cast<guint64>(i), GST_SECOND, kRate);
        GST_BUFFER_DURATION(buffer) = GST_SECOND / kRate;
        if (!units().isKey(i)) {
            GST_BUFFER_FLAG_SET(buffer, GST_BUFFER_FLAG_DELTA_UNIT);
        }
        require(gst_app_src_push_buffer(GST_APP_SRC(source), buffer) == GST_FLOW_OK, "GStreamer's writing");
    }
    gst_app_src_end_of_stream(GST_APP_SRC(source));
    GstBus* const bus = gst_element_get_bus(pipeline);
    GstMessage* const last = gst_bus_timed_pop_filtered(
        bus, GST_CLOCK_TIME_NONE, static_cast<GstMessageType>(GST_MESSAGE_EOS | GST_MESSAGE_ERROR));
    require(GST_MESSAGE_TYPE(last) == GST_MESSAGE_EOS, "GStreamer's pipeline");
    gst_message_unref(last);
    gst_object_unref(bus);
    gst_element_set_state(pipeline, GST_STATE_NULL);
    gst_object_unref(source);
    gst_object_unref(pipeline);
}
#endif

template <typename Contestant>
void measure(benchmark::State& state, off_t before, Contestant write)
{
    for ([[maybe_unused]] auto _ : state) {
        state.PauseTiming();
        prepare(before);
        state.ResumeTiming();
        write();
    }
    struct stat status = {};
    require(::stat(kFile, &status) == 0 && status.st_size > before + kFrames * 4000,
            "the file: too short, it");
    ::unlink(kFile);
    state.SetItemsProcessed(state.iterations() * kFrames);
}

template <typename Contestant>
void add(const char* name, off_t before, Contestant write)
{
    benchmark::RegisterBenchmark(name, [=](benchmark::State& state) { measure(state, before, write); })
        ->MeasureProcessCPUTime()
        ->UseRealTime()
        ->Iterations(1);
}

}  // namespace

int main(int argc, char** argv)
{
    benchmark::Initialize(&argc, argv);
    // What the writer says of each file is not of interest here.
    require(std::freopen("/dev/null", "w", stdout) != nullptr, "silencing");
    constexpr off_t kSmall = 1000000, kLarge = 600000000;
    add("bare", 0, bareCalls);
    add("velcam", 0, velcam);
    add("ffmpeg", 0, [] { ffmpeg(Delivery::kBuffered); });
    add("ffmpeg-each", 0, [] { ffmpeg(Delivery::kEachFrame); });
#ifdef BENCH_GSTREAMER
    gst_init(&argc, &argv);
    add("gstreamer", 0, [] { gstreamer(Delivery::kBuffered); });
    add("gstreamer-each", 0, [] { gstreamer(Delivery::kEachFrame); });
#endif
    add("bare-1MB", kSmall, bareCalls);
    add("velcam-1MB", kSmall, velcam);
    add("bare-600MB", kLarge, bareCalls);
    add("velcam-600MB", kLarge, velcam);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
