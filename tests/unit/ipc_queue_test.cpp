#include "drivers/ipc_queue.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <mqueue.h>
#include <pthread.h>
#include <sys/stat.h>

#include <atomic>
#include <csignal>
#include <memory>
#include <string>
#include <thread>
#include <utility>

#include "OwnQueues.h"
#include "Stdout.h"
#include "Wait.h"

namespace {

using support::waitUntil;

constexpr long kQueueLength = 10;
constexpr long kLongestFrame = 106;

/// Two queues of this test's own; the test holds the other side of each.
class IpcQueue : public testing::Test {
protected:
    std::unique_ptr<ipc_queue> connect(bool serverMode = false)
    {
        auto endpoint = std::make_unique<ipc_queue>(rx_.c_str(), tx_.c_str(), serverMode, packets_);
        toEndpoint_ = mq_open(rx_.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
        fromEndpoint_ = mq_open(tx_.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
        return endpoint;
    }

    std::unique_ptr<ipc_queue> listen()
    {
        auto endpoint = connect();
        endpoint->start();
        return endpoint;
    }

    void send(const std::string& frame) const
    {
        ASSERT_TRUE(waitUntil(
            [&] { return mq_send(toEndpoint_, frame.data(), frame.size(), 0) == 0 || errno != EAGAIN; }));
    }

    /// The next frame that the endpoint sent; empty when there is none.
    std::string sent() const
    {
        std::string frame(kLongestFrame, '\0');
        const ssize_t length = mq_receive(fromEndpoint_, frame.data(), frame.size(), nullptr);
        frame.resize(length < 0 ? 0 : static_cast<size_t>(length));
        return frame;
    }

    IPCQ_PACKET received()
    {
        IPCQ_PACKET packet;
        EXPECT_TRUE(waitUntil([&] { return packets_.pop(packet); }));
        return packet;
    }

    static long waiting(mqd_t queue)
    {
        mq_attr attributes = {};
        mq_getattr(queue, &attributes);
        return attributes.mq_curmsgs;
    }

    unit::OwnQueues queues_;
    const std::string& rx_ = queues_.rx;
    const std::string& tx_ = queues_.tx;
    SharedQueue<IPCQ_PACKET> packets_;
    mqd_t toEndpoint_ = -1;
    mqd_t fromEndpoint_ = -1;
};

std::string payload(size_t length)
{
    std::string bytes;
    for (size_t at = 0; at < length; ++at) {
        bytes += static_cast<char>(at + 1);
    }
    return bytes;
}

IPCQ_PACKET packetOf(uint8_t id, uint8_t len)
{
    IPCQ_PACKET packet;
    packet.id = id;
    packet.len = len;
    payload(IPCQ_PACKET::kDataSize).copy(reinterpret_cast<char*>(packet.data), IPCQ_PACKET::kDataSize);
    return packet;
}

TEST_F(IpcQueue, SendsFramesOfAnotherLayoutOrLength)
{
    const auto endpoint = connect();
    const std::pair<uint8_t, std::string> cases[] = {
        {0, std::string("MB\x10\0\r\n", 6)},
        {3, "MB\x10\x03\x01\x02\x03\r\n"},
        {100, "MB\x10\x64" + payload(100) + "\r\n"},
        {150, "MB\x10\x96" + payload(100) + "\r\n"},  // the length byte stays, the payload ends
    };
    for (const auto& [length, frame] : cases) {
        ASSERT_TRUE(endpoint->tx(packetOf(16, length)));
        EXPECT_EQ(sent(), frame);
    }
}

TEST_F(IpcQueue, ReceivesAnotherPacketThanWasSentOrBytesThatNeverArrived)
{
    struct Case {
        std::string frame;
        int id, length;
        std::string data;  // followed by zeros
    };
    const Case cases[] = {
        {"MB\x15\x96" + payload(100) + "\r\n", 21, 150, payload(100)},
        {std::string("MB\x12\0\r\n", 6), 18, 0, ""},
        {"MB\x13\x04" + payload(4) + "\r\n", 19, 4, payload(4)},
        {"xy\x14\x01\x02\r\n", 20, 1, "\x02"},                  // whatever stands for 'M' and 'B'
        {"MB\x13\x40\x01\x02\r\n", 19, 64, payload(2)},         // announces 64, brings 2
        {"MB\x12\x02\x01\x02\x03\x04\r\n", 18, 2, payload(2)},  // announces 2, brings 4
    };
    const auto endpoint = listen();
    for (const Case& one : cases) {
        send(one.frame);
        const IPCQ_PACKET packet = received();
        EXPECT_EQ(packet.id, one.id);
        EXPECT_EQ(packet.len, one.length);
        EXPECT_EQ(std::string(std::begin(packet.data), std::end(packet.data)),
                  one.data + std::string(IPCQ_PACKET::kDataSize - one.data.size(), '\0'));
    }
}

TEST_F(IpcQueue, AcceptsFramesWithoutTheirTrailerOrStopsAtThem)
{
    const auto endpoint = listen();
    for (const char* broken : {"", "M", "\n", "\r\n", "M\r\n", "MB\r\n", "MB\x12\r\n", "MB\x12\x01\x01\n\r",
                               "MB\x12\x01\x01\r", "MB\x12\x01\x01 \n", "MB\x12\x01\x01\r "}) {
        send(broken);
    }
    send("MB\x14\x01\x01\r\n");
    EXPECT_EQ(received().id, 20) << "the only good one";
    EXPECT_TRUE(packets_.empty());
}

TEST_F(IpcQueue, MemoryGrowsWithoutEndWhenNobodyTakesPackets)
{
    constexpr size_t kMostWaiting = 65'536;
    for (size_t i = 1; i < kMostWaiting; ++i) {
        packets_.push({});
    }
    const auto endpoint = listen();
    send("MB\x14\x01\x01\r\n");
    send("MB\x15\x01\x01\r\n");
    ASSERT_TRUE(waitUntil([&] { return packets_.size() >= kMostWaiting; }));
    EXPECT_EQ(waiting(toEndpoint_), 1);

    IPCQ_PACKET packet;
    while (packets_.pop(packet) && packet.id == 0) {
    }
    EXPECT_EQ(packet.id, 20);
    EXPECT_EQ(received().id, 21) << "what waited is not lost";
}

TEST_F(IpcQueue, MakesQueuesOfAnotherSizeOrMode)
{
    const mode_t mask = umask(0);
    const auto endpoint = connect();
    umask(mask);
    ASSERT_TRUE(endpoint->isConnected());
    for (const mqd_t queue : {toEndpoint_, fromEndpoint_}) {
        mq_attr attributes = {};
        ASSERT_EQ(mq_getattr(queue, &attributes), 0);
        EXPECT_EQ(attributes.mq_maxmsg, kQueueLength);
        EXPECT_EQ(attributes.mq_msgsize, kLongestFrame);
        struct stat status = {};
        ASSERT_EQ(fstat(queue, &status), 0);
        EXPECT_EQ(status.st_mode & 0777, 0662U);
    }
}

TEST_F(IpcQueue, ClaimsAConnectionWithoutBothQueues)
{
    const unit::Stdout output;
    ipc_queue noReceive("no slash", tx_.c_str(), false, packets_);
    EXPECT_FALSE(noReceive.isConnected());
    EXPECT_EQ(output.text(), "Could not open connection to RX message queue\n");
    EXPECT_EQ(mq_open(tx_.c_str(), O_RDONLY | O_CLOEXEC), -1) << "the send queue is not tried any more";

    ipc_queue noSend(rx_.c_str(), "no slash", false, packets_);
    EXPECT_FALSE(noSend.isConnected());
    EXPECT_EQ(
        output.text(),
        "Could not open connection to RX message queue\nCould not open connection to TX message queue\n");
    EXPECT_FALSE(noSend.tx(packetOf(16, 1)));
    noSend.start();  // and it ends
}

TEST_F(IpcQueue, ServerGoesOnWithQueuesOfAFormerRunOrNeedsThem)
{
    const std::string complaints = "Could not unlink RX queue\nCould not unlink RX queue\n";
    const unit::Stdout output;
    EXPECT_TRUE(connect(true)->isConnected());
    EXPECT_EQ(output.text(), complaints) << "one for each queue";
    queues_.closeAll();
    for (const std::string& name : {rx_, tx_}) {
        const mqd_t former = mq_open(name.c_str(), O_WRONLY | O_CLOEXEC);
        EXPECT_EQ(mq_send(former, "old", 3, 0), 0);
        mq_close(former);
    }
    const auto endpoint = connect(true);
    EXPECT_EQ(output.text(), complaints);
    ASSERT_TRUE(endpoint->tx(packetOf(16, 0)));
    EXPECT_EQ(sent().size(), 6U) << "the old frame came first";
    EXPECT_EQ(waiting(toEndpoint_), 0);
}

TEST_F(IpcQueue, TakesFramesAfterItsEndOrRemovesTheQueues)
{
    listen().reset();
    ASSERT_EQ(mq_send(toEndpoint_, "MB\x14\x01\x01\r\n", 7, 0), 0);
    EXPECT_EQ(waiting(toEndpoint_), 1);
    EXPECT_TRUE(packets_.empty());
    queues_.closeAll();
    for (const std::string& name : {rx_, tx_}) {
        const mqd_t queue = mq_open(name.c_str(), O_RDONLY | O_CLOEXEC);
        EXPECT_NE(queue, -1) << name;
        mq_close(queue);
    }
}

TEST_F(IpcQueue, DropsAFrameThatFindsTheQueueFullWhenASignalComes)
{
    struct sigaction action = {};
    action.sa_handler = [](int) {};  // no SA_RESTART: the call returns
    ASSERT_EQ(sigaction(SIGUSR1, &action, nullptr), 0);
    const auto endpoint = connect();
    std::atomic<int> tried{0};
    std::atomic<int> failed{0};
    std::thread sender([&] {
        for (long frame = 0; frame <= kQueueLength; ++frame) {
            failed += endpoint->tx(packetOf(1, 6)) ? 0 : 1;
            ++tried;
        }
    });
    EXPECT_TRUE(waitUntil([&] { return tried == kQueueLength; }));
    int signalsLeft = 16;  // the first ones may come before the call
    EXPECT_TRUE(waitUntil([&] {
        pthread_kill(sender.native_handle(), SIGUSR1);
        return --signalsLeft == 0 || failed > 0;
    }));
    EXPECT_EQ(sent().size(), 12U);
    sender.join();
    EXPECT_EQ(failed, 0);
    EXPECT_EQ(waiting(fromEndpoint_), kQueueLength);
}

}  // namespace
