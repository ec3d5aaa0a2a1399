#include "sys/IPCBus.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <mqueue.h>

#include <algorithm>
#include <iterator>
#include <string>
#include <utility>
#include <vector>

#include "OwnQueues.h"

namespace {

using Bytes = std::vector<u_int8_t>;

// The protocol's numbers, on purpose not taken from the code under test.
constexpr u_int8_t kStarted = 16;
constexpr u_int8_t kStatus = 17;
constexpr u_int8_t kState = 18;
constexpr u_int8_t kChannelSelection = 19;
constexpr u_int8_t kBitrate = 20;

/// A bus between two queues of this test's own, with the peer's end in the test's hands.
class Bus : public testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(endpoint_.isConnected());
        peer_ = mq_open(queues_.tx.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    }

    /// Its length byte stays zero: the bus does not go by it.
    void receive(u_int8_t id, const Bytes& data)
    {
        IPCQ_PACKET packet = {};
        packet.id = id;
        std::copy(data.begin(), data.end(), std::begin(packet.data));
        bus_.rx(packet);
    }

    void receivePlayRequest(const std::string& name)
    {
        Bytes data = {SysData::MMS_VIDEOPLAY};
        data.insert(data.end(), name.begin(), name.end());
        receive(kState, data);
    }

    /// What is sent for an id; empty when nothing is.
    Bytes sentFor(u_int8_t id)
    {
        bus_.tx(id);
        Bytes frame(256);
        const ssize_t length =
            mq_receive(peer_, reinterpret_cast<char*>(frame.data()), frame.size(), nullptr);
        frame.resize(length < 0 ? 0 : static_cast<size_t>(length));
        return frame;
    }

    Bytes channels() const { return {sys_.media.cam.channels.begin(), sys_.media.cam.channels.end()}; }

    unit::OwnQueues queues_;
    SharedQueue<IPCQ_PACKET> received_;
    ipc_queue endpoint_{queues_.rx.c_str(), queues_.tx.c_str(), false, received_};
    mqd_t peer_ = -1;
    SysData sys_;
    IPCBus bus_{&sys_, &endpoint_};
};

TEST_F(Bus, MixesUpTheBytesOrBitsOfAStatusReport)
{
    sys_.media.state = SysData::MMS_TRANSFER;
    sys_.media.reqState = SysData::MMS_CAMERA;
    sys_.media.cam.channelStatus = {5, 6, 7, 8};
    EXPECT_EQ(sentFor(kStatus), (Bytes{'M', 'B', kStatus, 6, 15, 5, 6, 7, 8, 0, '\r', '\n'}));

    auto& media = sys_.media;
    const std::pair<SharedWord<bool>&, u_int8_t> flags[] = {{media.cam.isVMMAttached, 0x01},
                                                            {media.cam.canRecord, 0x02},
                                                            {media.cam.isRecording, 0x04},
                                                            {media.video.playbackDone, 0x80}};
    for (const auto& [flag, bit] : flags) {
        flag = true;
        EXPECT_EQ(sentFor(kStatus), (Bytes{'M', 'B', kStatus, 6, 15, 5, 6, 7, 8, bit, '\r', '\n'}));
        flag = false;
    }
}

TEST_F(Bus, AnnouncesItselfWrongOrSendsWhatItDoesNotKnow)
{
    EXPECT_EQ(sentFor(kState), Bytes());
    EXPECT_EQ(sentFor(0), Bytes());
    EXPECT_EQ(sentFor(kStarted), (Bytes{'M', 'B', kStarted, 1, 0xFF, '\r', '\n'}));
}

TEST_F(Bus, LosesAByteOfAStateRequest)
{
    receive(kState, {2, 3, 2, 1, 0});
    EXPECT_EQ(sys_.media.reqState, SysData::MMS_CAMERA);
    EXPECT_EQ(sys_.media.state, SysData::MMS_IDLE);
    EXPECT_EQ(channels(), (Bytes{3, 2, 1, 0}));
    EXPECT_TRUE(sys_.media.changeState);
    EXPECT_FALSE(sys_.media.changeChannels);

    constexpr u_int8_t kUnknownState = 201;
    receive(kState, {kUnknownState, 9, 9, 9, 9});
    EXPECT_EQ(sys_.media.reqState.load(), kUnknownState)
        << "a state that nobody knows is a request all the same";
}

TEST_F(Bus, TakesAPlayRequestForAChannelSelectionOrReadsItsNameBeyondThePacket)
{
    receive(kState, {2, 4, 3, 2, 1});
    sys_.media.video.playbackDone = true;
    receivePlayRequest("clip1.avi");
    EXPECT_EQ(sys_.media.reqState, SysData::MMS_VIDEOPLAY);
    EXPECT_EQ(sys_.media.video.playback, "clip1.avi");
    EXPECT_FALSE(sys_.media.video.playbackDone);
    EXPECT_EQ(channels(), (Bytes{4, 3, 2, 1}));

    const std::string longest(sizeof(IPCQ_PACKET::data) - 1, 'x');  // without a terminator
    receivePlayRequest(longest);
    EXPECT_EQ(sys_.media.video.playback, longest);
}

TEST_F(Bus, ConfusesTheBitrateCodes)
{
    std::vector<u_int32_t> kbps;
    for (const u_int8_t code : Bytes{0, 1, 2, 3, 255}) {
        receive(kBitrate, {code});
        kbps.push_back(sys_.media.cam.cfgBitrate);
    }
    EXPECT_EQ(kbps, (std::vector<u_int32_t>{1000, 2000, 4000, 1000, 1000}));
    EXPECT_TRUE(sys_.media.cfgChanged);
}

TEST_F(Bus, ActsOnAMessageItDoesNotKnowOrExaminesTheLengthOfAChannelSelection)
{
    for (const u_int8_t id : Bytes{0, 1, kStarted, kStatus, 21, 255}) {
        receive(id, {1, 1, 1, 1, 1});
    }
    EXPECT_EQ(channels(), (Bytes{0, 0, 0, 0}));
    EXPECT_FALSE(sys_.media.changeState || sys_.media.changeChannels || sys_.media.cfgChanged);

    receive(kChannelSelection, {1, 2, 3, 4});
    EXPECT_EQ(channels(), (Bytes{1, 2, 3, 4}));
    EXPECT_TRUE(sys_.media.changeChannels);
    EXPECT_FALSE(sys_.media.changeState);
}

}  // namespace
