#pragma once

#include "board/State.h"
#include "codec/Answer.h"
#include "codec/Encoder.h"

namespace codec {

constexpr int kMaxQuantiser = 51;

/// Whether this codec can be opened so: values out of range are invalid, what the virtual board leaves out
/// (other codecs, tiled maps, several slices, the ring buffer, reports) is not supported. Looks at no memory.
Answer check(const EncOpenParam& parameters);

/// The encoder's settings for parameters that check() has accepted. Hints on how a search is to be made
/// (MESearchRange, IntraCostWeight, userGamma, RcIntervalMode, rcIntraQp, intraRefresh) have no counterpart.
EncoderSettings settingsFor(const EncOpenParam& parameters, const board::State& state);

}  // namespace codec
