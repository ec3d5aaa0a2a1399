#include "Codec.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/imgutils.h>
#include <libswscale/swscale.h>
}

#include <algorithm>
#include <cstring>
#include <vector>

namespace recording {
namespace {

struct FreeParser {
    void operator()(AVCodecParserContext* parser) const { av_parser_close(parser); }
};
struct FreeContext {
    void operator()(AVCodecContext* context) const { avcodec_free_context(&context); }
};
struct FreePacket {
    void operator()(AVPacket* packet) const { av_packet_free(&packet); }
};
struct FreeFrame {
    void operator()(AVFrame* frame) const { av_frame_free(&frame); }
};
struct FreeScaler {
    void operator()(SwsContext* scaler) const { sws_freeContext(scaler); }
};
using Context = std::unique_ptr<AVCodecContext, FreeContext>;
using Packet = std::unique_ptr<AVPacket, FreePacket>;
using Frame = std::unique_ptr<AVFrame, FreeFrame>;
using Scaler = std::unique_ptr<SwsContext, FreeScaler>;

/// The library has a format of its own for full range, which it no longer likes to be used.
AVPixelFormat formatOf(const AVFrame& picture)
{
    const auto format = static_cast<AVPixelFormat>(picture.format);
    return format == AV_PIX_FMT_YUVJ420P ? AV_PIX_FMT_YUV420P : format;
}

/// For a stream that does not name its colour matrix, the library's usual one, which players take too.
Scaler makeScaler(const AVFrame& picture)
{
    Scaler scaler(sws_getContext(
        picture.width, picture.height, formatOf(picture), picture.width, picture.height, AV_PIX_FMT_RGB24,
        SWS_BICUBIC | SWS_ACCURATE_RND | SWS_FULL_CHR_H_INT, nullptr, nullptr, nullptr));
    if (scaler != nullptr) {
        constexpr int kUnit = 1 << 16;
        const int fullRange = picture.color_range == AVCOL_RANGE_JPEG ? 1 : 0;
        sws_setColorspaceDetails(scaler.get(), sws_getCoefficients(picture.colorspace), fullRange,
                                 sws_getCoefficients(SWS_CS_DEFAULT), 1, 0, kUnit, kUnit);
    }
    return scaler;
}

Frame toRgb(const AVFrame& picture)
{
    Frame rgb(av_frame_alloc());
    const Scaler scaler = makeScaler(picture);
    if (rgb == nullptr || scaler == nullptr) {
        return nullptr;
    }
    rgb->format = AV_PIX_FMT_RGB24;
    rgb->width = picture.width;
    rgb->height = picture.height;
    if (av_frame_get_buffer(rgb.get(), 0) != 0 || sws_scale(scaler.get(), picture.data, picture.linesize, 0,
                                                            picture.height, rgb->data, rgb->linesize) <= 0) {
        return nullptr;
    }
    return rgb;
}

void crop(AVFrame& rgb, const Rectangle& part)
{
    constexpr int kBytesAPixel = 3;
    rgb.data[0] += part.y * rgb.linesize[0] + part.x * kBytesAPixel;
    rgb.width = part.width;
    rgb.height = part.height;
}

std::string encodePng(const AVFrame& rgb)
{
    const Context encoder(avcodec_alloc_context3(avcodec_find_encoder(AV_CODEC_ID_PNG)));
    const Packet packet(av_packet_alloc());
    if (encoder == nullptr || packet == nullptr) {
        return {};
    }
    encoder->pix_fmt = AV_PIX_FMT_RGB24;
    encoder->width = rgb.width;
    encoder->height = rgb.height;
    encoder->time_base = {1, 1};
    if (avcodec_open2(encoder.get(), encoder->codec, nullptr) != 0 ||
        avcodec_send_frame(encoder.get(), &rgb) != 0 ||
        avcodec_receive_packet(encoder.get(), packet.get()) != 0) {
        return {};
    }
    const auto* begin = reinterpret_cast<const char*>(packet->data);
    return {begin, static_cast<size_t>(packet->size)};
}

/// The library reads a little beyond what it is given.
std::vector<uint8_t> padded(Bytes bytes)
{
    std::vector<uint8_t> copy(bytes.size + AV_INPUT_BUFFER_PADDING_SIZE);
    std::copy(bytes.data, bytes.data + bytes.size, copy.begin());
    return copy;
}

}  // namespace

void silenceLibrary()
{
    av_log_set_level(AV_LOG_QUIET);
}

std::optional<PictureSize> pictureSize(Bytes frame)
{
    const std::unique_ptr<AVCodecParserContext, FreeParser> parser(av_parser_init(AV_CODEC_ID_H264));
    const Context context(avcodec_alloc_context3(nullptr));
    if (parser == nullptr || context == nullptr) {
        return std::nullopt;
    }
    const std::vector<uint8_t> data = padded(frame);
    parser->flags |= PARSER_FLAG_COMPLETE_FRAMES;
    uint8_t* out = nullptr;
    int outBytes = 0;
    av_parser_parse2(parser.get(), context.get(), &out, &outBytes, data.data(), static_cast<int>(frame.size),
                     AV_NOPTS_VALUE, AV_NOPTS_VALUE, 0);
    if (parser->width <= 0 || parser->height <= 0) {
        return std::nullopt;
    }
    return PictureSize{static_cast<uint32_t>(parser->width), static_cast<uint32_t>(parser->height)};
}

PictureDecoder::PictureDecoder()
    : context_(avcodec_alloc_context3(avcodec_find_decoder(AV_CODEC_ID_H264))),
      picture_(av_frame_alloc()),
      scratch_(av_frame_alloc())
{
    if (context_ != nullptr && avcodec_open2(context_, context_->codec, nullptr) != 0) {
        avcodec_free_context(&context_);
    }
}

PictureDecoder::~PictureDecoder()
{
    av_frame_free(&scratch_);
    av_frame_free(&picture_);
    avcodec_free_context(&context_);
}

void PictureDecoder::decode(Bytes frame)
{
    const Packet packet(av_packet_alloc());
    if (context_ == nullptr || packet == nullptr ||
        av_new_packet(packet.get(), static_cast<int>(frame.size)) != 0) {
        return;
    }
    std::copy(frame.data, frame.data + frame.size, packet->data);
    avcodec_send_packet(context_, packet.get());
    collect();
}

void PictureDecoder::finish()
{
    if (context_ != nullptr) {
        avcodec_send_packet(context_, nullptr);
        collect();
    }
}

void PictureDecoder::collect()
{
    while (avcodec_receive_frame(context_, scratch_) == 0) {
        av_frame_unref(picture_);
        av_frame_move_ref(picture_, scratch_);
    }
}

std::optional<PictureSize> PictureDecoder::size() const
{
    if (picture_ == nullptr || picture_->width <= 0 || picture_->height <= 0) {
        return std::nullopt;
    }
    return PictureSize{static_cast<uint32_t>(picture_->width), static_cast<uint32_t>(picture_->height)};
}

std::string PictureDecoder::toPng(const Rectangle& part) const
{
    const Frame rgb = toRgb(*picture_);
    if (rgb == nullptr) {
        return {};
    }
    crop(*rgb, part);
    return encodePng(*rgb);
}

}  // namespace recording
