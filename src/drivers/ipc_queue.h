#pragma once

#include <mqueue.h>

#include "drivers/IPCQ_PACKET.h"
#include "lib/SharedQueue.h"
#include "types/AThread.h"

/// The endpoint of the message bus: a pair of POSIX message queues, one to receive from and one to send to.
///
/// A frame is 'M' 'B' id len payload CR LF, 6 to 106 bytes; the payload has `len` bytes, but never above 100.
///
/// Threads:  the constructor and start() belong to the owner; run() is the receiver thread and the only
///           producer of the packet queue; tx() is for one thread at a time. Both can be cancelled while they
///           block in the queue, run() also while it pauses before it tries again; nowhere else.
/// Lifetime: the constructor opens both queues (in server mode it removes former ones first); the destructor
///           ends the receiver thread, and leaves the queues open and in place for the other side. The packet
///           queue is not owned and must outlive the endpoint.
/// Errors:   a queue that cannot be opened is named on standard output and leaves the endpoint unconnected
///           for good. Receive errors are silent and tried again after 100 ms; frames without their trailer
///           are dropped. When 65536 packets wait to be taken, no more are received until some are.
class ipc_queue : public AThread {
public:
    ipc_queue(const char* rxName, const char* txName, bool serverMode, SharedQueue<IPCQ_PACKET>& rxQueue);
    ~ipc_queue() override;

    ipc_queue(const ipc_queue&) = delete;
    ipc_queue& operator=(const ipc_queue&) = delete;
    ipc_queue(ipc_queue&&) = delete;
    ipc_queue& operator=(ipc_queue&&) = delete;

    /// Both queues are open.
    bool isConnected() const { return connected; }

    /// Sends one frame; waits while the queue is full. False when not connected or when the queue refuses it.
    bool tx(const IPCQ_PACKET& packet);

    /// Receives until the thread is told to halt.
    void run() override;

private:
    bool openReceiveQueue(const char* rxName);
    bool openSendQueue(const char* txName);
    bool receiveOne();

    mqd_t rxHandle = -1;
    mqd_t txHandle = -1;
    bool connected = false;
    bool serverMode;
    SharedQueue<IPCQ_PACKET>* pRxQueue;
};
