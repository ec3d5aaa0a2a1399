#include "codec/Encoder.h"

#include <x264.h>

#include <cstring>

namespace codec {
namespace {

constexpr int kUnspecified = 2;  // "unspecified" in the colour tables of H.264, Annex E

/// The quantiser x264 is opened with when there is no rate control. Every frame brings its own, so that it
/// does not matter, but that 0 would announce lossless coding in the sequence parameters.
constexpr int kAnyQuantiser = 26;

void setPicture(x264_param_t& target, const EncoderSettings& settings)
{
    target.i_width = settings.width;
    target.i_height = settings.height;
    target.i_csp = settings.interleavedChroma ? X264_CSP_NV12 : X264_CSP_I420;
    target.i_fps_num = settings.rateNumerator;
    target.i_fps_den = settings.rateDenominator;
    target.b_vfr_input = 0;
    if (settings.level > 0) {
        target.i_level_idc = settings.level;
    }
}

/// One frame in, one frame out: nothing may look ahead, reorder or work on two frames at a time.
void setOrder(x264_param_t& target, const EncoderSettings& settings)
{
    target.i_threads = settings.threads;
    target.i_lookahead_threads = 1;
    target.b_sliced_threads = settings.threads > 1 ? 1 : 0;
    target.b_deterministic = 1;
    target.i_sync_lookahead = 0;
    target.rc.i_lookahead = 0;
    target.rc.b_mb_tree = 0;
    target.i_bframe = 0;
    target.i_slice_count = 0;
    target.i_keyint_max = settings.gopFrames > 0 ? settings.gopFrames : X264_KEYINT_MAX_INFINITE;
    target.i_keyint_min = 1;
    target.i_scenecut_threshold =
        0;  // key frames come when they are due or asked for, as from the board's codec
}

void setRate(x264_param_t& target, const EncoderSettings& settings)
{
    constexpr int kBitsPerKbit = 1000;
    constexpr int kHeadroomShare =
        10;  // a tenth more at most, so that the average can make up for a quiet stretch
    if (settings.bitrateKbps == 0) {
        target.rc.i_rc_method = X264_RC_CQP;
        target.rc.i_qp_constant = kAnyQuantiser;
        return;
    }
    target.rc.i_rc_method = X264_RC_ABR;
    target.rc.i_bitrate = settings.bitrateKbps;
    target.rc.i_vbv_max_bitrate = settings.bitrateKbps + settings.bitrateKbps / kHeadroomShare;
    target.rc.i_vbv_buffer_size =
        settings.vbvBits > 0 ? settings.vbvBits / kBitsPerKbit + 1 : (settings.bitrateKbps + 1) / 2;
    if (settings.minQuantiser) {
        target.rc.i_qp_min = *settings.minQuantiser;
    }
    if (settings.maxQuantiser) {
        target.rc.i_qp_max = *settings.maxQuantiser;
    }
}

void setCodingTools(x264_param_t& target, const EncoderSettings& settings)
{
    target.b_deblocking_filter = settings.deblock ? 1 : 0;
    target.i_deblocking_filter_alphac0 = settings.deblockAlpha;
    target.i_deblocking_filter_beta = settings.deblockBeta;
    target.b_constrained_intra = settings.constrainedIntra ? 1 : 0;
    target.analyse.i_chroma_qp_offset = settings.chromaQpOffset;
    target.analyse.b_psy = 0;  // it would add to the chroma offset
}

void setStream(x264_param_t& target, const EncoderSettings& settings)
{
    target.b_annexb = 1;
    target.b_repeat_headers = 0;
    target.b_aud = 0;
    target.i_nal_hrd = X264_NAL_HRD_NONE;
    target.i_log_level = X264_LOG_NONE;
    if (settings.colour) {
        target.vui.i_vidformat = settings.colour->videoFormat;
        target.vui.b_fullrange = settings.colour->fullRange ? 1 : 0;
        target.vui.i_colorprim = settings.colour->primaries;
        target.vui.i_transfer = settings.colour->transfer;
        // Matrix 0 says RGB, which a 4:2:0 picture cannot be.
        target.vui.i_colmatrix = settings.colour->matrix != 0 ? settings.colour->matrix : kUnspecified;
    }
}

bool fill(x264_param_t& target, const EncoderSettings& settings)
{
    if (x264_param_default_preset(&target, settings.preset.c_str(), "zerolatency") != 0) {
        return false;
    }
    setPicture(target, settings);
    setOrder(target, settings);
    setRate(target, settings);
    setCodingTools(target, settings);
    setStream(target, settings);
    return x264_param_apply_profile(&target, "baseline") == 0;
}

bool isSlice(const x264_nal_t& unit)
{
    return unit.i_type == NAL_SLICE || unit.i_type == NAL_SLICE_IDR;
}

x264_picture_t describe(const Picture& picture, bool interleavedChroma)
{
    x264_picture_t described{};
    x264_picture_init(&described);
    described.img.i_csp = interleavedChroma ? X264_CSP_NV12 : X264_CSP_I420;
    described.img.i_plane = interleavedChroma ? 2 : 3;
    for (size_t i = 0; i < picture.planes.size(); ++i) {
        described.img.plane[i] = const_cast<uint8_t*>(picture.planes[i]);  // x264 only reads it
        described.img.i_stride[i] = picture.strides[i];
    }
    return described;
}

/// Puts the slices one behind the other; nothing when they do not fit.
std::optional<EncodedFrame> collect(const x264_nal_t* units, int count, uint8_t* output, size_t capacity)
{
    EncodedFrame frame{};
    for (const x264_nal_t* unit = units; unit != units + count; ++unit) {
        if (!isSlice(*unit)) {
            continue;
        }
        const auto bytes = static_cast<size_t>(unit->i_payload);
        if (bytes > capacity - frame.bytes) {
            return std::nullopt;
        }
        std::memcpy(output + frame.bytes, unit->p_payload, bytes);
        frame.bytes += bytes;
        frame.keyFrame = unit->i_type == NAL_SLICE_IDR;
        ++frame.slices;
    }
    return frame.slices > 0 ? std::optional(frame) : std::nullopt;
}

}  // namespace

void Encoder::Closer::operator()(x264_t* encoder) const
{
    x264_encoder_close(encoder);
}

std::unique_ptr<Encoder> Encoder::open(const EncoderSettings& settings)
{
    x264_param_t parameters{};
    x264_t* const encoder = fill(parameters, settings) ? x264_encoder_open(&parameters) : nullptr;
    if (encoder == nullptr) {
        return nullptr;
    }
    std::unique_ptr<Encoder> opened(new Encoder(encoder, settings));
    return opened->fetchParameterSets() ? std::move(opened) : nullptr;
}

Encoder::Encoder(x264_t* encoder, const EncoderSettings& settings)
    : encoder_(encoder),
      interleavedChroma_(settings.interleavedChroma),
      rateControlled_(settings.bitrateKbps > 0)
{
}

bool Encoder::fetchParameterSets()
{
    x264_nal_t* units = nullptr;
    int count = 0;
    if (x264_encoder_headers(encoder_.get(), &units, &count) < 0) {
        return false;
    }
    for (const x264_nal_t* unit = units; unit != units + count; ++unit) {
        const Bytes bytes(unit->p_payload, unit->p_payload + unit->i_payload);
        if (unit->i_type == NAL_SPS) {
            sequenceParameters_ = bytes;
        } else if (unit->i_type == NAL_PPS) {
            pictureParameters_ = bytes;
        }
    }
    return !sequenceParameters_.empty() && !pictureParameters_.empty();
}

std::optional<EncodedFrame> Encoder::encode(const Picture& picture, const FrameRequest& request,
                                            uint8_t* output, size_t capacity)
{
    x264_picture_t input = describe(picture, interleavedChroma_);
    input.i_pts = frameNumber_++;
    input.i_type = request.keyFrame ? X264_TYPE_IDR : X264_TYPE_AUTO;
    input.i_qpplus1 = rateControlled_ ? X264_QP_AUTO : request.quantiser + 1;
    x264_picture_t reconstructed{};
    x264_nal_t* units = nullptr;
    int count = 0;
    if (x264_encoder_encode(encoder_.get(), &units, &count, &input, &reconstructed) <= 0) {
        return std::nullopt;
    }
    return collect(units, count, output, capacity);
}

}  // namespace codec
