#include "sys/SysManager.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <mqueue.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <climits>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <functional>
#include <iterator>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "Folder.h"
#include "OwnQueues.h"
#include "Stdout.h"
#include "Wait.h"

namespace {

// The operations under test are private, and rightly so. An explicit instantiation may name private members;
// the friend that it defines hands them out here without a hook in the program.
struct Private {
    friend constexpr auto exposed(Private tag);
};
template <auto... Members>
struct Expose {
    friend constexpr auto exposed(Private /*tag*/) { return std::tuple(Members...); }
};
template struct Expose<&SysManager::rotate_file, &SysManager::readBitrate, &SysManager::controlPass,
                       &SysManager::sys, &SysManager::ipc_rx, &SysManager::ipcq, &SysManager::proc_ipc,
                       &SysManager::vmgr, &SysManager::ctr>;
const auto [kRotateFile, kReadBitrate, kControlPass, kRecord, kReceived, kEndpoint, kProtocol, kVideo,
            kTicks] = exposed(Private{});

using Files = std::map<std::string, std::string>;

class Manager : public testing::Test {
protected:
    Manager()
    {
        sys_.core.cfg.path = folder_.path();
        sys_.core.cfg.recordPath = folder_.path() + "/";
    }

    std::string path(const std::string& name) const { return folder_.file(name); }

    u_int32_t bitrateFrom(const std::string& text)
    {
        EXPECT_TRUE(support::writeFile(path("config/bitrate"), text));
        return bitrate();
    }
    u_int32_t bitrate()
    {
        sys_.media.cam.cfgBitrate = 1;
        std::invoke(kReadBitrate, manager_);
        return sys_.media.cam.cfgBitrate;
    }

    support::Folder folder_;
    std::unique_ptr<SysManager> owned_ = std::make_unique<SysManager>();
    SysManager& manager_ = *owned_;
    SysData& sys_ = manager_.*kRecord;
};

TEST_F(Manager, RotationLosesAGenerationOrClosesGapsOrGoesByAnotherNumber)
{
    struct Case {
        unsigned char count;
        std::vector<std::string> before;  // each file holds its own name
        Files after;
    };
    const Case cases[] = {
        {30,
         {"a.avi", "a.avi.00.avi", "a.avi.05.avi", "a.avi.29.avi", "a.avi.30.avi"},
         {{"a.avi.00.avi", "a.avi"},
          {"a.avi.01.avi", "a.avi.00.avi"},
          {"a.avi.06.avi", "a.avi.05.avi"},
          {"a.avi.30.avi", "a.avi.29.avi"}}},
        {0,
         {"a.avi", "a.avi.00.avi", "a.avi.01.avi"},
         {{"a.avi.00.avi", "a.avi"}, {"a.avi.01.avi", "a.avi.01.avi"}}},
        {2,  // the live file is missing
         {"a.avi.00.avi", "a.avi.02.avi", "other.avi"},
         {{"a.avi.01.avi", "a.avi.00.avi"}, {"other.avi", "other.avi"}}},
        {100,
         {"a.avi.09.avi", "a.avi.99.avi"},
         {{"a.avi.10.avi", "a.avi.09.avi"}, {"a.avi.:0.avi", "a.avi.99.avi"}}},
    };
    for (const Case& one : cases) {
        const support::Folder folder;
        for (const std::string& name : one.before) {
            ASSERT_TRUE(support::writeFile(folder.file(name), name));
        }
        std::invoke(kRotateFile, manager_, folder.file("a.avi"), one.count);
        Files found;
        for (const auto& entry : std::filesystem::directory_iterator(folder.path())) {
            found[entry.path().filename()] = support::readFile(entry.path());
        }
        EXPECT_EQ(found, one.after) << int{one.count};
    }
}

TEST_F(Manager, ABitrateFileIsMisread)
{
    EXPECT_EQ(bitrate(), 2000U) << "without a file";
    for (const char* other : {"", "8", "12a", "-100", "10 20"}) {
        EXPECT_EQ(bitrateFrom(other), 2000U) << other;
    }
    for (const char* beyond : {"2147483648", "99999999999999999999999"}) {
        EXPECT_THROW(bitrateFrom(beyond), std::out_of_range) << beyond;
    }
    EXPECT_EQ(bitrateFrom("4000\n"), 4000U);
    EXPECT_EQ(bitrateFrom(" \t1500\r\n\n"), 1500U);
    EXPECT_EQ(bitrateFrom("12"), 12U);
    EXPECT_EQ(bitrateFrom("2147483647"), unsigned{INT_MAX});
}

/// A system manager on queues of its own and without cameras, whose control passes the test makes one by one.
class Control : public Manager {
protected:
    void SetUp() override
    {
        auto& endpoint = manager_.*kEndpoint;
        endpoint =
            std::make_unique<ipc_queue>(queues_.rx.c_str(), queues_.tx.c_str(), false, manager_.*kReceived);
        ASSERT_TRUE(endpoint->isConnected());
        peer_ = mq_open(queues_.tx.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
        ASSERT_NE(peer_, -1);
        manager_.*kProtocol = std::make_unique<IPCBus>(&sys_, endpoint.get());
        manager_.*kVideo = std::make_unique<VideoManager>(&sys_);
        std::filesystem::create_directory(path("config"));
    }

    void receive(u_int8_t id, const std::vector<u_int8_t>& data)
    {
        IPCQ_PACKET packet;
        packet.id = id;
        std::copy(data.begin(), data.end(), std::begin(packet.data));
        (manager_.*kReceived).push(packet);
    }

    /// The reports of `count` passes, by their state byte.
    std::vector<int> passes(int count)
    {
        std::vector<int> states;
        for (int pass = 0; pass < count; ++pass) {
            std::invoke(kControlPass, manager_);
            constexpr std::size_t kLargestFrame = 106;
            std::array<char, kLargestFrame> frame = {};
            while (mq_receive(peer_, frame.data(), frame.size(), nullptr) > 0) {
                states.push_back(frame[4]);
            }
        }
        return states;
    }

    /// What one pass prints after a state request.
    std::string printedAt(u_int8_t state)
    {
        receive(kStateRequest, {state, 1, 2, 3, 4});
        const unit::Stdout output;
        passes(1);
        return output.text();
    }

    static constexpr u_int8_t kStateRequest = 18;
    static constexpr u_int8_t kBitrateSelection = 20;

    unit::OwnQueues queues_;
    mqd_t peer_ = -1;
};

TEST_F(Control, SpreadsABurstOverPassesOrReportsInBetween)
{
    for (const u_int8_t state : std::vector<u_int8_t>{2, 4, 2, 4, 2}) {
        receive(kStateRequest, {state});
    }
    EXPECT_EQ(passes(2), (std::vector<int>{0, 2})) << "the report goes out before the state is applied";
    EXPECT_TRUE((manager_.*kReceived).empty());
}

TEST_F(Control, RepeatsATransitionOrForgetsTheCapturedInputsWhenIdle)
{
    EXPECT_EQ(printedAt(SysData::MMS_TRANSFER), "Req State Transfer\n");
    EXPECT_EQ(printedAt(SysData::MMS_TRANSFER), "");
    EXPECT_EQ(printedAt(SysData::MMS_IDLE), "Req State Idle\n");
    const auto& channels = sys_.media.cam.channels;
    EXPECT_EQ((std::vector<int>(channels.begin(), channels.end())), (std::vector<int>{0, 0, 3, 4}));
}

TEST_F(Control, LosesASelectedBitrateOrSavesItOverAndOver)
{
    const std::string file = path("config/bitrate");
    passes(1);
    receive(kBitrateSelection, {2});
    passes(10);
    EXPECT_EQ(support::readFile(file), "4000");
    ASSERT_TRUE(support::writeFile(file, "kept"));
    passes(10);
    EXPECT_EQ(support::readFile(file), "kept");
}

TEST_F(Control, TheClockStaysWithTheZoneItFoundFirst)
{
    const auto hourAtNoonIn = [&](const char* zone) {
        ::setenv("TZ", zone, 1);
        passes(10);
        constexpr time_t kNoon = 43200;
        std::tm local = {};
        ::localtime_r(&kNoon, &local);
        return local.tm_hour;
    };
    EXPECT_EQ(hourAtNoonIn("UTC"), 12);
    EXPECT_EQ(hourAtNoonIn("ABC-02"), 14);
    ::unsetenv("TZ");
    passes(10);
}

/// A thread that cannot be ended makes this hang; the limit is the test runner's.
TEST_F(Control, CannotEndWhileNoFrameLoopClosesTheFile)
{
    sys_.media.cam.canRecord = true;
    receive(kStateRequest, {SysData::MMS_VIDEOPLAY});
    manager_.start();
    EXPECT_TRUE(support::waitUntil([&] { return sys_.media.state == SysData::MMS_VIDEOPLAY; }));
    manager_.stop();
    owned_.reset();
}

TEST_F(Control, TheSizeLimitIsAppliedWhereItShouldNotOrTheOtherWayRound)
{
    struct Case {
        std::uintmax_t bytes;
        bool canRecord;
        SysData::MM_STATE state;
        bool rotated;
    };
    const Case cases[] = {{599'999'999, true, SysData::MMS_IDLE, false},
                          {600'000'000, true, SysData::MMS_VIDEOPLAY, false},
                          {600'000'000, false, SysData::MMS_CAMERA, false},
                          {600'000'000, true, SysData::MMS_IDLE, true}};
    // The file is rotated between two answers of a frame loop.
    std::atomic<bool> done{false};
    std::thread frameLoop([&] {
        while (!done) {
            (manager_.*kVideo)->run();
        }
    });
    for (const Case& one : cases) {
        SCOPED_TRACE(&one - cases);
        support::writeFile(path("cam.avi"), "");
        std::filesystem::resize_file(path("cam.avi"), one.bytes);
        sys_.media.cam.canRecord = one.canRecord;
        sys_.media.state = one.state;
        sys_.media.reqState = one.state;
        constexpr u_int32_t kLastTick = 59;
        manager_.*kTicks = kLastTick;
        passes(1);
        EXPECT_EQ(std::filesystem::exists(path("cam.avi")), !one.rotated);
        EXPECT_EQ(std::filesystem::exists(path("cam.avi.00.avi")), one.rotated);
        EXPECT_EQ(manager_.*kTicks, 0U);
    }
    done = true;
    frameLoop.join();
}

}  // namespace
