// kill -9 at any moment: what was written as a whole is found, the next run goes on, and the file plays.

#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <list>
#include <random>
#include <set>

#include "Ledger.h"
#include "board/Board.h"
#include "support/Panel.h"

namespace {

using support::Command;
using support::operator+;
using support::Panel;
using survival::Ledger;

constexpr int kKilled = 128 + SIGKILL;

/// A daemon's recording that is continued by runs which are all killed.
class Chain {
public:
    explicit Chain(std::string cpu) : cpu_(std::move(cpu)), ledger_(panel_.recording()) {}

    /// A run that the fault kills; it may end in order when it does not get there.
    void runUntil(const std::string& fault)
    {
        panel_.start(options({"--frames", "40", "--fault", fault}), {support::program("velcamd")},
                     Panel::Reader::kNone);
        const auto status = panel_.awaitEnd();
        ASSERT_TRUE(status == kKilled) << fault << " ended with " << status.value_or(-1) << panel_.errors();
        takeNote(fault);
    }

    /// A run that is killed so many milliseconds after it was started.
    void runFor(std::chrono::milliseconds life)
    {
        const auto begun = support::Clock::now();
        panel_.start(options({}), {support::program("velcamd")}, Panel::Reader::kNone);
        pid_t process = 0;
        ASSERT_TRUE(support::waitUntil([&] {
            const board::Board board(panel_.board());
            process = board.usable() ? static_cast<pid_t>(board.state().program) : 0;
            return process > 0;
        })) << panel_.errors();
        std::this_thread::sleep_until(begun + life);  // the moment is the test's own choice, not an event
        ::kill(process, SIGKILL);
        ASSERT_TRUE(panel_.awaitEnd() == kKilled) << panel_.errors();
        takeNote("after " + std::to_string(life.count()) + " ms");
    }

    /// One more run, of its own accord, and all of the file is judged.
    void finish(const std::string& phase)
    {
        panel_.start(options({"--frames", "30"}));
        ASSERT_EQ(panel_.awaitEnd(), 0) << panel_.errors();
        takeNote("in the end");
        const size_t whole = ledger_.chunks().size();
        EXPECT_EQ(survival::judgeRepaired(panel_.recording(), whole + ledger_.unpadded()), "");
        const size_t seen = survival::packetsSeen(panel_.recording());
        if (headerWhole_) {
            // A player goes by a torn chunk's size, and then looks for the next chunk.
            EXPECT_GE(seen + ledger_.swallowed() + ledger_.tears(), whole);
        }
        survival::report("kill", {{phase, instants_ - 1},
                                  {"chunks", whole},
                                  {"missing", missing_},
                                  {"tears", ledger_.tears()},
                                  {"swallowed", ledger_.swallowed()},
                                  {"packets", seen},
                                  {"decoded", survival::play(panel_.recording()).frames}});
    }

    void expectTornHeader() { headerWhole_ = false; }

private:
    Command options(const Command& more) const { return Command{"--cpu", cpu_, "--fps", "max"} + more; }

    void takeNote(const std::string& instant)
    {
        ++instants_;
        ledger_.closeRun();
        const auto missing = ledger_.missing();
        missing_ += missing.size();
        EXPECT_TRUE(missing.empty()) << instant << ": a chunk at " << missing.front().offset
                                     << " is not found";
    }

    std::string cpu_;
    Panel panel_;
    Ledger ledger_;
    size_t instants_ = 0;
    size_t missing_ = 0;
    bool headerWhole_ = true;
};

std::string nth(const std::string& call, int number, const char* end = "kill")
{
    return call + "#" + std::to_string(number) + "=" + end;
}

class KillOf : public testing::TestWithParam<const char*> {
protected:
    Chain chain_{GetParam()};
};

TEST_P(KillOf, DuringStartUp)
{
    for (const char* call :
         {"open@/velmarine/config/VelMain.cfg", "open@/velmarine/config/bitrate", "mq_open@/zentcam",
          "mq_open@/zentipc", "open@/dev/mxc_ipu", "open@/dev/fb1", "open@/dev/video0",
          "VIDIOC_REQBUFS@/dev/video0", "stat@*/cam.avi", "open@*/cam.avi", "write@*/cam.avi",
          "vpu_EncOpen@*", "vpu_EncRegisterFrameBuffer@*", "VIDIOC_STREAMON@/dev/video1",
          "VIDIOC_DQBUF@/dev/video0"}) {
        ASSERT_NO_FATAL_FAILURE(chain_.runUntil(nth(call, 1)));
    }
    chain_.finish("startUp");
}

TEST_P(KillOf, InsideTheHeader)
{
    chain_.expectTornHeader();
    ASSERT_NO_FATAL_FAILURE(chain_.runUntil(nth("write@*/cam.avi", 1, "tear")));
    chain_.finish("header");
}

TEST_P(KillOf, InsideAChunk)
{
    const int step = support::isLong() ? 1 : 5;
    for (int write = 2; write < 36; write += step) {
        ASSERT_NO_FATAL_FAILURE(chain_.runUntil(nth("write@*/cam.avi", write, "tear")));
        ASSERT_NO_FATAL_FAILURE(chain_.runUntil(nth("write@*/cam.avi", write + step / 2)));
    }
    chain_.finish("chunk");
}

TEST_P(KillOf, BetweenTheDevicesCalls)
{
    const int step = support::isLong() ? 2 : 12;
    for (const char* call : {"IPU_QUEUE_TASK@*", "vpu_EncStartOneFrame@*", "VIDIOC_QBUF@/dev/video1"}) {
        for (int occurrence = 5; occurrence < 35; occurrence += step) {
            ASSERT_NO_FATAL_FAILURE(chain_.runUntil(nth(call, occurrence)));
        }
    }
    chain_.finish("devices");
}

TEST_P(KillOf, WhileTheRecordingIsSavedOrStatusSent)
{
    for (const char* call : {"fsync@*/cam.avi", "fsync@*/camrecord*", "mq_send@*"}) {
        ASSERT_NO_FATAL_FAILURE(chain_.runUntil(nth(call, 1)));
    }
    chain_.finish("saving");
}

TEST_P(KillOf, AtShutdown)
{
    for (const char* call :
         {"vpu_EncClose@*", "close@*/cam.avi", "VIDIOC_STREAMOFF@/dev/video0", "IPU_FREE@*",
          "close@/dev/mxc_ipu", "open@*/VelCam.log", "unlink@*/VelCam.log"}) {
        ASSERT_NO_FATAL_FAILURE(chain_.runUntil(nth(call, 1)));
    }
    chain_.finish("shutdown");
}

TEST_P(KillOf, AtRandomMoments)
{
    const unsigned seed = std::random_device()();
    RecordProperty("seed", static_cast<int>(seed));
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 chance(seed);
    std::uniform_int_distribution<int> life(5, 600);
    const int kills = support::isLong() ? 120 : 8;
    for (int kill = 0; kill < kills; ++kill) {
        ASSERT_NO_FATAL_FAILURE(chain_.runFor(std::chrono::milliseconds(life(chance))));
    }
    chain_.finish("random");
}

/// A board whose recording is due to be rotated, with all its generations.
class FullSeries {
public:
    static constexpr int kGenerations = 30;
    static constexpr uintmax_t kDue = 600'000'000;  // bytes

    explicit FullSeries(std::string fault) : fault_(std::move(fault)) {}

    void prepare()
    {
        panel_.start({"--cpu", "dual-lite", "--fps", "max", "--frames", "10"});
        ASSERT_EQ(panel_.awaitEnd(), 0) << panel_.errors();
        begins_ = support::readFile(panel_.recording());
        std::filesystem::resize_file(panel_.recording(), kDue);
        for (int number = 0; number <= kGenerations; ++number) {
            ASSERT_TRUE(support::writeFile(generation(number), "was " + std::to_string(number)));
        }
    }

    /// Slowly, so that many boards can do it at once.
    void start(bool killed)
    {
        panel_.start(Command{"--cpu", "dual-lite", "--fps", "5"} +
                     (killed ? Command{"--fault", fault_} : Command{}));
    }

    void expectKilled() { EXPECT_EQ(panel_.awaitEnd(), kKilled) << fault_ << panel_.errors(); }

    /// Whatever happened to the names, only the oldest generations may be gone: one for each rotation that
    /// was begun.
    void expectNothingLost(int begun)
    {
        std::set<std::string> contents;
        bool recordingThere = false;
        for (const auto& entry : std::filesystem::directory_iterator(folder())) {
            const bool large = entry.file_size() >= kDue;
            recordingThere = recordingThere || (large && head(entry.path()) == begins_);
            contents.insert(large ? "" : support::readFile(entry.path()));
        }
        EXPECT_TRUE(recordingThere) << fault_;
        for (int number = 0; number <= kGenerations - begun; ++number) {
            EXPECT_EQ(contents.count("was " + std::to_string(number)), 1U) << number << " after " << fault_;
        }
    }

    /// The run after it: rotates what is still due and records on.
    void expectGoesOn()
    {
        EXPECT_TRUE(support::waitUntil([&] {
            std::error_code absent;
            const auto size = std::filesystem::file_size(panel_.recording(), absent);
            return !absent && size < kDue && !survival::chunksFound(panel_.recording()).empty();
        })) << fault_;
        EXPECT_EQ(panel_.end(), 0) << panel_.errors();
        Ledger ledger(panel_.recording());
        ledger.closeRun();
        EXPECT_EQ(ledger.tears(), 0U) << fault_;
        EXPECT_GT(ledger.chunks().size(), 0U) << fault_;
    }

private:
    std::string folder() const { return panel_.file("/velmarine/f/camrecord"); }
    std::string generation(int number) const
    {
        return panel_.recording() + (number < 10 ? ".0" : ".") + std::to_string(number) + ".avi";
    }
    std::string head(const std::string& path) const
    {
        std::string bytes(begins_.size(), '\0');
        std::ifstream(path, std::ios::binary).read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
        return bytes;
    }

    std::string fault_;
    std::string begins_;
    Panel panel_;
};

TEST(Kill, DuringRotation)
{
    std::vector<std::string> faults{"unlink@*.30.avi#1=kill", "rename@*.29.avi#1=kill",
                                    "rename@*.00.avi#1=kill", "rename@*/cam.avi#1=kill",
                                    "close@*/cam.avi#1=kill", "open@*/cam.avi#3=kill"};
    for (int number = 28; support::isLong() && number > 0; --number) {
        faults.push_back(std::string("rename@*.") + (number < 10 ? "0" : "") + std::to_string(number) +
                         ".avi#1=kill");
    }
    constexpr size_t kAtOnce = 6;  // boards that are up together
    for (size_t first = 0; first < faults.size(); first += kAtOnce) {
        std::list<FullSeries> boards;
        for (size_t i = first; i < std::min(first + kAtOnce, faults.size()); ++i) {
            ASSERT_NO_FATAL_FAILURE(boards.emplace_back(faults[i]).prepare());
        }
        for (const bool killed : {true, false}) {
            for (FullSeries& board : boards) {
                board.start(killed);
            }
            for (FullSeries& board : boards) {
                killed ? board.expectKilled() : board.expectGoesOn();
                board.expectNothingLost(killed ? 1 : 2);
            }
        }
    }
    survival::report("kill", {{"rotation", faults.size()}});
}

INSTANTIATE_TEST_SUITE_P(A, KillOf, testing::Values("quad", "dual-lite"), [](const auto& chosen) {
    return std::string(chosen.param[0] == 'q' ? "Quad" : "DualLite");
});

}  // namespace
