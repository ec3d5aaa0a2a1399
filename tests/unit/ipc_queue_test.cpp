#include "drivers/ipc_queue.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <mqueue.h>
#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <filesystem>
#include <memory>
#include <string>
#include <system_error>

#include "Stdout.h"
#include "Wait.h"
#include "types/CancelWindow.h"

namespace {

using support::waitUntil;

constexpr long kQueueLength = 10;
constexpr long kLongestFrame = 106;
constexpr int kDescriptors = 256;  // more than these tests ever have open

/// Two queues of this test's own; the test holds the other side of each.
class IpcQueue : public testing::Test {
protected:
    void TearDown() override
    {
        closeOurs();
        closeWhatTheEndpointLeftOpen();
        mq_unlink(rx_.c_str());
        mq_unlink(tx_.c_str());
    }

    /// All queues of a user share a limit of memory, open ones without a name too.
    void closeWhatTheEndpointLeftOpen() const
    {
        for (int descriptor = 0; descriptor < kDescriptors; ++descriptor) {
            std::error_code none;
            const auto target =
                std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(descriptor), none).string();
            if (target == rx_ || target == tx_) {
                mq_close(descriptor);
            }
        }
    }

    void closeOurs()
    {
        for (mqd_t* queue : {&toEndpoint_, &fromEndpoint_}) {
            if (*queue != -1) {
                mq_close(*queue);
                *queue = -1;
            }
        }
    }

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

    /// A queue that somebody else made, with larger messages and one of them waiting.
    static void makeForeignQueue(const std::string& name)
    {
        mq_attr attributes = {};
        attributes.mq_maxmsg = 2;
        attributes.mq_msgsize = 2 * kLongestFrame;
        const mqd_t queue = mq_open(name.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600, &attributes);
        ASSERT_NE(queue, -1);
        EXPECT_EQ(mq_send(queue, "old", 3, 0), 0);
        mq_close(queue);
    }

    static std::string uniqueName(const char* end)
    {
        static std::atomic<int> counter{0};
        return "/velcam-endpoint-test-" + std::to_string(getpid()) + "-" + std::to_string(counter++) + end;
    }

    std::string rx_ = uniqueName("-rx");
    std::string tx_ = uniqueName("-tx");
    SharedQueue<IPCQ_PACKET> packets_;
    mqd_t toEndpoint_ = -1;
    mqd_t fromEndpoint_ = -1;
};

IPCQ_PACKET packetOf(uint8_t id, uint8_t len)
{
    IPCQ_PACKET packet;
    packet.id = id;
    packet.len = len;
    for (size_t at = 0; at < IPCQ_PACKET::kDataSize; ++at) {
        packet.data[at] = static_cast<uint8_t>(at + 1);
    }
    return packet;
}

std::string payload(size_t length)
{
    std::string bytes;
    for (size_t at = 0; at < length; ++at) {
        bytes += static_cast<char>(at + 1);
    }
    return bytes;
}

std::string dataOf(const IPCQ_PACKET& packet)
{
    return {std::begin(packet.data), std::end(packet.data)};
}

std::string zeros(size_t length)
{
    return std::string(length, '\0');
}

TEST_F(IpcQueue, SendsFramesOfAnotherLayoutOrLength)
{
    const auto endpoint = connect();
    ASSERT_TRUE(endpoint->tx(packetOf(16, 0)));
    EXPECT_EQ(sent(), std::string("MB\x10\0\r\n", 6));
    ASSERT_TRUE(endpoint->tx(packetOf(17, 3)));
    EXPECT_EQ(sent(), "MB\x11\x03\x01\x02\x03\r\n");
    ASSERT_TRUE(endpoint->tx(packetOf(18, 100)));
    EXPECT_EQ(sent(), "MB\x12\x64" + payload(100) + "\r\n");
    ASSERT_TRUE(endpoint->tx(packetOf(19, 150)));
    EXPECT_EQ(sent(), "MB\x13\x96" + payload(100) + "\r\n") << "the length byte stays, the payload ends";
}

TEST_F(IpcQueue, ReceivesAnotherPacketThanWasSent)
{
    const auto endpoint = listen();
    send(std::string("MB\x12\0\r\n", 6));
    send("MB\x13\x04" + payload(4) + "\r\n");
    send("xy\x14\x01\x02\r\n");  // whatever stands for 'M' and 'B'
    send("MB\x15\x96" + payload(100) + "\r\n");

    const IPCQ_PACKET empty = received();
    EXPECT_EQ(empty.id, 18);
    EXPECT_EQ(empty.len, 0);
    EXPECT_EQ(dataOf(empty), zeros(100));
    const IPCQ_PACKET four = received();
    EXPECT_EQ(four.id, 19);
    EXPECT_EQ(four.len, 4);
    EXPECT_EQ(dataOf(four), payload(4) + zeros(96));
    EXPECT_EQ(received().id, 20);
    const IPCQ_PACKET tooLong = received();
    EXPECT_EQ(tooLong.len, 150);
    EXPECT_EQ(dataOf(tooLong), payload(100));
}

TEST_F(IpcQueue, TakesBytesThatNeverArrivedForPayload)
{
    const auto endpoint = listen();
    send("MB\x14\x40" + payload(64) + "\r\n");  // leaves its bytes in any buffer that is used again
    send("MB\x13\x40\x01\x02\r\n");             // announces 64, brings 2
    send("MB\x12\x02\x01\x02\x03\x04\r\n");     // announces 2, brings 4
    const IPCQ_PACKET whole = received();
    EXPECT_EQ(dataOf(whole), payload(whole.len) + zeros(IPCQ_PACKET::kDataSize - whole.len));
    const IPCQ_PACKET cut = received();
    EXPECT_EQ(cut.len, whole.len);
    EXPECT_EQ(dataOf(cut), payload(2) + zeros(98));
    EXPECT_EQ(dataOf(received()), payload(2) + zeros(98));
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
    ASSERT_TRUE(waitUntil([&] { return packets_.size() == kMostWaiting; }));
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
}

TEST_F(IpcQueue, ServerGoesOnWithQueuesOfAFormerRun)
{
    makeForeignQueue(rx_);
    makeForeignQueue(tx_);
    const unit::Stdout output;
    const auto endpoint = connect(true);
    EXPECT_EQ(output.text(), "");
    ASSERT_TRUE(endpoint->tx(packetOf(16, 0)));
    EXPECT_EQ(sent().size(), 6U) << "the old frame came first";
    EXPECT_EQ(waiting(toEndpoint_), 0);
}

TEST_F(IpcQueue, ServerGivesUpWhenThereIsNothingToRemove)
{
    const unit::Stdout output;
    const auto endpoint = connect(true);
    EXPECT_EQ(output.text(), "Could not unlink RX queue\nCould not unlink RX queue\n")
        << "one for each queue";
    EXPECT_TRUE(endpoint->isConnected());
}

TEST_F(IpcQueue, ClientReplacesAQueueOfTheOtherSides)
{
    makeForeignQueue(rx_);
    auto endpoint = listen();
    ASSERT_TRUE(endpoint->isConnected());
    EXPECT_EQ(waiting(toEndpoint_), 1) << "still the other side's";
    endpoint->sendHalt();
    endpoint.reset();  // its thread fails to receive again and again: the frames are longer than ours
    EXPECT_TRUE(packets_.empty());
}

TEST_F(IpcQueue, HangsAtTheEndWhileNothingArrives)
{
    auto endpoint = listen();
    send("MB\x14\x01\x01\r\n");
    received();  // so the thread runs
    endpoint->stop();
    endpoint.reset();

    ipc_queue unconnected("no slash", tx_.c_str(), false, packets_);
    unconnected.start();
}

TEST_F(IpcQueue, TakesFramesAfterItsEndOrRemovesTheQueues)
{
    listen().reset();
    ASSERT_EQ(mq_send(toEndpoint_, "MB\x14\x01\x01\r\n", 7, 0), 0);
    EXPECT_EQ(waiting(toEndpoint_), 1);
    EXPECT_TRUE(packets_.empty());
    closeOurs();
    for (const std::string& name : {rx_, tx_}) {
        const mqd_t queue = mq_open(name.c_str(), O_RDONLY | O_CLOEXEC);
        EXPECT_NE(queue, -1) << name;
        mq_close(queue);
    }
}

/// A thread that sends until the queue is full, and then one frame more.
class Sender {
public:
    explicit Sender(ipc_queue& endpoint) : endpoint_(endpoint)
    {
        pthread_create(&thread_, nullptr, &body, this);
    }
    ~Sender() { pthread_join(thread_, &result_); }
    Sender(const Sender&) = delete;
    Sender& operator=(const Sender&) = delete;

    void waitForTheLastFrame() const
    {
        ASSERT_TRUE(waitUntil([&] { return sent == kQueueLength; }));
    }
    pthread_t thread() const { return thread_; }

    std::atomic<int> sent{0};
    std::atomic<int> failed{0};

private:
    static void* body(void* object)
    {
        const CancelShield shield;
        auto* sender = static_cast<Sender*>(object);
        for (long frame = 0; frame <= kQueueLength; ++frame) {
            ++(sender->endpoint_.tx(packetOf(1, 6)) ? sender->sent : sender->failed);
        }
        return nullptr;
    }

    ipc_queue& endpoint_;
    pthread_t thread_ = {};
    void* result_ = nullptr;
};

TEST_F(IpcQueue, DropsAFrameThatFindsTheQueueFull)
{
    const auto endpoint = connect();
    Sender sender(*endpoint);
    sender.waitForTheLastFrame();
    EXPECT_EQ(sent().size(), 12U);
    EXPECT_TRUE(waitUntil([&] { return sender.sent + sender.failed == kQueueLength + 1; }));
    EXPECT_EQ(sender.failed, 0);
}

TEST_F(IpcQueue, DropsAFrameWhenASignalComesWhileTheQueueIsFull)
{
    struct sigaction action = {};
    action.sa_handler = [](int) {};  // no SA_RESTART: the call returns
    struct sigaction former = {};
    ASSERT_EQ(sigaction(SIGUSR1, &action, &former), 0);

    const auto endpoint = connect();
    {
        Sender sender(*endpoint);
        sender.waitForTheLastFrame();
        int signalsLeft = 16;  // the first ones may come before the call
        EXPECT_TRUE(waitUntil([&] {
            pthread_kill(sender.thread(), SIGUSR1);
            return --signalsLeft == 0 || sender.failed > 0;
        }));
        EXPECT_EQ(sent().size(), 12U);
        EXPECT_TRUE(waitUntil([&] { return sender.sent + sender.failed == kQueueLength + 1; }));
        EXPECT_EQ(sender.failed, 0);
    }
    sigaction(SIGUSR1, &former, nullptr);
}

TEST_F(IpcQueue, CannotBeCancelledWhileTheQueueIsFull)
{
    const auto endpoint = connect();
    {
        Sender sender(*endpoint);
        sender.waitForTheLastFrame();
        pthread_cancel(sender.thread());
    }  // joins
    EXPECT_EQ(waiting(fromEndpoint_), kQueueLength);
}

}  // namespace
