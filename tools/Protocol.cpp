#include "Protocol.h"

#include <algorithm>
#include <cstdio>

namespace control {
namespace {

constexpr uint8_t kMark[] = {'M', 'B'};
constexpr uint8_t kTrailer[] = {'\r', '\n'};
constexpr size_t kHeaderBytes = 4;
constexpr size_t kStatusBytes = 6;
constexpr uint8_t kUnchecked = 0xFF;

constexpr uint8_t kFlagAttached = 0x01;
constexpr uint8_t kFlagCanRecord = 0x02;
constexpr uint8_t kFlagRecording = 0x04;
constexpr uint8_t kFlagPlaybackDone = 0x80;

struct StateName {
    MediaState state;
    std::string_view name;
};
constexpr std::array kStates{
    StateName{MediaState::kIdle, "idle"},         StateName{MediaState::kPlay, "play"},
    StateName{MediaState::kCamera, "camera"},     StateName{MediaState::kBackup, "backup"},
    StateName{MediaState::kTransfer, "transfer"},
};

struct Bitrate {
    unsigned kilobitsPerSecond;
    uint8_t code;
};
/// The daemon takes any other code for 1000 too; 0 is the one to send.
constexpr std::array kBitrates{Bitrate{1000, 0}, Bitrate{2000, 1}, Bitrate{4000, 2}};

uint8_t idOf(MessageId id)
{
    return static_cast<uint8_t>(id);
}

std::string hexByte(uint8_t value)
{
    std::array<char, 8> text{};
    std::snprintf(text.data(), text.size(), "0x%02x", value);
    return text.data();
}

std::string hexBytes(const std::vector<uint8_t>& bytes)
{
    std::string text;
    for (const uint8_t byte : bytes) {
        text += (text.empty() ? "" : " ") + hexByte(byte).substr(2);
    }
    return text;
}

std::string stateText(uint8_t state)
{
    const auto name = stateName(state);
    return name ? std::string(*name) : "unknown(" + std::to_string(state) + ")";
}

std::string channelText(uint8_t status)
{
    if (status == 0) {
        return "good";
    }
    return status == kUnchecked ? "unchecked" : "fault:" + hexByte(status);
}

template <typename Iterator>
std::string numbers(Iterator first, Iterator last)
{
    std::string text;
    for (; first != last; ++first) {
        text += " " + std::to_string(*first);
    }
    return text;
}

std::string describeState(const std::vector<uint8_t>& payload)
{
    if (payload.empty()) {
        return "without a state";
    }
    const std::string text = stateText(payload[0]);
    const auto rest = payload.begin() + 1;
    if (payload[0] == static_cast<uint8_t>(MediaState::kPlay)) {
        return text + " \"" + std::string(rest, std::find(rest, payload.end(), 0)) + "\"";
    }
    return text + " channels" + numbers(rest, payload.end());
}

std::string describeBitrate(const std::vector<uint8_t>& payload)
{
    if (payload.empty()) {
        return "without a code";
    }
    const auto* found = std::find_if(kBitrates.begin(), kBitrates.end(),
                                     [&](const Bitrate& entry) { return entry.code == payload[0]; });
    const unsigned rate =
        found == kBitrates.end() ? kBitrates.front().kilobitsPerSecond : found->kilobitsPerSecond;
    return std::to_string(rate) + " kbit/s";
}

std::string describeStatus(const std::vector<uint8_t>& payload)
{
    const auto status = readStatus({idOf(MessageId::kStatus), payload});
    return status ? describe(*status) : "incomplete: " + hexBytes(payload);
}

/// What is known of a message: its name and how its payload reads.
struct Message {
    MessageId id;
    const char* name;
    std::string (*describe)(const std::vector<uint8_t>& payload);
};
constexpr std::array kMessages{
    Message{MessageId::kStarted, "started", hexBytes},
    Message{MessageId::kStatus, "status", describeStatus},
    Message{MessageId::kState, "state request", describeState},
    Message{MessageId::kChannels, "channel selection",
            [](const std::vector<uint8_t>& payload) {
                return "channels" + numbers(payload.begin(), payload.end());
            }},
    Message{MessageId::kBitrate, "bitrate selection", describeBitrate},
};

}  // namespace

bool operator==(const Status& left, const Status& right)
{
    return left.state == right.state && left.channelStatus == right.channelStatus &&
           left.isVMMAttached == right.isVMMAttached && left.canRecord == right.canRecord &&
           left.isRecording == right.isRecording && left.playbackDone == right.playbackDone;
}

Frame encode(const Packet& packet)
{
    const size_t length = std::min(packet.payload.size(), kPayloadMax);
    Frame frame(std::begin(kMark), std::end(kMark));
    frame.push_back(packet.id);
    frame.push_back(static_cast<uint8_t>(length));
    frame.insert(frame.end(), packet.payload.data(), packet.payload.data() + length);
    frame.insert(frame.end(), std::begin(kTrailer), std::end(kTrailer));
    return frame;
}

std::optional<Packet> decode(const Frame& frame)
{
    if (frame.size() < kFrameMin || frame.size() > kFrameMax) {
        return std::nullopt;
    }
    const auto payload = frame.begin() + kHeaderBytes;
    const auto trailer = frame.end() - std::size(kTrailer);
    const bool wellFormed = std::equal(std::begin(kMark), std::end(kMark), frame.begin()) &&
                            std::equal(std::begin(kTrailer), std::end(kTrailer), trailer) &&
                            frame[3] == trailer - payload;
    if (!wellFormed) {
        return std::nullopt;
    }
    return Packet{frame[2], {payload, trailer}};
}

Packet stateRequest(MediaState state, const Channels& channels)
{
    Packet packet{idOf(MessageId::kState), {static_cast<uint8_t>(state)}};
    packet.payload.insert(packet.payload.end(), channels.begin(), channels.end());
    return packet;
}

std::optional<Packet> playRequest(std::string_view name)
{
    if (name.empty() || name.size() > kNameMax || name.find('\0') != std::string_view::npos) {
        return std::nullopt;
    }
    Packet packet{idOf(MessageId::kState), {static_cast<uint8_t>(MediaState::kPlay)}};
    packet.payload.insert(packet.payload.end(), name.begin(), name.end());
    packet.payload.push_back(0);
    return packet;
}

Packet channelSelection(const Channels& channels)
{
    return {idOf(MessageId::kChannels), {channels.begin(), channels.end()}};
}

std::optional<Packet> bitrateSelection(unsigned kilobitsPerSecond)
{
    const auto* found = std::find_if(kBitrates.begin(), kBitrates.end(), [&](const Bitrate& entry) {
        return entry.kilobitsPerSecond == kilobitsPerSecond;
    });
    if (found == kBitrates.end()) {
        return std::nullopt;
    }
    return Packet{idOf(MessageId::kBitrate), {found->code}};
}

std::optional<Status> readStatus(const Packet& packet)
{
    if (packet.id != idOf(MessageId::kStatus) || packet.payload.size() < kStatusBytes) {
        return std::nullopt;
    }
    Status status;
    status.state = packet.payload[0];
    std::copy_n(packet.payload.begin() + 1, status.channelStatus.size(), status.channelStatus.begin());
    const uint8_t flags = packet.payload[kStatusBytes - 1];
    status.isVMMAttached = (flags & kFlagAttached) != 0;
    status.canRecord = (flags & kFlagCanRecord) != 0;
    status.isRecording = (flags & kFlagRecording) != 0;
    status.playbackDone = (flags & kFlagPlaybackDone) != 0;
    return status;
}

std::optional<std::string_view> stateName(uint8_t state)
{
    const auto* found = std::find_if(kStates.begin(), kStates.end(), [&](const StateName& entry) {
        return static_cast<uint8_t>(entry.state) == state;
    });
    return found == kStates.end() ? std::nullopt : std::optional(found->name);
}

std::optional<MediaState> stateByName(std::string_view name)
{
    const auto* found = std::find_if(kStates.begin(), kStates.end(),
                                     [&](const StateName& entry) { return entry.name == name; });
    return found == kStates.end() ? std::nullopt : std::optional(found->state);
}

std::string describe(const Status& status)
{
    std::string text = "state " + stateText(status.state) + ", cameras";
    for (const uint8_t channel : status.channelStatus) {
        text += " " + channelText(channel);
    }
    text += status.isVMMAttached ? ", display attached" : ", display not attached";
    text += status.isRecording ? ", recording" : ", not recording";
    text += status.canRecord ? "" : " (recording directory not mounted)";
    text += status.playbackDone ? ", playback done" : "";
    return text;
}

std::string describe(const Frame& frame)
{
    const auto packet = decode(frame);
    if (!packet) {
        return "malformed frame of " + std::to_string(frame.size()) + " bytes: " + hexBytes(frame);
    }
    const std::string id = "id " + std::to_string(packet->id);
    const auto* found = std::find_if(kMessages.begin(), kMessages.end(),
                                     [&](const Message& entry) { return idOf(entry.id) == packet->id; });
    if (found == kMessages.end()) {
        return id + " unknown: " + hexBytes(packet->payload);
    }
    return id + " " + found->name + ": " + found->describe(packet->payload);
}

nlohmann::json toJson(const Status& status)
{
    return {{"state", stateText(status.state)},      {"stateCode", status.state},
            {"channelStatus", status.channelStatus}, {"isVMMAttached", status.isVMMAttached},
            {"canRecord", status.canRecord},         {"isRecording", status.isRecording},
            {"playbackDone", status.playbackDone}};
}

}  // namespace control
