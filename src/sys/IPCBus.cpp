#include "sys/IPCBus.h"

#include <algorithm>
#include <iterator>
#include <string>

namespace {

constexpr u_int8_t kStartedPayload = 0xFF;

enum StatusFlag : unsigned int {
    kVmmAttached = 1U << 0U,
    kCanRecord = 1U << 1U,
    kRecording = 1U << 2U,
    kPlaybackDone = 1U << 7U,
};

u_int8_t statusFlags(const SysData::Media& media)
{
    unsigned int flags = 0;
    flags |= media.cam.isVMMAttached ? kVmmAttached : 0U;
    flags |= media.cam.canRecord ? kCanRecord : 0U;
    flags |= media.cam.isRecording ? kRecording : 0U;
    flags |= media.video.playbackDone ? kPlaybackDone : 0U;
    return static_cast<u_int8_t>(flags);
}

/// The protocol's own mapping: two codes and a default.
u_int32_t bitrateKbps(u_int8_t code)
{
    constexpr u_int32_t kLow = 1000;
    constexpr u_int32_t kMedium = 2000;
    constexpr u_int32_t kHigh = 4000;
    return code == 1 ? kMedium : code == 2 ? kHigh : kLow;
}

/// The text from `data[first]` to its terminator, or to the packet's end when the sender left that out.
std::string textFrom(const IPCQ_PACKET& packet, std::size_t first)
{
    const auto begin = std::next(std::begin(packet.data), static_cast<std::ptrdiff_t>(first));
    return std::string(begin, std::find(begin, std::end(packet.data), 0));
}

}  // namespace

void IPCBus::rx(const IPCQ_PACKET& packet)
{
    switch (packet.id) {
        case MSG_STATE:
            requestState(packet);
            break;
        case MSG_CHANNELS:
            selectChannels(packet, 0);
            sys->media.changeChannels = true;
            break;
        case MSG_BITRATE:
            sys->media.cam.cfgBitrate = bitrateKbps(packet.data[0]);
            sys->media.cfgChanged = true;
            break;
        default:
            break;
    }
}

void IPCBus::requestState(const IPCQ_PACKET& packet)
{
    const auto requested = static_cast<SysData::MM_STATE>(packet.data[0]);
    sys->media.reqState = requested;
    if (requested == SysData::MMS_VIDEOPLAY) {
        sys->media.video.playback = textFrom(packet, 1);
        sys->media.video.playbackDone = false;
    } else {
        selectChannels(packet, 1);
    }
    sys->media.changeState = true;
}

void IPCBus::selectChannels(const IPCQ_PACKET& packet, std::size_t first)
{
    for (std::size_t slot = 0; slot < SysData::kChannels; ++slot) {
        sys->media.cam.channels[slot] = packet.data[first + slot];
    }
}

void IPCBus::tx(u_int8_t id)
{
    switch (id) {
        case MSG_STARTED:
            sendStarted();
            break;
        case MSG_STATUS:
            sendStatus();
            break;
        default:
            break;
    }
}

void IPCBus::sendStarted()
{
    IPCQ_PACKET packet = {};
    packet.id = MSG_STARTED;
    packet.len = 1;
    packet.data[0] = kStartedPayload;
    bus->tx(packet);  // nobody listening yet is no failure
}

void IPCBus::sendStatus()
{
    const SysData::Media& media = sys->media;
    IPCQ_PACKET packet = {};
    packet.id = MSG_STATUS;
    std::size_t used = 0;
    packet.data[used++] = media.state.load();
    for (const SharedWord<u_int8_t>& status : media.cam.channelStatus) {
        packet.data[used++] = status;
    }
    packet.data[used++] = statusFlags(media);
    packet.len = static_cast<u_int8_t>(used);
    bus->tx(packet);  // the next report comes in 100 ms
}
