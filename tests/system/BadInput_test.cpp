#include <fcntl.h>
#include <gtest/gtest.h>
#include <mqueue.h>
#include <sys/stat.h>

#include <atomic>
#include <csignal>
#include <fstream>
#include <random>
#include <thread>

#include "Scenes.h"
#include "board/Board.h"

namespace {

using control::MediaState;
using control::Status;
using support::Clock;
using support::Panel;

constexpr size_t kSomeFrames = 20'000;  // bytes

class BadInput : public testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(panel_.layOut()) << panel_.errors(); }

    void startUnread()
    {
        panel_.start({"--cpu", "dual-lite"}, {support::program("velcamd")}, Panel::Reader::kNone);
    }

    /// Whether the queue has come to hold all the reports that it can.
    bool awaitFullQueue() const
    {
        constexpr long kQueueLength = 10;
        return support::waitUntil([&] {
            const mqd_t queue = ::mq_open(panel_.queueName(control::kStatusQueue).c_str(), O_RDONLY);
            mq_attr attributes = {};
            if (queue != static_cast<mqd_t>(-1)) {
                ::mq_getattr(queue, &attributes);
                ::mq_close(queue);
            }
            return attributes.mq_curmsgs == kQueueLength;
        });
    }

    bool awaitFrames(size_t before = 0) const
    {
        return support::waitUntil(
            [&] { return support::readFile(panel_.recording()).size() > before + kSomeFrames; });
    }

    Panel panel_;
};

TEST_F(BadInput, AStartThatLacksSomethingIsSilentOrOutOfOrder)
{
    struct Lack {
        const char* fault;
        bool refuses;  ///< to start; or goes on without cameras
        const char* says;
    };
    for (const Lack& lack :
         {Lack{"open@/velmarine/config/VelMain.cfg#*=ENOENT", true,
               "(core): Could not parse Config File/velmarine/config/VelMain.cfg\n"},
          Lack{"mq_open@/zentcam#*=EACCES", true, "Could not open connection to RX message queue\n"},
          Lack{"mq_open@/zentipc#*=EMFILE", true, "Could not open connection to TX message queue\n"},
          Lack{"open@/usr/share/fonts/Ubuntu-C.ttf#*=ENOENT", false,
               "(VideoManager:): Could not setup YUV image writer"},
          Lack{"open@/dev/video1#*=ENOENT", false, "(VideoManager): Could not setup /dev/video1"}}) {
        SCOPED_TRACE(lack.fault);
        panel_.start({"--cpu", "dual-lite", "--fault", lack.fault});
        if (lack.refuses) {
            EXPECT_EQ(panel_.awaitEnd(), 1) << panel_.errors();
            EXPECT_TRUE(panel_.said("(main): Could not init core")) << panel_.output();
        } else {
            ASSERT_TRUE(panel_.awaitUp()) << panel_.output() << panel_.errors();
            EXPECT_TRUE(panel_.awaitOutput("(main): Could not setup cameras, continuing without cameras"));
            const auto seen = panel_.enter(MediaState::kCamera, {1});
            EXPECT_TRUE(seen && !seen->status.isRecording);
            EXPECT_TRUE(panel_.enter(MediaState::kTransfer)) << "waits for ever to stop a recording";
            EXPECT_EQ(panel_.end(), 0) << panel_.errors();
        }
        EXPECT_TRUE(panel_.said(lack.says)) << panel_.output();
    }
}

TEST_F(BadInput, AStatusQueueThatNobodyReadsStopsNeitherRecordingNorShutdown)
{
    startUnread();
    ASSERT_TRUE(awaitFullQueue()) << panel_.output();
    EXPECT_TRUE(awaitFrames(support::readFile(panel_.recording()).size()));
    EXPECT_EQ(panel_.end(), 0) << panel_.errors();
    EXPECT_TRUE(support::readRecording(panel_.recording()).wellFormed);
}

/// The controller dies with requests unsent and reports unread, and comes back.
TEST_F(BadInput, AControllerThatRestartsIsNotAnswered)
{
    startUnread();
    ASSERT_TRUE(awaitFullQueue()) << panel_.output();
    ASSERT_TRUE(panel_.request(control::stateRequest(MediaState::kCamera, {1})));
    EXPECT_FALSE(panel_.awaitOutput("Req State", support::Duration{300})) << "the report has not gone out";

    support::StatusWatch controller(panel_.queueName(control::kStatusQueue));
    const auto in = [](MediaState state) {
        return [=](const Status& status) { return status.state == static_cast<uint8_t>(state); };
    };
    EXPECT_TRUE(controller.await(in(MediaState::kCamera), {}));
    ASSERT_TRUE(panel_.request(control::stateRequest(MediaState::kIdle, {})));
    EXPECT_TRUE(controller.await(in(MediaState::kIdle), Clock::now()));
    EXPECT_EQ(panel_.end(), 0) << panel_.errors();
}

/// A queue that another program has left, and what of the daemon works with it.
struct Foreign {
    const char* name;
    const char* queue;
    long messages;
    long bytes;
    control::Frame old;  ///< what it is full of
    bool hears;
    bool reports;
    const char* says;  ///< of its own accord
};
void PrintTo(const Foreign& foreign, std::ostream* stream)
{
    *stream << foreign.name;
}

class ForeignQueue : public BadInput, public testing::WithParamInterface<Foreign> {
protected:
    /// The launcher removes what queues there are, so the daemon waits at a gate until this one is made.
    void startWithIt()
    {
        const Foreign& given = GetParam();
        const std::string gate = panel_.file("/velmarine/gate");
        ASSERT_EQ(::mkfifo(gate.c_str(), 0600), 0);
        panel_.start({"--cpu", "dual-lite"},
                     {"/bin/sh", "-c", "cat /velmarine/gate; exec '" + support::program("velcamd") + "'"});
        std::ofstream opened(gate);  // when the daemon's side has come to it
        mq_attr attributes = {};
        attributes.mq_maxmsg = given.messages;
        attributes.mq_msgsize = given.bytes;
        const mqd_t queue =
            ::mq_open(panel_.queueName(given.queue).c_str(), O_RDWR | O_CREAT | O_EXCL, 0600, &attributes);
        ASSERT_NE(queue, static_cast<mqd_t>(-1));
        for (long sent = 0; sent < given.messages && !given.old.empty(); ++sent) {
            const auto* bytes = reinterpret_cast<const char*>(given.old.data());
            ASSERT_EQ(::mq_send(queue, bytes, given.old.size(), 0), 0);
        }
        ::mq_close(queue);
    }
};

TEST_P(ForeignQueue, DisturbsMoreThanItself)
{
    const Foreign& given = GetParam();
    ASSERT_NO_FATAL_FAILURE(startWithIt());
    ASSERT_TRUE(panel_.awaitOutput("(core): Started core thread")) << panel_.output() << panel_.errors();
    EXPECT_TRUE(awaitFrames()) << panel_.output();
    EXPECT_TRUE(panel_.awaitOutput(given.says)) << panel_.output();
    EXPECT_TRUE(!given.reports || panel_.awaitRecording(true));
    ASSERT_TRUE(panel_.request(control::stateRequest(MediaState::kBackup, {1})));
    EXPECT_TRUE(!given.hears || panel_.awaitOutput("Req State BackupCam")) << panel_.output();
    EXPECT_EQ(panel_.end(), 0) << panel_.errors();
    EXPECT_TRUE(support::readRecording(panel_.recording()).wellFormed);
}

const control::Frame kOldRequest = control::encode(control::stateRequest(MediaState::kCamera, {1}));
const control::Frame kOldReport{0};

INSTANTIATE_TEST_SUITE_P(
    With, ForeignQueue,
    testing::Values(Foreign{"RequestsTooLargeToReceive", control::kRequestQueue, 5, 256, {}, false, true, ""},
                    Foreign{"SmallRequests", control::kRequestQueue, 2, 50, {}, true, true, ""},
                    Foreign{"OldRequests", control::kRequestQueue, 10, 106, kOldRequest, true, true,
                            "Req State Camera"},
                    Foreign{"ReportsTooLargeToSend", control::kStatusQueue, 10, 8, {}, true, false, ""},
                    Foreign{"RoomForOneReport", control::kStatusQueue, 1, 106, {}, true, true, ""},
                    Foreign{"OldReports", control::kStatusQueue, 10, 106, kOldReport, true, true, ""}),
    [](const auto& chosen) { return std::string(chosen.param.name); });

/// Sends random frames as fast as the queue takes them, for as long as it lives.
class Flood {
public:
    explicit Flood(const std::string& queue) : thread_([this, queue] { send(queue); }) {}
    ~Flood()
    {
        stop_ = true;
        thread_.join();
    }
    Flood(const Flood&) = delete;
    Flood& operator=(const Flood&) = delete;

    unsigned long sent() const { return sent_; }

private:
    void send(const std::string& name)
    {
        const mqd_t queue = ::mq_open(name.c_str(), O_WRONLY | O_CLOEXEC);
        while (!stop_) {
            const control::Frame frame = next();
            timespec soon = {};
            ::clock_gettime(CLOCK_REALTIME, &soon);
            ++soon.tv_sec;  // so that a daemon that receives no more does not keep the test from its end
            const auto* bytes = reinterpret_cast<const char*>(frame.data());
            sent_ += ::mq_timedsend(queue, bytes, frame.size(), 0, &soon) == 0 ? 1U : 0U;
        }
        ::mq_close(queue);
    }

    /// Any bytes, or a packet of the protocol that asks for anything but an end of the recording.
    control::Frame next()
    {
        control::Frame frame(control::kFrameMax);  // first, so that an empty one has an address too
        frame.resize(random_() % (control::kFrameMax + 1));
        for (uint8_t& byte : frame) {
            byte = static_cast<uint8_t>(random_());
        }
        if (frame.size() > control::kFrameMin && random_() % 2 == 0) {
            frame[2] = static_cast<uint8_t>(16 + random_() % 6);
            const bool ends = frame[4] == static_cast<uint8_t>(MediaState::kPlay) ||
                              frame[4] == static_cast<uint8_t>(MediaState::kTransfer);
            frame[4] = ends ? uint8_t{0} : frame[4];
            frame[frame.size() - 2] = '\r';
            frame[frame.size() - 1] = '\n';
        }
        return frame;
    }

    std::minstd_rand random_{7};
    std::atomic<bool> stop_{false};
    std::atomic<unsigned long> sent_{0};
    std::thread thread_;
};

class PacedBadInput : public BadInput {};

/// A busy machine costs frames too, so stretches with the flood alternate with quiet ones: a daemon that
/// cannot bear it drops frames in each of the former.
TEST_F(PacedBadInput, AFloodOfPacketsCostsAFrame)
{
    constexpr int kStretches = 4;
    constexpr uint64_t kStretch = 60 / scenes::kSlowness;  // frames
    const int rate = 30 / scenes::kSlowness;
    panel_.start({"--codec-preset", "ultrafast", "--fps", std::to_string(rate)});
    ASSERT_TRUE(panel_.awaitUp()) << panel_.output() << panel_.errors();
    const board::Board board(panel_.board());
    ASSERT_TRUE(board.usable());
    const auto& camera = board.state().cameras[0];
    const auto dropped = [&] {
        const uint64_t begin = camera.delivered + camera.dropped;
        const uint64_t before = camera.dropped;
        EXPECT_TRUE(
            support::waitUntil([&] { return camera.delivered + camera.dropped >= begin + kStretch; }));
        return camera.dropped - before;
    };
    uint64_t quiet = 0;
    uint64_t flooded = 0;
    unsigned long sent = 0;
    for (int stretch = 0; stretch < kStretches; ++stretch) {
        quiet = dropped();
        const uint64_t encoded = board.state().framesEncoded;
        const Flood flood(panel_.queueName(control::kRequestQueue));
        flooded = dropped();
        sent = flood.sent();
        EXPECT_GT(board.state().framesEncoded, encoded) << "the recording stopped";
        if (flooded == 0) {
            break;
        }
    }
    std::printf("%lu packets beside %lu frames\n", sent, static_cast<unsigned long>(kStretch));
    EXPECT_GT(sent, kStretch * 10) << "no flood";
    EXPECT_TRUE(panel_.enter(MediaState::kTransfer) && panel_.enter(MediaState::kIdle)) << panel_.output();
    {
        const Flood flood(panel_.queueName(control::kRequestQueue));
        EXPECT_EQ(panel_.end(), 0) << panel_.errors();
    }
    EXPECT_TRUE(support::readRecording(panel_.recording()).wellFormed);
    if (flooded != 0 && quiet != 0) {
        GTEST_SKIP() << "this machine is too busy for " << rate << " frames per second without a flood, too";
    }
    EXPECT_EQ(flooded, 0U);
}

TEST_F(BadInput, ABitrateBeyondIntIsTakenForAnother)
{
    constexpr int kAborted = 128 + SIGABRT;
    for (const std::string& content : {std::string("2147483648"), std::string(100'000, '4')}) {
        SCOPED_TRACE(content.substr(0, 40));
        ASSERT_TRUE(support::writeFile(panel_.file("/velmarine/config/bitrate"), content));
        panel_.start({"--cpu", "dual-lite"});
        EXPECT_EQ(panel_.awaitEnd(), kAborted) << panel_.output() << panel_.errors();
        EXPECT_NE(panel_.errors().find("std::out_of_range"), std::string::npos) << panel_.errors();
    }
}

}  // namespace
