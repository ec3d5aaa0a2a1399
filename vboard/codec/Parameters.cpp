#include "codec/Parameters.h"

#include <algorithm>
#include <array>

namespace codec {
namespace {

constexpr int kMinWidth = 64;
constexpr int kMinHeight = 16;
constexpr int kMaxWidth = 1920;
constexpr int kMaxHeight = 1088;
constexpr int kMaxBitrateKbps = 240000;  // that of the highest level of H.264
constexpr int kMaxGopFrames = 32767;
constexpr int kMaxDeblockOffset = 6;
constexpr int kMaxChromaQpOffset = 12;
constexpr Uint32 kBitstreamUnit = 1024;  // the buffer is counted in these
constexpr Uint32 kBitstreamAlignment = 512;
constexpr Uint32 kRateMask = 0xFFFF;
constexpr unsigned kRateShift = 16;

struct Rule {
    bool broken;
    RetCode code;
    const char* reason;
};

bool outside(int value, int lowest, int highest)
{
    return value < lowest || value > highest;
}

template <size_t Count>
Answer firstBroken(const std::array<Rule, Count>& rules)
{
    const auto broken =
        std::find_if(rules.begin(), rules.end(), [](const Rule& rule) { return rule.broken; });
    return broken == rules.end() ? Answer{} : Answer{broken->code, broken->reason};
}

Answer checkPicture(const EncOpenParam& open)
{
    const bool odd = (open.picWidth % 2 != 0) || (open.picHeight % 2 != 0);
    return firstBroken(std::array{
        Rule{open.bitstreamFormat != STD_AVC, RETCODE_NOT_SUPPORTED, "only STD_AVC is encoded"},
        Rule{outside(open.picWidth, kMinWidth, kMaxWidth), RETCODE_INVALID_PARAM, "picWidth out of range"},
        Rule{outside(open.picHeight, kMinHeight, kMaxHeight), RETCODE_INVALID_PARAM,
             "picHeight out of range"},
        Rule{odd, RETCODE_INVALID_PARAM, "picture size is odd"},
        Rule{(open.frameRateInfo & kRateMask) == 0, RETCODE_INVALID_PARAM, "frameRateInfo is 0"},
        Rule{outside(open.mapType, LINEAR_FRAME_MAP, TILED_FIELD_MB_RASTER_MAP), RETCODE_INVALID_PARAM,
             "mapType out of range"},
        Rule{open.mapType != LINEAR_FRAME_MAP, RETCODE_NOT_SUPPORTED, "only LINEAR_FRAME_MAP"},
        Rule{outside(open.chromaInterleave, 0, 1), RETCODE_INVALID_PARAM,
             "chromaInterleave is neither 0 nor 1"},
    });
}

Answer checkRate(const EncOpenParam& open)
{
    const bool lowBound = open.userQpMinEnable != 0;
    const bool highBound = open.userQpMaxEnable != 0;
    return firstBroken(std::array{
        Rule{outside(open.bitRate, 0, kMaxBitrateKbps), RETCODE_INVALID_PARAM, "bitRate out of range"},
        Rule{outside(open.gopSize, 0, kMaxGopFrames), RETCODE_INVALID_PARAM, "gopSize out of range"},
        Rule{open.vbvBufferSize < 0, RETCODE_INVALID_PARAM, "vbvBufferSize is negative"},
        Rule{outside(open.rcIntraQp, -1, kMaxQuantiser), RETCODE_INVALID_PARAM, "rcIntraQp out of range"},
        Rule{lowBound && outside(open.userQpMin, 0, kMaxQuantiser), RETCODE_INVALID_PARAM,
             "userQpMin out of range"},
        Rule{highBound && outside(open.userQpMax, 0, kMaxQuantiser), RETCODE_INVALID_PARAM,
             "userQpMax out of range"},
        Rule{lowBound && highBound && open.userQpMin > open.userQpMax, RETCODE_INVALID_PARAM,
             "userQpMin is above userQpMax"},
    });
}

Answer checkStream(const EncOpenParam& open)
{
    const bool reports = open.sliceReport != 0 || open.mbReport != 0 || open.mbQpReport != 0;
    return firstBroken(std::array{
        Rule{open.bitstreamBuffer % kBitstreamAlignment != 0, RETCODE_INVALID_PARAM,
             "bitstreamBuffer is not aligned"},
        Rule{open.bitstreamBufferSize == 0 || open.bitstreamBufferSize % kBitstreamUnit != 0,
             RETCODE_INVALID_PARAM, "bitstreamBufferSize is no multiple of 1024"},
        Rule{open.slicemode.sliceMode != 0, RETCODE_NOT_SUPPORTED, "only one slice a picture"},
        Rule{open.ringBufferEnable != 0, RETCODE_NOT_SUPPORTED, "no ring buffer"},
        Rule{open.dynamicAllocEnable != 0, RETCODE_NOT_SUPPORTED, "no dynamic allocation"},
        Rule{reports, RETCODE_NOT_SUPPORTED, "no slice or macroblock reports"},
    });
}

Answer checkAvc(const EncAvcParam& avc)
{
    const bool extended = avc.mvc_extension != 0 || avc.interview_en != 0 || avc.prefix_nal_en != 0;
    return firstBroken(std::array{
        Rule{outside(avc.avc_disableDeblk, 0, 2), RETCODE_INVALID_PARAM, "avc_disableDeblk out of range"},
        Rule{outside(avc.avc_deblkFilterOffsetAlpha, -kMaxDeblockOffset, kMaxDeblockOffset),
             RETCODE_INVALID_PARAM, "avc_deblkFilterOffsetAlpha out of range"},
        Rule{outside(avc.avc_deblkFilterOffsetBeta, -kMaxDeblockOffset, kMaxDeblockOffset),
             RETCODE_INVALID_PARAM, "avc_deblkFilterOffsetBeta out of range"},
        Rule{outside(avc.avc_chromaQpOffset, -kMaxChromaQpOffset, kMaxChromaQpOffset), RETCODE_INVALID_PARAM,
             "avc_chromaQpOffset out of range"},
        Rule{avc.avc_level < 0, RETCODE_INVALID_PARAM, "avc_level is negative"},
        Rule{avc.avc_fmoEnable != 0, RETCODE_NOT_SUPPORTED, "no flexible macroblock order"},
        Rule{avc.avc_audEnable != 0, RETCODE_NOT_SUPPORTED, "no access unit delimiters"},
        Rule{avc.avc_frameCroppingFlag != 0, RETCODE_NOT_SUPPORTED,
             "no cropping beyond that of the picture size"},
        Rule{extended, RETCODE_NOT_SUPPORTED, "no multiview coding"},
    });
}

std::optional<int> given(int value, int enabled)
{
    return enabled != 0 ? std::optional(value) : std::nullopt;
}

/// The signal type is described when the record says that it is present, also when `avc_vui_present_flag` is
/// 0: x264 writes the other usability information in any case.
std::optional<ColourDescription> colourOf(const VuiParam& vui)
{
    constexpr int kUnspecified = 2;
    if (vui.video_signal_type_pres_flag == 0) {
        return std::nullopt;
    }
    ColourDescription colour{static_cast<Uint8>(vui.video_format), vui.video_full_range_flag != 0,
                             kUnspecified, kUnspecified, kUnspecified};
    if (vui.colour_descrip_pres_flag != 0) {
        colour.primaries = static_cast<Uint8>(vui.colour_primaries);
        colour.transfer = static_cast<Uint8>(vui.transfer_characteristics);
        colour.matrix = static_cast<Uint8>(vui.matrix_coeff);
    }
    return colour;
}

}  // namespace

Answer check(const EncOpenParam& parameters)
{
    for (const auto& step : {checkPicture, checkRate, checkStream}) {
        if (Answer answer = step(parameters); !answer.done()) {
            return answer;
        }
    }
    return checkAvc(parameters.EncStdParam.avcParam);
}

EncoderSettings settingsFor(const EncOpenParam& parameters, const board::State& state)
{
    const EncAvcParam& avc = parameters.EncStdParam.avcParam;
    EncoderSettings settings;
    if (state.codecPreset[0] != '\0') {
        settings.preset = state.codecPreset;
    }
    settings.threads = std::max(1, static_cast<int>(state.codecThreads));
    settings.width = parameters.picWidth;
    settings.height = parameters.picHeight;
    settings.rateNumerator = static_cast<uint32_t>(parameters.frameRateInfo & kRateMask);
    settings.rateDenominator = static_cast<uint32_t>(parameters.frameRateInfo >> kRateShift & kRateMask) + 1;
    settings.gopFrames = parameters.gopSize;
    settings.bitrateKbps = parameters.bitRate;
    settings.vbvBits = parameters.vbvBufferSize;
    settings.minQuantiser = given(parameters.userQpMin, parameters.userQpMinEnable);
    settings.maxQuantiser = given(parameters.userQpMax, parameters.userQpMaxEnable);
    settings.level = avc.avc_level;
    settings.interleavedChroma = parameters.chromaInterleave != 0;
    settings.deblock = avc.avc_disableDeblk != 1;
    settings.deblockAlpha = avc.avc_deblkFilterOffsetAlpha;
    settings.deblockBeta = avc.avc_deblkFilterOffsetBeta;
    settings.chromaQpOffset = avc.avc_chromaQpOffset;
    settings.constrainedIntra = avc.avc_constrainedIntraPredFlag != 0;
    settings.colour = colourOf(avc.avc_vui_param);
    return settings;
}

}  // namespace codec
