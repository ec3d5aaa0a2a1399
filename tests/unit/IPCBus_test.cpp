#include "sys/IPCBus.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <mqueue.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <iterator>
#include <string>
#include <vector>

namespace {

// The protocol's numbers, on purpose not taken from the code under test.
constexpr u_int8_t kStarted = 16;
constexpr u_int8_t kStatus = 17;
constexpr u_int8_t kState = 18;
constexpr u_int8_t kChannelSelection = 19;
constexpr u_int8_t kBitrate = 20;

/// A bus between two queues of this test's own, with the peer's ends in the test's hands.
class Bus : public testing::Test {
protected:
    static IPCQ_PACKET packet(u_int8_t id, const std::vector<u_int8_t>& data)
    {
        IPCQ_PACKET made = {};
        made.id = id;
        made.len = static_cast<u_int8_t>(data.size());
        std::copy(data.begin(), data.end(), std::begin(made.data));
        return made;
    }

    static IPCQ_PACKET playRequest(const std::string& name)
    {
        IPCQ_PACKET made = packet(kState, {SysData::MMS_VIDEOPLAY});
        std::copy(name.begin(), name.end(), std::begin(made.data) + 1);
        return made;
    }

    void TearDown() override
    {
        if (peer_ != -1) {
            mq_close(peer_);
        }
        mq_unlink(received_.c_str());
        mq_unlink(sent_.c_str());
    }

    /// The next frame that was sent; empty when there is none.
    std::vector<u_int8_t> nextFrame()
    {
        if (peer_ == -1) {
            peer_ = mq_open(sent_.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
        }
        std::vector<char> frame(256);
        const ssize_t length = mq_receive(peer_, frame.data(), frame.size(), nullptr);
        return length < 0 ? std::vector<u_int8_t>()
                          : std::vector<u_int8_t>(frame.begin(), frame.begin() + length);
    }

    std::vector<int> channels() const
    {
        return {sys_.media.cam.channels.begin(), sys_.media.cam.channels.end()};
    }

    static std::string uniqueName(const char* end)
    {
        static std::atomic<int> counter{0};
        return "/velcam-bus-test-" + std::to_string(getpid()) + "-" + std::to_string(counter++) + end;
    }

    std::string received_ = uniqueName("-rx");
    std::string sent_ = uniqueName("-tx");
    SharedQueue<IPCQ_PACKET> queue_;
    ipc_queue endpoint_{received_.c_str(), sent_.c_str(), false, queue_};
    mqd_t peer_ = -1;
    SysData sys_;
    IPCBus bus_{&sys_, &endpoint_};
};

TEST_F(Bus, MixesUpTheBytesOfAStatusReport)
{
    ASSERT_TRUE(endpoint_.isConnected());
    sys_.media.state = SysData::MMS_TRANSFER;
    sys_.media.reqState = SysData::MMS_CAMERA;
    sys_.media.cam.channelStatus = {5, 6, 7, 8};
    bus_.tx(kStatus);
    EXPECT_EQ(nextFrame(), (std::vector<u_int8_t>{'M', 'B', kStatus, 6, 15, 5, 6, 7, 8, 0, '\r', '\n'}));
}

struct Flag {
    const char* name;
    SharedWord<bool>& (*field)(SysData&);
    u_int8_t bit;
};

class BusFlag : public Bus, public testing::WithParamInterface<Flag> {};

TEST_P(BusFlag, IsReportedInTheWrongBit)
{
    ASSERT_TRUE(endpoint_.isConnected());
    GetParam().field(sys_) = true;
    bus_.tx(kStatus);
    const std::vector<u_int8_t> frame = nextFrame();
    ASSERT_EQ(frame.size(), 12U);
    EXPECT_EQ(frame[9], GetParam().bit);
}

INSTANTIATE_TEST_SUITE_P(
    Status, BusFlag,
    testing::Values(
        Flag{"Attached", [](SysData& s) -> SharedWord<bool>& { return s.media.cam.isVMMAttached; }, 0x01},
        Flag{"CanRecord", [](SysData& s) -> SharedWord<bool>& { return s.media.cam.canRecord; }, 0x02},
        Flag{"Recording", [](SysData& s) -> SharedWord<bool>& { return s.media.cam.isRecording; }, 0x04},
        Flag{"PlaybackDone", [](SysData& s) -> SharedWord<bool>& { return s.media.video.playbackDone; },
             0x80}),
    [](const auto& row) { return std::string(row.param.name); });

TEST_F(Bus, AnnouncesItselfWrongOrSendsWhatItDoesNotKnow)
{
    ASSERT_TRUE(endpoint_.isConnected());
    bus_.tx(kState);
    bus_.tx(0);
    bus_.tx(kStarted);
    EXPECT_EQ(nextFrame(), (std::vector<u_int8_t>{'M', 'B', kStarted, 1, 0xFF, '\r', '\n'}));
    EXPECT_TRUE(nextFrame().empty());
}

TEST_F(Bus, LosesAByteOfAStateRequest)
{
    bus_.rx(packet(kState, {2, 3, 2, 1, 0}));
    EXPECT_EQ(sys_.media.reqState, SysData::MMS_CAMERA);
    EXPECT_EQ(sys_.media.state, SysData::MMS_IDLE);
    EXPECT_EQ(channels(), (std::vector<int>{3, 2, 1, 0}));
    EXPECT_TRUE(sys_.media.changeState);
    EXPECT_FALSE(sys_.media.changeChannels);

    constexpr u_int8_t kUnknownState = 201;
    bus_.rx(packet(kState, {kUnknownState, 9, 9, 9, 9}));
    EXPECT_EQ(sys_.media.reqState.load(), kUnknownState)
        << "a state that nobody knows is a request all the same";
}

TEST_F(Bus, TakesAPlayRequestForAChannelSelection)
{
    bus_.rx(packet(kState, {2, 4, 3, 2, 1}));
    sys_.media.video.playbackDone = true;
    bus_.rx(playRequest("clip1.avi"));
    EXPECT_EQ(sys_.media.reqState, SysData::MMS_VIDEOPLAY);
    EXPECT_EQ(sys_.media.video.playback, "clip1.avi");
    EXPECT_FALSE(sys_.media.video.playbackDone);
    EXPECT_EQ(channels(), (std::vector<int>{4, 3, 2, 1}));
}

TEST_F(Bus, ReadsAPlaybackNameBeyondThePacket)
{
    constexpr std::size_t kRoom = sizeof(IPCQ_PACKET::data) - 1;
    bus_.rx(playRequest(std::string(kRoom, 'x')));
    EXPECT_EQ(sys_.media.video.playback, std::string(kRoom, 'x'));
}

TEST_F(Bus, ConfusesTheBitrateCodes)
{
    std::vector<u_int32_t> kbps;
    for (const u_int8_t code : std::vector<u_int8_t>{0, 1, 2, 3, 255}) {
        bus_.rx(packet(kBitrate, {code}));
        kbps.push_back(sys_.media.cam.cfgBitrate);
    }
    EXPECT_EQ(kbps, (std::vector<u_int32_t>{1000, 2000, 4000, 1000, 1000}));
    EXPECT_TRUE(sys_.media.cfgChanged);
}

TEST_F(Bus, ExaminesTheLengthOfAChannelSelection)
{
    IPCQ_PACKET selection = packet(kChannelSelection, {1, 2, 3, 4});
    selection.len = 0;
    bus_.rx(selection);
    EXPECT_EQ(channels(), (std::vector<int>{1, 2, 3, 4}));
    EXPECT_TRUE(sys_.media.changeChannels);
    EXPECT_FALSE(sys_.media.changeState);
}

TEST_F(Bus, ActsOnAMessageItDoesNotKnow)
{
    for (const u_int8_t id : std::vector<u_int8_t>{0, 1, 16, 17, 21, 255}) {
        bus_.rx(packet(id, {1, 1, 1, 1, 1}));
    }
    EXPECT_EQ(channels(), (std::vector<int>{0, 0, 0, 0}));
    EXPECT_FALSE(sys_.media.changeState || sys_.media.changeChannels || sys_.media.cfgChanged);
}

}  // namespace
