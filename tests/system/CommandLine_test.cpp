#include <fcntl.h>
#include <gtest/gtest.h>
#include <mqueue.h>

#include <algorithm>
#include <thread>

#include "Scenes.h"

namespace {

using control::MediaState;
using control::Status;
using support::Command;
using support::operator+;
using support::Panel;

support::Outcome run(const Command& command)
{
    Command resolved = command;
    resolved.front() = support::program(command.front());
    return support::runToEnd(resolved);
}

TEST(BadUsage, IsSaidInSeveralLinesOrWithAnotherStatusThan2)
{
    for (const Command& command : std::vector<Command>{
             {"velcamctl"},
             {"velcamctl", "reboot"},
             {"velcamctl", "state"},
             {"velcamctl", "state", "park"},
             {"velcamctl", "state", "camera", "5"},
             {"velcamctl", "channels", "x"},
             {"velcamctl", "channels", "1", "2", "3", "4", "1"},
             {"velcamctl", "channels"},
             {"velcamctl", "play"},
             {"velcamctl", "play", std::string(99, 'a')},
             {"velcamctl", "bitrate", "3000"},
             {"velcamctl", "status", "--bogus"},
             {"velcamd", "--bogus"},
             {"vboard"},
             {"vboard", "walk"},
             {"vboard", "run"},
             {"vboard", "run", "--"},
             {"vboard", "run", "--bogus", "true"},
             {"vboard", "run", "--camera", "5=pattern", "true"},
             {"vboard", "run", "--camera", "1=moon", "true"},
             {"vboard", "run", "--camera", "1=file:/no/such/film", "true"},
             {"vboard", "run", "--camera", "1=clip:/no/such/clip", "true"},
             {"vboard", "run", "--fps", "0", "true"},
             {"vboard", "run", "--fps", "fast", "true"},
             {"vboard", "run", "--cpu", "octa", "true"},
             {"vboard", "run", "--codec-preset", "warp", "true"},
             {"vboard", "run", "--fault", "nonsense", "true"},
             {"vboard", "run", "--fault", "explode@*#1=EIO", "true"},
             {"vboard", "run", "--fault", "mq_send@*#1=short", "true"},
             {"vboard", "run", "--fault", "VIDIOC_QBUF@*#1=bad", "true"},
             {"vboard", "run", "--fault", "vpu_EncOpen@*#1=skip", "true"},
             {"vboard", "run", "--fault", "write@*#1=slow:", "true"},
             {"vboard", "run", "--fault", "write@*#1/0=EIO", "true"},
             {"vboard", "run", "--report", "/no/such/folder/report", "true"},
             {"vboard", "run", "--board", "/dev/null/board", "true"},
             {"vboard", "attach", "--board", "/no/such/board", "--", "true"},
             {"vboard", "snapshot"},
             {"vboard", "snapshot", "--board", "/no/such/board", "picture.png"},
         }) {
        SCOPED_TRACE(testing::PrintToString(command));
        const auto outcome = run(command);
        EXPECT_EQ(outcome.status, 2);
        EXPECT_EQ(outcome.output, "");
        EXPECT_EQ(std::count(outcome.error.begin(), outcome.error.end(), '\n'), 1) << outcome.error;
        EXPECT_EQ(outcome.error.rfind(command.front() + ": ", 0), 0U) << outcome.error;
    }
}

TEST(Help, IsThereForEveryProgramWithItsVersion)
{
    for (const char* name : {"velcamd", "velcamctl", "vboard"}) {
        for (const char* option : {"--help", "--version"}) {
            const auto outcome = run({name, option});
            EXPECT_EQ(outcome.status, 0) << name << " " << option << ": " << outcome.error;
            EXPECT_NE(outcome.output.find(name), std::string::npos) << option << ": " << outcome.output;
        }
    }
    for (const char* verb : {"status", "listen"}) {
        EXPECT_NE(run({"velcamctl", verb, "--help"}).output.find("takes the messages away"),
                  std::string::npos)
            << verb;
    }
}

TEST(Controller, DrivesADaemonOnAVirtualBoardAndReadsItsStatus)
{
    Panel panel;
    panel.start({"--cpu", "dual-lite"}, {support::program("velcamd")}, Panel::Reader::kNone);
    ASSERT_TRUE(panel.awaitOutput("VPU BITRATE")) << panel.output() << panel.errors();
    const auto control = [&](const Command& arguments) {
        return run(
            Command{"vboard", "attach", "--board", panel.board(), "--", support::program("velcamctl")} +
            arguments);
    };
    ASSERT_EQ(control({"state", "camera", "1", "2"}).status, 0);
    EXPECT_TRUE(panel.awaitOutput("Req State Camera\n"));
    const auto status = control({"status", "--json"});
    EXPECT_EQ(status.status, 0) << status.error;
    const auto json = nlohmann::json::parse(status.output, nullptr, false);
    ASSERT_TRUE(json.is_object()) << status.output;
    EXPECT_EQ(json.value("state", ""), "camera") << "a stale report was shown";
    EXPECT_TRUE(support::waitUntil([&] {  // from the first written picture on
        const auto later = nlohmann::json::parse(control({"status", "--json"}).output, nullptr, false);
        return later.is_object() && later.value("isRecording", false);
    }));
    EXPECT_EQ(json.value("channelStatus", nlohmann::json()), nlohmann::json({0, 0, 0, 0}));
    EXPECT_EQ(panel.end(), 0);
}

TEST(Controller, StopsFollowingADaemonThatIsSilentForAWhile)
{
    constexpr support::Duration kSilence{2500};
    const support::Folder folder;
    const std::string shown = folder.file("shown");
    Panel panel;
    const auto bringUp = [&] {
        panel.start({"--cpu", "dual-lite"}, {support::program("velcamd")}, Panel::Reader::kNone);
        ASSERT_TRUE(panel.awaitOutput("VPU BITRATE")) << panel.output() << panel.errors();
    };
    const auto attached = [&](Command arguments) {
        Command command{support::program("vboard"),   "attach", "--board", panel.board(), "--",
                        support::program("velcamctl")};
        command.insert(command.end(), arguments.begin(), arguments.end());
        return command;
    };
    const auto shows = [&](const char* text) {
        return support::waitUntil([&] { return support::readFile(shown).find(text) != std::string::npos; });
    };
    bringUp();
    support::Child follower(attached({"status", "--follow"}), shown, folder.file("complaints"));
    ASSERT_TRUE(shows("state idle")) << support::readFile(folder.file("complaints"));
    EXPECT_EQ(panel.end(), 0);
    EXPECT_EQ(follower.wait(kSilence), std::nullopt) << "silence ended it";
    bringUp();
    EXPECT_EQ(support::runToEnd(attached({"state", "camera", "1"})).status, 0);
    EXPECT_TRUE(shows("state camera")) << "the daemon that was started anew is not heard";
    follower.signal(SIGINT);
    EXPECT_EQ(follower.wait(), 0);
    EXPECT_EQ(panel.end(), 0);
}

TEST(Controller, SaysWhatToDoWhenNoDaemonIsThere)
{
    Panel panel;
    for (const char* verb : {"status", "listen"}) {
        panel.start({}, {support::program("velcamctl"), verb}, Panel::Reader::kNone);
        EXPECT_EQ(panel.awaitEnd(), 1);
        EXPECT_NE(panel.errors().find("queue /zentipc is not there; start velcamd"), std::string::npos)
            << panel.errors();
    }
}

constexpr long kMessages = 10;

/// The queue of a board that has no daemon, of the daemon's shape.
std::string makeQueue(const Panel& panel)
{
    mq_attr attributes = {};
    attributes.mq_maxmsg = kMessages;
    attributes.mq_msgsize = control::kFrameMax;
    std::string name = panel.queueName(control::kStatusQueue);
    const mqd_t queue = ::mq_open(name.c_str(), O_RDONLY | O_CREAT | O_EXCL, 0600, &attributes);
    EXPECT_EQ(::mq_close(queue), 0);
    return name;
}

control::Frame statusFrame(MediaState state)
{
    return control::encode(
        {static_cast<uint8_t>(control::MessageId::kStatus), {static_cast<uint8_t>(state), 0, 0, 0, 0, 6}});
}

TEST(Controller, ThrowsAwayWhatABlockedDaemonReportedLongAgo)
{
    using control::Queue;
    const Panel panel;
    const std::string name = makeQueue(panel);
    Queue sender(name, Queue::Direction::kSend);
    ASSERT_TRUE(sender.isOpen());
    for (long i = 0; i < kMessages; ++i) {
        ASSERT_TRUE(sender.send(statusFrame(MediaState::kIdle), support::kGenerous));
    }
    // As the daemon does: one more report, made long ago and still held; then fresh ones.
    std::thread daemon([&] {
        sender.send(statusFrame(MediaState::kIdle), support::kGenerous);
        sender.send(statusFrame(MediaState::kCamera), support::kGenerous);
    });
    Queue reader(name, Queue::Direction::kReceive);
    EXPECT_TRUE(reader.discardOld(support::kGenerous));
    const auto status = reader.receiveStatus(support::kGenerous);
    daemon.join();
    ASSERT_TRUE(status);
    EXPECT_EQ(status->state, static_cast<uint8_t>(MediaState::kCamera));
}

TEST(Controller, GivesUpOnAQueueThatStaysFullOrEmpty)
{
    using control::Queue;
    constexpr support::Duration kShort{20};
    const Panel panel;
    const std::string name = makeQueue(panel);
    Queue sender(name, Queue::Direction::kSend);
    Queue reader(name, Queue::Direction::kReceive);
    EXPECT_FALSE(reader.receive(kShort));
    EXPECT_EQ(reader.error(), ETIMEDOUT);
    while (sender.send(statusFrame(MediaState::kIdle), kShort)) {
    }
    EXPECT_EQ(sender.error(), ETIMEDOUT);
    EXPECT_FALSE(reader.discardOld(kShort)) << "nobody held a report";
}

TEST(Protocol, WritesRequestsByteForByteAsTheDaemonReadsThem)
{
    using control::encode;
    using control::Frame;
    EXPECT_EQ(encode(control::stateRequest(MediaState::kCamera, {3, 2, 1, 0})),
              (Frame{'M', 'B', 18, 5, 2, 3, 2, 1, 0, '\r', '\n'}));
    EXPECT_EQ(encode(*control::playRequest("a.avi")),
              (Frame{'M', 'B', 18, 7, 1, 'a', '.', 'a', 'v', 'i', 0, '\r', '\n'}));
    EXPECT_EQ(encode(control::channelSelection({1, 2, 0, 4})),
              (Frame{'M', 'B', 19, 4, 1, 2, 0, 4, '\r', '\n'}));
    EXPECT_EQ(encode(*control::bitrateSelection(1000)), (Frame{'M', 'B', 20, 1, 0, '\r', '\n'}));
    EXPECT_EQ(encode(*control::bitrateSelection(2000)), (Frame{'M', 'B', 20, 1, 1, '\r', '\n'}));
    EXPECT_EQ(encode(*control::bitrateSelection(4000)), (Frame{'M', 'B', 20, 1, 2, '\r', '\n'}));
    EXPECT_FALSE(control::bitrateSelection(3000));
    EXPECT_FALSE(control::playRequest(""));
    EXPECT_TRUE(control::playRequest(std::string(98, 'a')));
    EXPECT_FALSE(control::playRequest(std::string(99, 'a'))) << "no room for the closing zero";
}

TEST(Protocol, ReadsTheStatusFlagByFlagAndRefusesBrokenFrames)
{
    const control::Frame whole{'M', 'B', 17, 6, 15, 0, 0xFF, 10, 1, 0x82, '\r', '\n'};
    const auto packet = control::decode(whole);
    ASSERT_TRUE(packet);
    const auto status = control::readStatus(*packet);
    ASSERT_TRUE(status);
    EXPECT_EQ(status->state, 15);
    EXPECT_EQ(status->channelStatus, (std::array<uint8_t, 4>{0, 0xFF, 10, 1}));
    EXPECT_TRUE(status->canRecord && status->playbackDone);
    EXPECT_FALSE(status->isVMMAttached || status->isRecording);
    EXPECT_EQ(control::describe(whole),
              "id 17 status: state transfer, cameras good unchecked fault:0x0a fault:0x01, display not "
              "attached, not "
              "recording, playback done");

    for (const size_t broken : {0U, 1U, 3U, 10U, 11U}) {
        control::Frame frame = whole;
        frame[broken] ^= 1U;
        EXPECT_FALSE(control::decode(frame)) << "byte " << broken;
    }
    EXPECT_FALSE(control::decode({whole.begin(), whole.end() - 1}));
    EXPECT_FALSE(control::decode({}));
}

}  // namespace
