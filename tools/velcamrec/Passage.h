#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "Survey.h"

namespace recording {

/// A run of frames that can be decoded by itself: it begins with a key frame.
struct Passage {
    uint64_t first = 0;                ///< number of its first frame
    uint64_t end = 0;                  ///< number of the frame behind it
    std::vector<uint8_t> codecHeader;  ///< the parameter sets in force at its first frame
    Summary summary;                   ///< of the recording as far as it was walked
};

/// Brings the parameter sets of a session whose first frame the encoder skipped to the next frame: alone they
/// mean nothing to players and other files.
class ParameterSets {
public:
    /// Keeps them for the next frame.
    void keep(Bytes sets);
    /// The frame, behind what was kept unless it has its own; until the next call.
    Bytes bring(Bytes frame, const AccessUnit& unit);

private:
    std::vector<uint8_t> kept_;
    std::vector<uint8_t> joined_;
};

/// Which key frames a passage reaches to.
enum class Widening {
    kBoth,   ///< back to the key frame that `from` builds on, and on to the one at `to` or behind it
    kBefore  ///< only back
};

/// The passage of the frames numbered from `from` up to, without, `to`. Reads the heads of chunks only. False
/// after a message, when there is no such frame or none before it to begin decoding with.
bool findPassage(const std::string& path, uint64_t from, uint64_t to, Widening widening, Passage& passage);

/// Calls back with every frame of the passage, each begun with parameter sets where it is the first. Damaged
/// frames are left out. False when interrupted, when reading fails, or when the callback gives false.
struct PassageFrame {
    Bytes data;  ///< until the callback returns
    uint64_t number = 0;
    bool keyFrame = false;
};
struct PassageResult {
    uint64_t frames = 0;
    uint64_t faults = 0;  ///< places where something is missing
};
using TakeFrame = std::function<bool(const PassageFrame&)>;
bool readPassage(const std::string& path, const std::string& label, const Passage& passage,
                 const TakeFrame& take, PassageResult& result);

/// Frames per second, by the recording's header; nothing after a message, when it cannot be read.
std::optional<uint32_t> recordingRate(const std::string& path);

/// The number of the frame that is shown at a time.
uint64_t frameAt(double seconds, uint32_t framesPerSecond);
/// The number of the first frame that is shown at a time or later.
uint64_t frameBehind(double seconds, uint32_t framesPerSecond);

/// The recording's format, with the picture's size from the stream itself when the header cannot be trusted.
Format trustedFormat(const Summary& summary, Bytes keyFrame);

}  // namespace recording
