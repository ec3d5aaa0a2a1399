#pragma once

#include <sys/types.h>

#include <cstddef>

#include "drivers/ipc_queue.h"
#include "sys/SysData.h"

/// The meaning of the packets: received ones become requests in `SysData`, and what `SysData` says becomes
/// reports.
///
/// Threads:  the system manager's only.
/// Lifetime: owns neither the record nor the endpoint; both outlive it.
/// Errors:   none. Unknown identifiers and failed sends are dropped.
class IPCBus {
public:
    enum MESSAGE_ID : u_int8_t {
        MSG_STARTED = 16,   ///< sent once
        MSG_STATUS = 17,    ///< sent about ten times a second
        MSG_STATE = 18,     ///< received: a media state, then a playback name or four camera numbers
        MSG_CHANNELS = 19,  ///< received: four camera numbers
        MSG_BITRATE = 20,   ///< received: a bitrate code
    };

    IPCBus(SysData* sysData, ipc_queue* endpoint) : sys(sysData), bus(endpoint) {}

    /// Applies one received packet. `len` is not examined: a packet always carries all its data, zeros where
    /// none came.
    void rx(const IPCQ_PACKET& packet);

    /// Sends MSG_STARTED or MSG_STATUS; any other identifier sends nothing. Blocks while the peer's queue is
    /// full, and that wait is a cancellation point.
    void tx(u_int8_t id);

private:
    void requestState(const IPCQ_PACKET& packet);
    void selectChannels(const IPCQ_PACKET& packet, std::size_t first);
    void sendStarted();
    void sendStatus();

    SysData* sys;
    ipc_queue* bus;
};
