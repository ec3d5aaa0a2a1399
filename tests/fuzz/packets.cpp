// What comes on the request queue, through the endpoint to the requests, and the status that goes back. The
// queues are this file's own, so that a frame costs no switch between threads.
#include <mqueue.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "Input.h"
#include "Protocol.h"
#include "Targets.h"
#include "drivers/ipc_queue.h"
#include "sys/IPCBus.h"

namespace {

constexpr mqd_t kQueue = 1000;

struct Queues {
    fuzz::Input* frames = nullptr;  // a byte of length before each
    ipc_queue* endpoint = nullptr;
    control::Frame sent;
};
Queues queues;

ssize_t receive(char* buffer, size_t capacity)
{
    if (queues.frames->empty()) {
        queues.endpoint->sendHalt();
        return 0;  // one frame more, which has no trailer
    }
    const std::string_view frame = queues.frames->take(std::min<size_t>(queues.frames->byte(), capacity));
    std::memcpy(buffer, frame.data(), frame.size());
    return static_cast<ssize_t>(frame.size());
}

}  // namespace

extern "C" {

mqd_t mq_open(const char* /*name*/, int /*flags*/, ...)
{
    return kQueue;
}

ssize_t mq_receive(mqd_t /*queue*/, char* buffer, size_t capacity, unsigned int* /*priority*/)
{
    return receive(buffer, capacity);
}

int mq_send(mqd_t /*queue*/, const char* frame, size_t length, unsigned int /*priority*/)
{
    queues.sent.assign(frame, frame + length);
    return 0;
}
}

std::string fuzz::packets(std::string_view input)
{
    Input frames(input);
    SharedQueue<IPCQ_PACKET> received;
    ipc_queue endpoint("/zentcam", "/zentipc", false, received);
    queues = {&frames, &endpoint, {}};
    endpoint.run();

    SysData data;
    IPCBus bus(&data, &endpoint);
    IPCQ_PACKET packet;
    while (received.pop(packet)) {
        bus.rx(packet);
        if (data.media.video.playback.size() >= IPCQ_PACKET::kDataSize) {
            return "a name longer than the packet";
        }
        if (!endpoint.tx(packet) || queues.sent.size() > control::kFrameMax) {
            return "a packet that cannot be sent on";
        }
        static_cast<void>(control::describe(queues.sent));
    }
    data.media.state = data.media.reqState.load();
    bus.tx(IPCBus::MSG_STATUS);
    const auto report = control::decode(queues.sent);
    const auto status = report ? control::readStatus(*report) : std::nullopt;
    return status && status->state == data.media.state.load() ? "" : "a status that nobody understands";
}
