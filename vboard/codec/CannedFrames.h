#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>

#include "codec/Encoder.h"

namespace codec {

/// What the codec of a board with idle devices gives out: grey key frames that were encoded beforehand, each
/// brought to 8 KB (a usual frame's size) by filler data, so that a recording of them can be played.
///
/// Threads: one at a time.
class CannedFrames {
public:
    static constexpr size_t kFrameBytes = 8192;

    /// Encodes the frames; the encoder is not needed afterwards.
    CannedFrames(Encoder& encoder, const EncoderSettings& settings);

    /// Writes the next one to `output`. Nothing when it does not fit, or could not be encoded.
    std::optional<EncodedFrame> next(uint8_t* output, size_t capacity);

private:
    /// Two key frames in a row must not have the same number, so there are two.
    std::array<Bytes, 2> frames_;
    size_t next_ = 0;
};

}  // namespace codec
