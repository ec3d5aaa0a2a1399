#include "drivers/ipc_queue.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>

#include "lib/interrupted.h"
#include "types/CancelWindow.h"

namespace {

constexpr size_t kPrefixBytes = 4;   // 'M' 'B' id len
constexpr size_t kTrailerBytes = 2;  // CR LF
constexpr size_t kFrameBytes = kPrefixBytes + IPCQ_PACKET::kDataSize + kTrailerBytes;
constexpr long kQueueLength = 10;  // messages
constexpr mode_t kQueueMode = 0662;
constexpr unsigned kMessagePriority = 0;
constexpr useconds_t kRetryPauseUs = 100'000;

/// Packets that may wait to be applied, 6.7 MB. More can only come in a tick while the controller floods the
/// queue and reads no status; then its frames wait where they are, and it with them.
constexpr size_t kMostWaiting = 65'536;

using Frame = std::array<char, kFrameBytes>;

mqd_t openQueue(const char* name, int access)
{
    mq_attr attributes = {};
    attributes.mq_maxmsg = kQueueLength;
    attributes.mq_msgsize = static_cast<long>(kFrameBytes);
    return retryInterrupted(
        [&] { return mq_open(name, access | O_CREAT | O_CLOEXEC, kQueueMode, &attributes); });
}

void removeQueue(const char* name)
{
    if (mq_unlink(name) == -1) {
        std::puts("Could not unlink RX queue");  // said for either queue
    }
}

size_t payloadBytes(const IPCQ_PACKET& packet)
{
    return std::min<size_t>(packet.len, IPCQ_PACKET::kDataSize);
}

/// Fills `frame` and gives its length.
size_t encode(const IPCQ_PACKET& packet, Frame& frame)
{
    char* end = frame.begin();
    *end++ = 'M';
    *end++ = 'B';
    *end++ = static_cast<char>(packet.id);
    *end++ = static_cast<char>(packet.len);
    end = std::copy_n(packet.data, payloadBytes(packet), end);
    *end++ = '\r';
    *end++ = '\n';
    return static_cast<size_t>(end - frame.begin());
}

/// False for a frame without its trailer, or too short to hold an id and a length before it. A payload that
/// ends before `len` leaves the rest of the packet zero.
bool decode(const Frame& frame, size_t length, IPCQ_PACKET& packet)
{
    if (length < kPrefixBytes + kTrailerBytes || frame[length - 2] != '\r' || frame[length - 1] != '\n') {
        return false;
    }
    packet.id = static_cast<uint8_t>(frame[2]);
    packet.len = static_cast<uint8_t>(frame[3]);
    const size_t arrived = length - kPrefixBytes - kTrailerBytes;
    std::copy_n(frame.begin() + kPrefixBytes, std::min(arrived, payloadBytes(packet)), packet.data);
    return true;
}

}  // namespace

ipc_queue::ipc_queue(const char* rxName, const char* txName, bool server, SharedQueue<IPCQ_PACKET>& rxQueue)
    : serverMode(server), pRxQueue(&rxQueue)
{
    if (serverMode) {
        removeQueue(rxName);
        removeQueue(txName);
    }
    connected = openReceiveQueue(rxName) && openSendQueue(txName);
}

ipc_queue::~ipc_queue()
{
    // The queues stay open and in place: the process is about to end, and the other side goes on using them.
    reap();
}

bool ipc_queue::openReceiveQueue(const char* rxName)
{
    rxHandle = openQueue(rxName, O_RDONLY);
    if (rxHandle == -1) {
        std::puts("Could not open connection to RX message queue");
    }
    return rxHandle != -1;
}

bool ipc_queue::openSendQueue(const char* txName)
{
    txHandle = openQueue(txName, O_WRONLY);
    if (txHandle == -1) {
        std::puts("Could not open connection to TX message queue");
    }
    return txHandle != -1;
}

bool ipc_queue::tx(const IPCQ_PACKET& packet)
{
    if (!connected) {
        return false;
    }
    Frame frame = {};
    const size_t length = encode(packet, frame);
    const CancelWindow window;  // a full queue blocks for as long as the other side does not read
    return retryInterrupted([&] { return mq_send(txHandle, frame.data(), length, kMessagePriority); }) != -1;
}

void ipc_queue::run()
{
    const CancelShield shield;
    while (!haltThread) {
        if (!receiveOne()) {
            const CancelWindow window;
            usleep(kRetryPauseUs);
        }
    }
}

/// One frame, good or dropped. False when there is nothing to receive from, or nowhere to put it, now.
bool ipc_queue::receiveOne()
{
    if (!connected || pRxQueue->size() >= kMostWaiting) {
        return false;
    }
    Frame frame = {};
    ssize_t length = -1;
    {
        const CancelWindow window;
        length = retryInterrupted([&] { return mq_receive(rxHandle, frame.data(), frame.size(), nullptr); });
    }
    if (length == -1) {
        return false;
    }
    IPCQ_PACKET packet;
    if (decode(frame, static_cast<size_t>(length), packet)) {
        pRxQueue->push(packet);
    }
    return true;
}
