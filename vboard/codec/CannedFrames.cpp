#include "codec/CannedFrames.h"

#include <cstring>

namespace codec {
namespace {

constexpr uint8_t kGrey = 128;
constexpr size_t kRoom = size_t{1} << 20;

/// A unit of filler data (type 12) of so many bytes, or nothing when that is too few for one.
void appendFiller(Bytes& frame, size_t bytes)
{
    constexpr std::array<uint8_t, 5> kHead{0, 0, 0, 1, 12};
    constexpr uint8_t kFill = 0xFF;
    constexpr uint8_t kEnd = 0x80;
    if (bytes <= kHead.size()) {
        return;
    }
    frame.insert(frame.end(), kHead.begin(), kHead.end());
    frame.insert(frame.end(), bytes - kHead.size() - 1, kFill);
    frame.push_back(kEnd);
}

/// A key frame of even grey; empty when it could not be encoded.
Bytes encodeGrey(Encoder& encoder, const EncoderSettings& settings)
{
    const Bytes plane(static_cast<size_t>(settings.width) * static_cast<size_t>(settings.height), kGrey);
    const int chromaStride = settings.interleavedChroma ? settings.width : settings.width / 2;
    const Picture picture{{plane.data(), plane.data(), plane.data()},
                          {settings.width, chromaStride, chromaStride}};
    constexpr int kQuantiser = 26;
    Bytes frame(kRoom);
    const auto encoded = encoder.encode(picture, {true, kQuantiser}, frame.data(), frame.size());
    frame.resize(encoded ? encoded->bytes : 0);
    return frame;
}

}  // namespace

CannedFrames::CannedFrames(Encoder& encoder, const EncoderSettings& settings)
{
    for (Bytes& frame : frames_) {
        frame = encodeGrey(encoder, settings);
        if (!frame.empty() && frame.size() < kFrameBytes) {
            appendFiller(frame, kFrameBytes - frame.size());
        }
    }
}

std::optional<EncodedFrame> CannedFrames::next(uint8_t* output, size_t capacity)
{
    const Bytes& frame = frames_[next_];
    if (frame.empty() || frame.size() > capacity) {
        return std::nullopt;
    }
    next_ = (next_ + 1) % frames_.size();
    std::memcpy(output, frame.data(), frame.size());
    return EncodedFrame{frame.size(), true, 1};
}

}  // namespace codec
