#include "sys/SysManager.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <mqueue.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <climits>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace {

// The operations under test are private, and rightly so. An explicit instantiation may name private members;
// the friend that it defines hands them out here without a hook in the program.
template <auto Member, typename Tag>
struct Expose {
    friend constexpr auto exposed(Tag /*tag*/) { return Member; }
};

struct RotateFile {
    friend constexpr auto exposed(RotateFile tag);
};
struct IntToChar {
    friend constexpr auto exposed(IntToChar tag);
};
struct ReadBitrate {
    friend constexpr auto exposed(ReadBitrate tag);
};
struct Record {
    friend constexpr auto exposed(Record tag);
};
struct Received {
    friend constexpr auto exposed(Received tag);
};
struct Endpoint {
    friend constexpr auto exposed(Endpoint tag);
};
struct Protocol {
    friend constexpr auto exposed(Protocol tag);
};
struct Video {
    friend constexpr auto exposed(Video tag);
};
struct Ticks {
    friend constexpr auto exposed(Ticks tag);
};
struct ControlPass {
    friend constexpr auto exposed(ControlPass tag);
};

template struct Expose<&SysManager::rotate_file, RotateFile>;
template struct Expose<&SysManager::int_to_char, IntToChar>;
template struct Expose<&SysManager::readBitrate, ReadBitrate>;
template struct Expose<&SysManager::sys, Record>;
template struct Expose<&SysManager::ipc_rx, Received>;
template struct Expose<&SysManager::ipcq, Endpoint>;
template struct Expose<&SysManager::proc_ipc, Protocol>;
template struct Expose<&SysManager::vmgr, Video>;
template struct Expose<&SysManager::ctr, Ticks>;
template struct Expose<&SysManager::controlPass, ControlPass>;

std::string digits(u_int8_t value)
{
    SysManager manager;
    std::array<char, 3> text = {'x', 'x', 'x'};
    (manager.*exposed(IntToChar{}))(value, text.data());
    return std::string(text.data());
}

/// A folder of the test's own with small files in it, each holding its own name to be recognised after a
/// move.
class Folder : public testing::Test {
protected:
    void SetUp() override
    {
        std::string pattern = std::filesystem::temp_directory_path().string() + "/velcam-sys-XXXXXX";
        ASSERT_NE(mkdtemp(pattern.data()), nullptr);
        folder_ = pattern;
    }

    void TearDown() override { std::filesystem::remove_all(folder_); }

    std::string path(const std::string& name) const { return folder_ + "/" + name; }

    void write(const std::string& name, const std::string& text) const
    {
        std::filesystem::create_directories(std::filesystem::path(path(name)).parent_path());
        std::ofstream(path(name)) << text;
    }

    void make(const std::vector<std::string>& names) const
    {
        for (const std::string& name : names) {
            write(name, name);
        }
    }

    /// Present file -> the name it once had.
    std::map<std::string, std::string> files() const
    {
        std::map<std::string, std::string> found;
        for (const auto& entry : std::filesystem::directory_iterator(folder_)) {
            std::getline(std::ifstream(entry.path()), found[entry.path().filename()]);
        }
        return found;
    }

    std::string folder_;
};

constexpr u_int8_t kGenerations = 30;

class Rotation : public Folder {
protected:
    void rotate(unsigned char count)
    {
        SysManager manager;
        (manager.*exposed(RotateFile{}))(path("cam.avi"), count);
    }

    static std::string generation(int number)
    {
        const std::string text = std::to_string(number);
        return "cam.avi." + (number < 10 ? "0" + text : text) + ".avi";
    }
};

TEST_F(Rotation, LosesMoreThanTheOldestOfAFullSeries)
{
    make({"cam.avi"});
    std::map<std::string, std::string> expected{{generation(0), "cam.avi"}};
    for (int number = 0; number <= kGenerations; ++number) {
        make({generation(number)});
        if (number < kGenerations) {
            expected[generation(number + 1)] = generation(number);
        }
    }
    rotate(kGenerations);
    EXPECT_EQ(files(), expected);
}

TEST_F(Rotation, ClosesTheGapsOfASeries)
{
    make({"cam.avi", generation(0), generation(5)});
    rotate(kGenerations);
    EXPECT_EQ(files(), (std::map<std::string, std::string>{{generation(0), "cam.avi"},
                                                           {generation(1), generation(0)},
                                                           {generation(6), generation(5)}}));
}

TEST_F(Rotation, KeepsMoreThanOneGenerationWhenNoneIsToBeShifted)
{
    make({"cam.avi", generation(0), generation(1)});
    rotate(0);
    EXPECT_EQ(files(), (std::map<std::string, std::string>{{generation(0), "cam.avi"},
                                                           {generation(1), generation(1)}}));
}

TEST_F(Rotation, StopsWhereTheLiveFileIsMissing)
{
    make({generation(0), generation(2), "other.avi"});
    rotate(2);
    EXPECT_EQ(files(), (std::map<std::string, std::string>{{generation(1), generation(0)},
                                                           {"other.avi", "other.avi"}}));
}

TEST(SequenceNumber, LosesItsLeadingZeroOrItsTerminator)
{
    EXPECT_EQ(digits(0), "00");
    EXPECT_EQ(digits(7), "07");
    EXPECT_EQ(digits(30), "30");
    EXPECT_EQ(digits(99), "99");
    EXPECT_EQ(digits(100), ":0");
}

struct BitrateText {
    const char* name;
    const char* text;
    u_int32_t kbps;
};

class BitrateFile : public Folder, public testing::WithParamInterface<BitrateText> {};

TEST_P(BitrateFile, IsMisread)
{
    write("config/bitrate", GetParam().text);
    SysManager manager;
    SysData& sys = manager.*exposed(Record{});
    sys.core.cfg.path = folder_;
    sys.media.cam.cfgBitrate = 1;
    (manager.*exposed(ReadBitrate{}))();
    EXPECT_EQ(sys.media.cam.cfgBitrate, GetParam().kbps);
}

INSTANTIATE_TEST_SUITE_P(
    SysManager, BitrateFile,
    testing::Values(BitrateText{"Plain", "4000\n", 4000}, BitrateText{"Spaced", " \t1500\r\n\n", 1500},
                    BitrateText{"TwoDigits", "12", 12}, BitrateText{"OneDigit", "8", 2000},
                    BitrateText{"Letters", "12a", 2000}, BitrateText{"Signed", "-100", 2000},
                    BitrateText{"TwoNumbers", "10 20", 2000}, BitrateText{"Empty", "", 2000},
                    BitrateText{"LargestInt", "2147483647", INT_MAX}),
    [](const auto& row) { return std::string(row.param.name); });

TEST_F(Folder, ABitrateBeyondIntIsTakenForAnother)
{
    SysManager manager;
    (manager.*exposed(Record{})).core.cfg.path = folder_;
    for (const char* text : {"2147483648", "99999999999999999999999"}) {
        write("config/bitrate", text);
        EXPECT_THROW((manager.*exposed(ReadBitrate{}))(), std::out_of_range) << text;
    }
}

TEST_F(Folder, AMissingBitrateFileLeavesAnotherBitrateThanTheDefault)
{
    SysManager manager;
    SysData& sys = manager.*exposed(Record{});
    sys.core.cfg.path = folder_;
    sys.media.cam.cfgBitrate = 1;
    (manager.*exposed(ReadBitrate{}))();
    EXPECT_EQ(sys.media.cam.cfgBitrate, 2000U);
}

/// A system manager on queues of its own and without cameras, whose control passes the test makes one by one.
class Control : public Folder {
protected:
    void SetUp() override
    {
        Folder::SetUp();
        // The folder's name is unique, so are the queues'.
        const std::string name = "/" + std::filesystem::path(folder_).filename().string();
        received_ = name + "-rx";
        sent_ = name + "-tx";
        auto& endpoint = manager_.*exposed(Endpoint{});
        endpoint = std::make_unique<ipc_queue>(received_.c_str(), sent_.c_str(), false, packets());
        ASSERT_TRUE(endpoint->isConnected());
        peer_ = mq_open(sent_.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
        ASSERT_NE(peer_, -1);
        manager_.*exposed(Protocol{}) = std::make_unique<IPCBus>(&sys_, endpoint.get());
        manager_.*exposed(Video{}) = std::make_unique<VideoManager>(&sys_);
        sys_.core.cfg.path = folder_;
        sys_.core.cfg.recordPath = folder_ + "/";
        std::filesystem::create_directory(path("config"));
    }

    void TearDown() override
    {
        mq_close(peer_);
        mq_unlink(received_.c_str());
        mq_unlink(sent_.c_str());
        Folder::TearDown();
    }

    SharedQueue<IPCQ_PACKET>& packets() { return manager_.*exposed(Received{}); }

    void receive(u_int8_t id, const std::vector<u_int8_t>& data)
    {
        IPCQ_PACKET packet;
        packet.id = id;
        std::copy(data.begin(), data.end(), std::begin(packet.data));
        packets().push(packet);
    }

    /// The reports of `count` passes, by their state byte.
    std::vector<int> passes(int count)
    {
        std::vector<int> states;
        for (int pass = 0; pass < count; ++pass) {
            (manager_.*exposed(ControlPass{}))();
            constexpr std::size_t kLargestFrame = 106;
            std::array<char, kLargestFrame> frame = {};
            while (mq_receive(peer_, frame.data(), frame.size(), nullptr) > 0) {
                states.push_back(frame[4]);
            }
        }
        return states;
    }

    /// What one pass prints.
    std::string printed()
    {
        testing::internal::CaptureStdout();
        passes(1);
        return testing::internal::GetCapturedStdout();
    }

    std::string bitrateText() const
    {
        std::string text;
        std::getline(std::ifstream(path("config/bitrate")), text);
        return text;
    }

    /// Stops and destroys the manager. A thread that cannot be ended makes this hang; the limit is the test
    /// runner's.
    std::chrono::steady_clock::duration end()
    {
        const auto begin = std::chrono::steady_clock::now();
        manager_.stop();
        owned_.reset();
        return std::chrono::steady_clock::now() - begin;
    }

    std::unique_ptr<SysManager> owned_ = std::make_unique<SysManager>();
    SysManager& manager_ = *owned_;
    SysData& sys_ = manager_.*exposed(Record{});
    std::string received_;
    std::string sent_;
    mqd_t peer_ = -1;
};

constexpr u_int8_t kStatusReport = 17;
constexpr u_int8_t kStateRequest = 18;
constexpr u_int8_t kBitrateSelection = 20;

TEST_F(Control, SpreadsABurstOverPassesOrReportsInBetween)
{
    for (const u_int8_t state : std::vector<u_int8_t>{2, 4, 2, 4, 2}) {
        receive(kStateRequest, {state});
    }
    EXPECT_EQ(passes(2), (std::vector<int>{0, 2})) << "the report goes out before the state is applied";
    EXPECT_TRUE(packets().empty());
}

TEST_F(Control, ActsOnAStateThatNobodyKnowsOrGetsStuckInIt)
{
    receive(kStateRequest, {3, 1, 2, 3, 4});
    EXPECT_EQ(printed(), "");
    EXPECT_EQ(int{sys_.media.state.load()}, 3);
    receive(kStateRequest, {2, 1, 2, 3, 4});
    EXPECT_EQ(printed(), "Req State Camera\n");
}

TEST_F(Control, RepeatsATransition)
{
    receive(kStateRequest, {4});
    EXPECT_EQ(printed(), "Req State BackupCam\n");
    receive(kStateRequest, {4});
    EXPECT_EQ(printed(), "");
}

TEST_F(Control, ForgetsTheCapturedInputsWhenIdle)
{
    receive(kStateRequest, {SysData::MMS_TRANSFER, 1, 2, 3, 4});
    EXPECT_EQ(printed(), "Req State Transfer\n");
    receive(kStateRequest, {0, 1, 2, 3, 4});
    EXPECT_EQ(printed(), "Req State Idle\n");
    const auto& channels = sys_.media.cam.channels;
    EXPECT_EQ((std::vector<int>(channels.begin(), channels.end())), (std::vector<int>{0, 0, 3, 4}));
}

TEST_F(Control, LosesASelectedBitrateOrSavesItOverAndOver)
{
    passes(1);
    receive(kBitrateSelection, {2});
    passes(10);
    EXPECT_EQ(bitrateText(), "4000");
    write("config/bitrate", "kept");
    passes(10);
    EXPECT_EQ(bitrateText(), "kept");
}

TEST_F(Control, TheClockStaysWithTheZoneItFoundFirst)
{
    const auto hourAtNoon = [] {
        constexpr time_t kNoon = 43200;
        std::tm local = {};
        ::localtime_r(&kNoon, &local);
        return local.tm_hour;
    };
    ::setenv("TZ", "UTC", 1);
    passes(10);
    EXPECT_EQ(hourAtNoon(), 12);
    ::setenv("TZ", "ABC-02", 1);
    passes(10);
    EXPECT_EQ(hourAtNoon(), 14);
    ::unsetenv("TZ");
    passes(10);
}

constexpr std::chrono::seconds kPatience{10};

TEST_F(Control, CannotEndWhileNobodyReadsItsReports)
{
    const mqd_t send = mq_open(sent_.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
    while (mq_send(send, "", 0, 0) == 0) {
    }
    mq_close(send);
    manager_.start();
    EXPECT_LT(end(), kPatience);
}

TEST_F(Control, CannotEndWhileNoFrameLoopClosesTheFile)
{
    sys_.media.cam.canRecord = true;
    receive(kStateRequest, {SysData::MMS_VIDEOPLAY});
    manager_.start();
    while (sys_.media.state != SysData::MMS_VIDEOPLAY) {
        std::this_thread::yield();
    }
    EXPECT_LT(end(), kPatience);
}

TEST_F(Control, CannotEndInTheMiddleOfARun)
{
    mq_attr blocking = {};
    mq_setattr(peer_, &blocking, nullptr);
    testing::internal::CaptureStdout();
    manager_.start();
    std::thread controller([&] {
        constexpr std::size_t kLargestFrame = 106;
        std::array<char, kLargestFrame> frame = {};
        while (mq_receive(peer_, frame.data(), frame.size(), nullptr) > 0 && frame[2] != kStatusReport) {
        }
        manager_.exitApplication();
    });
    manager_.runVmgr();
    controller.join();
    EXPECT_LT(end(), kPatience);
    EXPECT_THAT(testing::internal::GetCapturedStdout(),
                testing::ContainsRegex(
                    "Encoded [0-9]+ Frames in [0-9]+\\.[0-9]{4} Seconds\nFPS [0-9]+\\.[0-9]{2}\n"));
}

struct FileSize {
    const char* name;
    std::uintmax_t bytes;
    bool canRecord;
    SysData::MM_STATE state;
    bool rotated;
};

class SizeLimit : public Control, public testing::WithParamInterface<FileSize> {
protected:
    /// The file is rotated between two answers of a frame loop.
    void passWithFrameLoop()
    {
        std::atomic<bool> done{false};
        std::thread frameLoop([&] {
            while (!done) {
                (manager_.*exposed(Video{}))->run();
            }
        });
        passes(1);
        done = true;
        frameLoop.join();
    }
};

TEST_P(SizeLimit, IsAppliedWhereItShouldNotOrTheOtherWayRound)
{
    write("cam.avi", "");
    std::filesystem::resize_file(path("cam.avi"), GetParam().bytes);
    sys_.media.cam.canRecord = GetParam().canRecord;
    sys_.media.state = GetParam().state;
    sys_.media.reqState = GetParam().state;
    constexpr u_int32_t kLastTick = 59;
    manager_.*exposed(Ticks{}) = kLastTick;

    passWithFrameLoop();

    EXPECT_EQ(std::filesystem::exists(path("cam.avi")), !GetParam().rotated);
    EXPECT_EQ(std::filesystem::exists(path("cam.avi.00.avi")), GetParam().rotated);
    EXPECT_EQ(manager_.*exposed(Ticks{}), 0U);
}

INSTANTIATE_TEST_SUITE_P(
    Recording, SizeLimit,
    testing::Values(FileSize{"AtTheLimit", 599999999, true, SysData::MMS_IDLE, false},
                    FileSize{"AByteAbove", 600000000, true, SysData::MMS_IDLE, true},
                    FileSize{"WhilePlaying", 600000000, true, SysData::MMS_VIDEOPLAY, false},
                    FileSize{"WithoutAMount", 600000000, false, SysData::MMS_CAMERA, false}),
    [](const auto& row) { return std::string(row.param.name); });

}  // namespace
