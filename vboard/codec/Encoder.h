#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

struct x264_t;

namespace codec {

/// What a viewer is told about the picture's colours; the numbers are those of H.264, Annex E.
struct ColourDescription {
    int videoFormat;
    bool fullRange;
    int primaries, transfer, matrix;
};

struct EncoderSettings {
    std::string preset = "superfast";                 ///< speed preset, x264's name
    int threads = 1;                                  ///< each thread encodes a slice of its own
    int width = 0, height = 0;                        ///< even
    uint32_t rateNumerator = 0, rateDenominator = 1;  ///< frames per second
    int gopFrames = 0;                                ///< from one key frame to the next, 0: no end
    int bitrateKbps = 0;                              ///< 0: constant quantiser
    int vbvBits = 0;                                  ///< 0: half a second's worth
    std::optional<int> minQuantiser, maxQuantiser;    ///< bounds of the rate control
    int level = 0;                                    ///< ten times the level, 0: the lowest that fits
    bool interleavedChroma = true;                    ///< NV12, else three planes
    bool deblock = true;
    int deblockAlpha = 0, deblockBeta = 0;  ///< -6 to 6
    int chromaQpOffset = 0;                 ///< -12 to 12
    bool constrainedIntra = false;
    std::optional<ColourDescription> colour;
};

/// The planes of a 4:2:0 picture: Y, Cb and Cr, or Y and interleaved CbCr. Strides in bytes.
struct Picture {
    std::array<const uint8_t*, 3> planes;
    std::array<int, 3> strides;
};

struct FrameRequest {
    bool keyFrame;
    int quantiser;  ///< 0 to 51; counts when there is no rate control
};

struct EncodedFrame {
    size_t bytes;
    bool keyFrame;
    int slices;
};

using Bytes = std::vector<uint8_t>;

/// H.264 (baseline) as the board's codec makes it: a picture goes in, its access unit comes out.
///
/// The access unit holds slices and nothing else, each with its start code: one slice (as many as `threads`
/// with more than one). The parameter sets stand apart and never appear in the stream. No frame refers to a
/// later one. Equal pictures and requests give equal bytes.
///
/// Threads: one at a time.
/// Errors:  open() gives null, encode() nothing; x264's own words are not kept.
class Encoder {
public:
    static std::unique_ptr<Encoder> open(const EncoderSettings& settings);

    /// The sequence and the picture parameter set, start codes included.
    const Bytes& sequenceParameters() const { return sequenceParameters_; }
    const Bytes& pictureParameters() const { return pictureParameters_; }

    /// Writes the picture's access unit to `output`. Nothing when it does not fit: the stream then has a gap
    /// that only a key frame closes. The picture is read during the call only.
    std::optional<EncodedFrame> encode(const Picture& picture, const FrameRequest& request, uint8_t* output,
                                       size_t capacity);

private:
    struct Closer {
        void operator()(x264_t* encoder) const;
    };

    Encoder(x264_t* encoder, const EncoderSettings& settings);
    bool fetchParameterSets();

    std::unique_ptr<x264_t, Closer> encoder_;
    bool interleavedChroma_;
    bool rateControlled_;
    int64_t frameNumber_ = 0;
    Bytes sequenceParameters_, pictureParameters_;
};

}  // namespace codec
