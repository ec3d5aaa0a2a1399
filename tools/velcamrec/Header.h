#pragma once

#include <array>
#include <cstdint>
#include <optional>

#include "FileWindow.h"

namespace recording {

/// What a recording's header says of it.
struct Format {
    uint32_t width = 0;   ///< pixels
    uint32_t height = 0;  ///< pixels
    uint32_t framesPerSecond = 0;
    uint32_t maxBytesPerSecond = 0;
};

constexpr size_t kHeaderBytes = 792;
using HeaderBytes = std::array<uint8_t, kHeaderBytes>;

/// The format of the daemon's recordings, for one whose own header is lost.
Format usualFormat();

/// The header as the daemon writes it.
HeaderBytes buildHeader(const Format& format);

/// Where in the data a header begins: the first whole one, else the first torn one. (What is left of a torn
/// header can be followed by a whole one.)
std::optional<size_t> findHeader(Bytes data);

/// The four values in the header that begins the data; nothing when one is missing or cannot be.
std::optional<Format> parseFormat(Bytes header);

}  // namespace recording
