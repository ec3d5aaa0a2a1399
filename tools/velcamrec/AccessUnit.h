#pragma once

#include <optional>

#include "FileWindow.h"

namespace recording {

/// What the bytes of one frame are, as far as the byte stream format of H.264 tells without decoding.
struct AccessUnit {
    enum class Fault {
        kNone,
        kNoStartCode,  ///< does not begin with a start code
        kZeros,        ///< a run of zeros that no encoder writes
        kPattern,      ///< bytes that the format forbids inside a unit, or a unit of no known type
        kNoPicture     ///< no slice of a picture
    };

    Fault fault = Fault::kNone;
    size_t faultAt = 0;     ///< of the first byte that breaks a rule
    size_t codecBytes = 0;  ///< of the parameter sets in front, with their start codes; all when alone
    bool parameterSets = false;
    bool keyFrame = false;
    bool picture = false;
    size_t bytes = 0;  ///< without the zeros at the end
};

enum class Extent {
    kFront,  ///< up to the picture's first slice: what kind of frame it is
    kAll     ///< every byte
};

/// What the daemon's writer puts in front of a session's first frame has at most so many bytes.
constexpr size_t kMostCodecBytes = 80;

/// Judges a frame; parameter sets without a picture are no fault when they are all that there is. With kFront
/// nothing is said about `bytes`, and `picture` stays false when the data given end before the first slice.
AccessUnit examine(Bytes data, Extent extent);

/// Whether a frame may begin with these bytes: a start code and a unit of a known type.
bool beginsFrame(Bytes data);

/// How many bytes beginsFrame() looks at.
constexpr size_t kFrontBytes = 5;

}  // namespace recording
