#include <fcntl.h>
#include <gtest/gtest.h>
#include <mqueue.h>

#include <atomic>
#include <csignal>
#include <random>
#include <thread>

#include "Scenes.h"
#include "board/Board.h"

namespace {

using control::MediaState;
using control::Status;
using support::Clock;
using support::Panel;

const std::string kConfigFailure = "(core): Could not parse Config File/velmarine/config/VelMain.cfg\n";
const std::string kInitFailure = "(main): Could not init core";

class BadInput : public testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(panel_.layOut()) << panel_.errors(); }

    void expectRefusalToStart(const std::string& message)
    {
        EXPECT_EQ(panel_.awaitEnd(), 1) << panel_.errors();
        EXPECT_NE(panel_.output().find(message), std::string::npos) << panel_.output();
        EXPECT_NE(panel_.output().find(kInitFailure), std::string::npos) << panel_.output();
    }

    /// The daemon lives on, answers, and ends when asked.
    void expectAliveWithoutCameras(const std::string& message)
    {
        ASSERT_TRUE(panel_.awaitUp()) << panel_.output() << panel_.errors();
        EXPECT_TRUE(panel_.awaitOutput(message)) << panel_.output();
        EXPECT_TRUE(panel_.awaitOutput("(main): Could not setup cameras, continuing without cameras"));
        const auto seen = panel_.enter(MediaState::kCamera, {1});
        ASSERT_TRUE(seen);
        EXPECT_FALSE(seen->status.isRecording);
        EXPECT_TRUE(panel_.enter(MediaState::kTransfer)) << "waits for ever to stop a recording";
        EXPECT_EQ(panel_.end(), 0) << panel_.errors();
    }

    /// Reports that nobody has read yet.
    long reportsWaiting() const
    {
        const mqd_t queue = ::mq_open(panel_.queueName(control::kStatusQueue).c_str(), O_RDONLY);
        mq_attr attributes = {};
        if (queue != static_cast<mqd_t>(-1)) {
            ::mq_getattr(queue, &attributes);
            ::mq_close(queue);
        }
        return attributes.mq_curmsgs;
    }

    bool followsRequests()
    {
        return panel_.enter(MediaState::kCamera, {1}) && panel_.enter(MediaState::kTransfer) &&
               panel_.enter(MediaState::kIdle);
    }

    static constexpr long kQueueLength = 10;

    Panel panel_;
};

TEST_F(BadInput, AMissingConfigurationIsSaidAndEndsTheStart)
{
    // Taken away on the running board: the launcher lays a missing one out afresh.
    panel_.start({}, {"/bin/sh", "-c",
                      "rm '" + panel_.file("/velmarine/config/VelMain.cfg") + "'; exec '" +
                          support::program("velcamd") + "'"});
    expectRefusalToStart(kConfigFailure);
}

TEST_F(BadInput, AnUnreadableConfigurationIsSaidAndEndsTheStart)
{
    panel_.start({"--fault", "open@/velmarine/config/VelMain.cfg#*=EACCES"});
    expectRefusalToStart(kConfigFailure);
}

TEST_F(BadInput, AQueueThatCannotBeOpenedIsSaidAndEndsTheStart)
{
    panel_.start({"--fault", "mq_open@/zentcam#*=EACCES"});
    expectRefusalToStart("Could not open connection to RX message queue\n");
    EXPECT_NE(panel_.output().find("(core): IPC Bus did not start!"), std::string::npos);
    panel_.start({"--fault", "mq_open@/zentipc#*=EMFILE"});
    expectRefusalToStart("Could not open connection to TX message queue\n");
}

TEST_F(BadInput, AMissingFontLeavesTheDaemonWithoutCameras)
{
    panel_.start({}, {"/bin/sh", "-c",
                      "rm '" + panel_.file("/usr/share/fonts/Ubuntu-C.ttf") + "'; exec '" +
                          support::program("velcamd") + "'"});
    expectAliveWithoutCameras("(VideoManager:): Could not setup YUV image writer");
}

TEST_F(BadInput, AMissingCameraLeavesTheDaemonWithoutCameras)
{
    panel_.start({"--cpu", "dual-lite", "--fault", "open@/dev/video1#*=ENOENT"});
    expectAliveWithoutCameras("(VideoManager): Could not setup /dev/video1");
}

TEST_F(BadInput, ARecordingThatCannotBeOpenedIsTriedAgainAtTheNextState)
{
    std::filesystem::create_directories(panel_.recording());
    panel_.start({"--cpu", "dual-lite"});
    ASSERT_TRUE(panel_.awaitUp());
    EXPECT_TRUE(panel_.awaitOutput("(VideoManager): Could not start writer")) << panel_.output();
    auto seen = panel_.enter(MediaState::kCamera, {1});
    ASSERT_TRUE(seen);
    EXPECT_FALSE(seen->status.isRecording);

    std::filesystem::remove(panel_.recording());
    ASSERT_TRUE(panel_.enter(MediaState::kIdle));
    EXPECT_TRUE(panel_.watch().await([](const Status& status) { return status.isRecording; }, Clock::now()));
    EXPECT_EQ(panel_.end(), 0);
    const auto recording = support::readRecording(panel_.recording());
    EXPECT_TRUE(recording.wellFormed);
    EXPECT_FALSE(recording.chunks.empty());
}

TEST_F(BadInput, AFullDiskEndsTheLoopWithoutAHang)
{
    panel_.start({"--cpu", "dual-lite", "--fps", "max", "--fault", "write@*/cam.avi#40+=ENOSPC"});
    EXPECT_EQ(panel_.awaitEnd(), 0) << panel_.errors();
    EXPECT_NE(panel_.output().find("Could not encode VPU buffer"), std::string::npos) << panel_.output();
    EXPECT_NE(panel_.output().find("(VideoManager): Could not process VPU"), std::string::npos);
}

TEST_F(BadInput, AStatusQueueThatNobodyReadsStopsNeitherRecordingNorShutdown)
{
    panel_.start({"--cpu", "dual-lite"}, {support::program("velcamd")}, Panel::Reader::kNone);
    ASSERT_TRUE(support::waitUntil([&] { return reportsWaiting() == kQueueLength; })) << panel_.output();
    const auto size = [&] { return support::readFile(panel_.recording()).size(); };
    const size_t before = size();
    constexpr size_t kSomeFrames = 20'000;  // bytes
    EXPECT_TRUE(support::waitUntil([&] { return size() > before + kSomeFrames; }));
    EXPECT_EQ(panel_.end(), 0) << panel_.errors();
    EXPECT_TRUE(support::readRecording(panel_.recording()).wellFormed);
}

/// The controller dies with requests unsent and reports unread, and comes back.
TEST_F(BadInput, AControllerThatRestartsIsNotAnswered)
{
    panel_.start({"--cpu", "dual-lite"}, {support::program("velcamd")}, Panel::Reader::kNone);
    ASSERT_TRUE(panel_.awaitOutput("(core): Started core thread")) << panel_.errors();
    ASSERT_TRUE(support::waitUntil([&] { return reportsWaiting() == kQueueLength; }));
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

/// A queue that is there already, and what of the daemon works with it.
struct Foreign {
    const char* name;
    const char* queue;
    const char* messages;
    const char* bytes;
    const char* old;  ///< what it is full of, in hexadecimal digits
    bool hears;
    bool reports;
    const char* says;  ///< of its own accord
};
void PrintTo(const Foreign& foreign, std::ostream* stream)
{
    *stream << foreign.name;
}

class ForeignQueue : public BadInput, public testing::WithParamInterface<Foreign> {};

TEST_P(ForeignQueue, DisturbsMoreThanItself)
{
    const Foreign& given = GetParam();
    panel_.start({"--cpu", "dual-lite"}, {FOREIGN_QUEUE, given.queue, given.messages, given.bytes, given.old,
                                          support::program("velcamd")});
    ASSERT_TRUE(panel_.awaitOutput("(core): Started core thread")) << panel_.output() << panel_.errors();
    constexpr size_t kSomeFrames = 20'000;  // bytes
    EXPECT_TRUE(support::waitUntil([&] {
        return support::readFile(panel_.recording()).size() > kSomeFrames;
    })) << panel_.output();
    EXPECT_TRUE(panel_.awaitOutput(given.says)) << panel_.output();
    if (given.reports) {
        EXPECT_TRUE(panel_.watch().await([](const Status& status) { return status.isRecording; }, {}));
    }
    ASSERT_TRUE(panel_.request(control::stateRequest(MediaState::kBackup, {1})));
    if (given.hears) {
        EXPECT_TRUE(panel_.awaitOutput("Req State BackupCam")) << panel_.output();
    }
    EXPECT_EQ(panel_.end(), 0) << panel_.errors();
    EXPECT_TRUE(support::readRecording(panel_.recording()).wellFormed);
}

// A request for one camera, as a controller sends it.
constexpr const char* kOldRequest =
    "4D421205"
    "0201000000"
    "0D0A";

INSTANTIATE_TEST_SUITE_P(
    With, ForeignQueue,
    testing::Values(Foreign{"RequestsTooLargeToReceive", control::kRequestQueue, "5", "256", "-", false, true,
                            ""},
                    Foreign{"SmallRequests", control::kRequestQueue, "2", "50", "-", true, true, ""},
                    Foreign{"OldRequests", control::kRequestQueue, "10", "106", kOldRequest, true, true,
                            "Req State Camera"},
                    Foreign{"ReportsTooLargeToSend", control::kStatusQueue, "10", "8", "-", true, false, ""},
                    Foreign{"RoomForOneReport", control::kStatusQueue, "1", "106", "-", true, true, ""},
                    Foreign{"OldReports", control::kStatusQueue, "10", "106", "00", true, true, ""}),
    [](const auto& chosen) { return std::string(chosen.param.name); });

TEST_F(BadInput, AnythingOnTheQueueIsSurvived)
{
    constexpr unsigned kSeed = 20;
    constexpr int kPackets = 400;
    constexpr int kByte = 255;
    panel_.start({"--cpu", "dual-lite"});
    ASSERT_TRUE(panel_.awaitUp());
    std::mt19937 random(kSeed);
    const auto below = [&](int limit) {
        return static_cast<int>(random() % static_cast<unsigned>(limit + 1));
    };
    for (int i = 0; i < kPackets; ++i) {
        control::Frame frame(static_cast<size_t>(below(control::kFrameMax)));
        for (uint8_t& byte : frame) {
            byte = static_cast<uint8_t>(below(kByte));
        }
        if (i % 2 == 0 && frame.size() >= control::kFrameMin) {
            // Well-formed but for what it says: a known id, any length byte.
            frame[2] = static_cast<uint8_t>(16 + below(5));
            frame[frame.size() - 2] = '\r';
            frame[frame.size() - 1] = '\n';
        }
        ASSERT_TRUE(panel_.send(frame)) << "packet " << i;
    }
    EXPECT_TRUE(followsRequests()) << panel_.output();
    EXPECT_EQ(panel_.end(), 0) << panel_.errors();
}

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
    Flood(Flood&&) = delete;
    Flood& operator=(Flood&&) = delete;

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

/// A busy machine costs frames too, so stretches with the flood alternate with quiet ones: a daemon that
/// cannot bear it drops frames in each of the former.
TEST_F(BadInput, AFloodOfPacketsCostsAFrame)
{
    constexpr int kStretches = 4;
    constexpr uint64_t kStretch = 60;  // frames
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
    EXPECT_TRUE(followsRequests()) << panel_.output();
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

TEST_F(BadInput, AMalformedCameraStatusIsSurvived)
{
    const std::string contents[] = {"",
                                    "\n",
                                    "0x",
                                    "0x00,",
                                    "0x00,0x,0x01",
                                    "0xFFFFFFFFFFFFFFFF",
                                    "0x00,0x00,0x00,0x00,0x00,0x00",
                                    std::string(5000, ','),
                                    std::string(64, '\0')};
    for (const std::string& content : contents) {
        SCOPED_TRACE(content.substr(0, 40));
        ASSERT_TRUE(support::writeFile(panel_.file("/velmarine/dev-csi/cam_status"), content));
        panel_.start({"--cpu", "dual-lite"});
        EXPECT_TRUE(panel_.awaitUp()) << panel_.output() << panel_.errors();
        EXPECT_EQ(panel_.end(), 0) << panel_.errors();
    }
}

TEST_F(BadInput, AMalformedBitrateFileMeans2000)
{
    for (const char* content : {"", "8", "12a", "-4000"}) {
        SCOPED_TRACE(content);
        ASSERT_TRUE(support::writeFile(panel_.file("/velmarine/config/bitrate"), content));
        panel_.start({"--cpu", "dual-lite"});
        EXPECT_TRUE(panel_.awaitOutput("VPU BITRATE 2000\n")) << panel_.output() << panel_.errors();
        EXPECT_EQ(panel_.end(), 0) << panel_.errors();
    }
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
