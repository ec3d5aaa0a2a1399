#include "Muxer.h"

extern "C" {
#include <libavformat/avformat.h>
}

#include <algorithm>
#include <array>
#include <cctype>

namespace recording {
namespace {

struct Kind {
    const char* ending;
    const char* name;
};
constexpr std::array kKinds{
    Kind{".avi", "avi"},  // with an OpenDML index, and further lists of up to 1 GiB as the file grows
    Kind{".mp4", "mp4"},
    Kind{".mkv", "matroska"},
};

bool endsWith(const std::string& text, const std::string& ending)
{
    return text.size() > ending.size() &&
           std::equal(ending.rbegin(), ending.rend(), text.rbegin(), [](char one, char other) {
               return one == std::tolower(static_cast<unsigned char>(other));
           });
}

}  // namespace

const char* Muxer::kindFor(const std::string& path)
{
    for (const Kind& kind : kKinds) {
        if (endsWith(path, kind.ending)) {
            return kind.name;
        }
    }
    return nullptr;
}

Muxer::~Muxer()
{
    av_packet_free(&packet_);
    if (context_ != nullptr) {
        avio_closep(&context_->pb);
        avformat_free_context(context_);
    }
}

bool Muxer::open(const std::string& path, const char* kind, const Format& format, Bytes codecHeader)
{
    framesPerSecond_ = format.framesPerSecond;
    packet_ = av_packet_alloc();
    const std::string url = "file:" + path;  // else a name as "12:30.mp4" would name a protocol
    return check(packet_ == nullptr ? AVERROR(ENOMEM) : 0) &&
           check(avformat_alloc_output_context2(&context_, nullptr, kind, url.c_str())) &&
           addStream(format, codecHeader) && check(avio_open(&context_->pb, url.c_str(), AVIO_FLAG_WRITE)) &&
           check(avformat_write_header(context_, nullptr));
}

bool Muxer::addStream(const Format& format, Bytes codecHeader)
{
    AVStream* stream = avformat_new_stream(context_, nullptr);
    auto* extra = static_cast<uint8_t*>(av_mallocz(codecHeader.size + AV_INPUT_BUFFER_PADDING_SIZE));
    if (stream == nullptr || extra == nullptr) {
        av_free(extra);
        return check(AVERROR(ENOMEM));
    }
    std::copy(codecHeader.data, codecHeader.data + codecHeader.size, extra);
    const auto rate = static_cast<int>(format.framesPerSecond);
    stream->time_base = {1, rate};
    stream->avg_frame_rate = {rate, 1};
    stream->r_frame_rate = {rate, 1};
    AVCodecParameters& codec = *stream->codecpar;
    codec.codec_type = AVMEDIA_TYPE_VIDEO;
    codec.codec_id = AV_CODEC_ID_H264;
    codec.width = static_cast<int>(format.width);
    codec.height = static_cast<int>(format.height);
    codec.extradata = extra;
    codec.extradata_size = static_cast<int>(codecHeader.size);
    return true;
}

bool Muxer::write(Bytes frame, uint64_t number, bool keyFrame)
{
    const AVRational tick{1, static_cast<int>(framesPerSecond_)};
    // The library copies what does not belong to a packet.
    packet_->data = const_cast<uint8_t*>(frame.data);
    packet_->size = static_cast<int>(frame.size);
    packet_->pts = static_cast<int64_t>(number);
    packet_->dts = packet_->pts;
    packet_->duration = 1;
    packet_->flags = keyFrame ? AV_PKT_FLAG_KEY : 0;
    packet_->stream_index = 0;
    av_packet_rescale_ts(packet_, tick, context_->streams[0]->time_base);
    return check(av_write_frame(context_, packet_));
}

bool Muxer::finish()
{
    return check(av_write_trailer(context_)) && check(avio_closep(&context_->pb));
}

bool Muxer::check(int result)
{
    if (result >= 0) {
        return true;
    }
    std::array<char, AV_ERROR_MAX_STRING_SIZE> text{};
    av_strerror(result, text.data(), text.size());
    error_ = text.data();
    return false;
}

}  // namespace recording
