#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// The controller's side of the daemon's messages: what is asked of it and what it reports.
///
/// Threads: any; everything here is a value.
/// Errors:  nothing is thrown; a thing that cannot be said in the protocol, or that does not follow it, gives
///          an empty optional.
namespace control {

constexpr const char* kRequestQueue = "/zentcam";  ///< the daemon receives here
constexpr const char* kStatusQueue = "/zentipc";   ///< the daemon reports here

constexpr size_t kPayloadMax = 100;  ///< bytes
constexpr size_t kFrameMin = 6;      ///< bytes: two marks, id, length, CR, LF
constexpr size_t kFrameMax = kFrameMin + kPayloadMax;
constexpr size_t kNameMax = kPayloadMax - 2;  ///< of a video: after the state, before the closing zero

enum class MessageId : uint8_t { kStarted = 16, kStatus = 17, kState = 18, kChannels = 19, kBitrate = 20 };
enum class MediaState : uint8_t { kIdle = 0, kPlay = 1, kCamera = 2, kBackup = 4, kTransfer = 15 };

/// Camera numbers, 0 for none: what the left and the right pane show, then the inputs in their place when
/// they show nothing.
using Channels = std::array<uint8_t, 4>;
using Frame = std::vector<uint8_t>;

struct Packet {
    uint8_t id = 0;
    std::vector<uint8_t> payload;
};

/// What the daemon reports ten times a second.
struct Status {
    uint8_t state = 0;
    std::array<uint8_t, 4> channelStatus{};  ///< 0 good, 0xFF not checked yet, else a fault code
    bool isVMMAttached = false;
    bool canRecord = false;
    bool isRecording = false;
    bool playbackDone = false;
};

bool operator==(const Status& left, const Status& right);

/// The packet as it travels; a payload above kPayloadMax is cut.
Frame encode(const Packet& packet);
/// Nothing for a frame that breaks the format anywhere: marks, length byte, trailer.
std::optional<Packet> decode(const Frame& frame);

Packet stateRequest(MediaState state, const Channels& channels);
/// Nothing for a name that is empty, too long, or holds a zero.
std::optional<Packet> playRequest(std::string_view name);
Packet channelSelection(const Channels& channels);
/// Nothing for a rate other than 1000, 2000 and 4000 kbit/s.
std::optional<Packet> bitrateSelection(unsigned kilobitsPerSecond);

/// Nothing for a packet that is no complete status report.
std::optional<Status> readStatus(const Packet& packet);

/// "idle", "play", "camera", "backup", "transfer"; nothing for any other value.
std::optional<std::string_view> stateName(uint8_t state);
/// The state that a name stands for, "play" included.
std::optional<MediaState> stateByName(std::string_view name);

/// One line for people, without its end.
std::string describe(const Status& status);
/// One line for any frame of the queues, also for one that breaks the format.
std::string describe(const Frame& frame);
nlohmann::json toJson(const Status& status);

}  // namespace control
