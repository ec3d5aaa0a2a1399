// The launcher, run as its user runs it.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <mqueue.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "Child.h"
#include "Folder.h"
#include "OnBoard.h"
#include "Report.h"
#include "Wait.h"

namespace {

using support::Child;
using support::Command;
using support::operator+;
using support::Outcome;
using support::readFile;

/// A board on which a program waits at a gate: a pipe among the board's files that `cat` reads.
class Launcher : public ::testing::Test {
protected:
    Command runCommand(const std::string& board, const Command& options, const Command& program) const
    {
        return Command{support::program("vboard"), "run", "--board", folder_.file(board)} + options +
               Command{"--"} + program;
    }
    Outcome run(const Command& options, const Command& program) const
    {
        return support::runToEnd(runCommand("board", options, program));
    }
    Outcome shell(const std::string& script, const Command& options = {}) const
    {
        return run(options, {"/bin/sh", "-c", script});
    }
    Outcome vboard(const std::string& verb, const Command& arguments) const
    {
        return support::runToEnd(Command{support::program("vboard"), verb, "--board", folder_.file("board")} +
                                 arguments);
    }
    std::string onBoard(const std::string& path, const std::string& board = "board") const
    {
        return folder_.file(board + "/root" + path);
    }

    /// Starts a program that reads /velmarine/gate on a board.
    std::unique_ptr<Child> startWaiting(const Command& program, const Command& options = {},
                                        const std::string& board = "board") const
    {
        EXPECT_TRUE(support::writeFile(onBoard("/velmarine/made", board), ""));
        EXPECT_EQ(::mkfifo(onBoard("/velmarine/gate", board).c_str(), 0644), 0);
        return std::make_unique<Child>(runCommand(board, options, program), folder_.file(board + ".output"),
                                       folder_.file(board + ".errors"));
    }
    /// The gate's other end: there is one as soon as the program has come to it, and closing it lets the
    /// program pass. -1 when the program did not come.
    int reachGate(Child& child, const std::string& board = "board") const
    {
        int gate = -1;
        support::waitUntil([&] {
            gate = ::open(onBoard("/velmarine/gate", board).c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
            return gate != -1 || child.status();
        });
        return gate;
    }

    support::Folder folder_;
};

TEST_F(Launcher, APowerCutTakesWhatWasSynchronisedOrKeepsWhatCannotBeThere)
{
    const std::string write = "printf %09000d 0 >/velmarine/f/";
    const Command make{"/bin/sh", "-c",
                       write + "kept && sync /velmarine/f/kept && sync /velmarine/f && " + write +
                           "nameless && sync /velmarine/f/nameless"};
    ASSERT_EQ(run({"--journal"}, make).status, 0);
    const auto cut = [&](const std::string& seed, const std::string& into) {
        return vboard("cut", {"--at", "1000", "--seed", seed, into});
    };
    bool gone = false;
    for (int seed = 0; seed < 20; ++seed) {
        const std::string into = folder_.file("cut" + std::to_string(seed));
        const Outcome outcome = cut(std::to_string(seed), into);
        ASSERT_EQ(outcome.status, 0) << outcome.error;
        EXPECT_EQ(readFile(into + "/velmarine/f/kept").size(), 9000U);
        gone = gone || !std::filesystem::exists(into + "/velmarine/f/nameless");
    }
    EXPECT_TRUE(gone) << "a name that nobody has synchronised";
    EXPECT_EQ(cut("1", folder_.file("cut0")).status, 2) << "into a folder that has something";
}

TEST_F(Launcher, PassesTheProgramsExitStatusOn)
{
    EXPECT_EQ(shell("exit 7").status, 7);
    EXPECT_EQ(shell("kill -KILL $$").status, 128 + SIGKILL);
    EXPECT_EQ(run({}, {"/no/such/program"}).status, 127);
}

TEST_F(Launcher, KeepsTheProgramsOwnOptionsAndDashes)
{
    EXPECT_EQ(run({}, {"/bin/echo", "--fps", "--", "-x"}).output, "--fps -- -x\n");
    EXPECT_EQ(vboard("run", {"/bin/echo", "--fps", "--", "x"}).output, "--fps -- x\n");
}

TEST_F(Launcher, AnEmulatorRunsTheProgramWithTheLibraryThatIsGiven)
{
    const std::string library = folder_.file("other.so");
    std::filesystem::copy_file(support::program("libvboard.so"), library);
    const Command options{"--emulator", "/usr/bin/env  EMULATED=yes", "--library", library};
    const Outcome outcome = run(options, {"/bin/sh", "-c", "echo $EMULATED $LD_PRELOAD"});
    EXPECT_EQ(outcome.output.rfind("yes ", 0), 0U) << outcome.output << outcome.error;
    EXPECT_NE(outcome.output.find(std::filesystem::canonical(library).string()), std::string::npos);

    const Outcome without = run({"--library", "/no/such/library"}, {"/bin/true"});
    EXPECT_EQ(without.status, 2);
    EXPECT_NE(without.error.find("/no/such/library"), std::string::npos) << without.error;
}

TEST_F(Launcher, ANewBoardIsReadyToUse)
{
    const Outcome outcome = shell(
        "cat /velmarine/config/VelMain.cfg /velmarine/config/bitrate /velmarine/dev-csi/cam_status "
        "/velmarine/dev-fpd/fpd_status /proc/mounts && test -d /velmarine/f/camrecord -a -d "
        "/velmarine/f/video "
        "-a -d /velmarine/f/logs && test -s /usr/share/fonts/Ubuntu-C.ttf");
    EXPECT_EQ(outcome.status, 0) << outcome.error;
    EXPECT_EQ(outcome.output,
              "dir=/velmarine\nlog_level=0\n2000\n0x00,0x00,0x00,0x00\n1,1\n"
              "/dev/mmcblk0p3 /velmarine/f/camrecord ext4 rw 0 0\n");
}

TEST_F(Launcher, MountsAndCamerasAreNotAsTheOptionsSayOrFilesOfAnEarlierRunAreLost)
{
    EXPECT_EQ(shell("cat /proc/mounts", {"--no-mount"}).output, "");
    EXPECT_NE(shell("cat /proc/mounts").output, "");
    const std::string cameras = "cat /velmarine/dev-csi/cam_status";
    EXPECT_EQ(shell(cameras, {"--camera", "2=none"}).output, "0x00,0x01,0x00,0x00\n");
    EXPECT_EQ(shell(cameras, {"--camera", "2=pattern"}).output, "0x00,0x00,0x00,0x00\n");
    EXPECT_EQ(shell("echo 4000 >/velmarine/config/bitrate; echo 0x0A >/velmarine/dev-csi/cam_status").status,
              0);
    EXPECT_EQ(shell("cat /velmarine/config/bitrate; " + cameras).output, "4000\n0x0A\n");
}

TEST_F(Launcher, ASecondRunOnABoardThatIsUpIsRefused)
{
    const auto first = startWaiting({"/bin/cat", "/velmarine/gate"});
    const int gate = reachGate(*first);
    ASSERT_NE(gate, -1);
    const Outcome second = shell("echo ran");
    EXPECT_EQ(second.status, 2);
    EXPECT_EQ(second.output, "");
    EXPECT_EQ(std::count(second.error.begin(), second.error.end(), '\n'), 1) << second.error;
    ::close(gate);
    EXPECT_EQ(first->wait(), 0);
    EXPECT_EQ(shell("echo ran").output, "ran\n");
}

TEST_F(Launcher, SaysWhyABoardsFileCannotBeMade)
{
    std::filesystem::create_directories(folder_.file("board/memory.new/in the way"));
    const Outcome outcome = shell("true");
    EXPECT_EQ(outcome.status, 2);
    EXPECT_NE(outcome.error.find("/board/memory: " + std::string(std::strerror(EEXIST))), std::string::npos)
        << outcome.error;
}

TEST_F(Launcher, AnAttachedProgramSeesTheSameBoard)
{
    const auto first = startWaiting({"/bin/sh", "-c", "cat /velmarine/gate; cat /velmarine/f/left"});
    const int gate = reachGate(*first);
    ASSERT_NE(gate, -1);
    const Outcome attached =
        vboard("attach", {"--", "/bin/sh", "-c", "echo here > /velmarine/f/left; exit 3"});
    EXPECT_EQ(attached.status, 3) << attached.error;
    EXPECT_EQ(vboard("snapshot", {folder_.file("picture.png")}).status, 0);
    ::close(gate);
    EXPECT_EQ(first->wait(), 0);
    EXPECT_EQ(readFile(folder_.file("board.output")), "here\n");
    EXPECT_EQ(vboard("attach", {"--", "/bin/true"}).status, 2) << "the board is down";
}

TEST_F(Launcher, AnInterruptReachesTheProgram)
{
    const auto first = startWaiting({"/bin/sh", "-c", "trap 'exit 9' INT; cat /velmarine/gate & wait"});
    const int gate = reachGate(*first);
    ASSERT_NE(gate, -1);
    first->signal(SIGINT);
    EXPECT_EQ(first->wait(), 9);
    ::close(gate);
}

/// What the test below does on either board: finds its queue empty, leaves a message, waits at the gate.
void leaveAMessage()
{
    mq_attr attributes = {};
    attributes.mq_maxmsg = 2;
    attributes.mq_msgsize = 8;
    const mqd_t queue = ::mq_open("/zentcam", O_RDWR | O_CREAT, 0600, &attributes);
    ASSERT_NE(queue, -1) << std::strerror(errno);  // NOLINT(concurrency-mt-unsafe): one thread
    ASSERT_EQ(::mq_getattr(queue, &attributes), 0);
    EXPECT_EQ(attributes.mq_curmsgs, 0);
    EXPECT_EQ(::mq_send(queue, "x", 1, 0), 0);
    readFile("/velmarine/gate");
}

TEST_F(Launcher, BoardsSideBySideKeepTheirQueuesApart)
{
    if (support::onBoard()) {
        leaveAMessage();
        return;
    }
    const std::string self = std::filesystem::read_symlink("/proc/self/exe").string();
    const Command program{self, "--gtest_filter=Launcher.BoardsSideBySideKeepTheirQueuesApart"};
    const auto first = startWaiting(program, {}, "one");
    const int firstGate = reachGate(*first, "one");
    ASSERT_NE(firstGate, -1) << readFile(folder_.file("one.output"));
    const auto second = startWaiting(program, {}, "two");
    const int secondGate = reachGate(*second, "two");
    ::close(firstGate);
    ::close(secondGate);
    EXPECT_EQ(first->wait(), 0) << readFile(folder_.file("one.output"));
    EXPECT_EQ(second->wait(), 0) << readFile(folder_.file("two.output"));
}

TEST_F(Launcher, AFilmOfAnotherRateKeepsItsPace)
{
    // Black and white in turn, ten pictures a second, for a board that wants thirty.
    const std::string film = folder_.file("film.mkv");
    const Outcome made =
        support::runToEnd({"/usr/bin/ffmpeg", "-nostdin", "-v", "error", "-f", "lavfi", "-i",
                           "color=black:size=64x48:rate=10,geq=lum='255*mod(N,2)':cb=128:cr=128", "-frames:v",
                           "4", "-c:v", "ffv1", film});
    ASSERT_EQ(made.status, 0) << made.error;
    const Command camera{"--camera", "1=file:" + film};
    constexpr size_t kPictureBytes = 518400;
    const auto brightness = [&](const Command& pace) {
        const Outcome read =
            shell("head -c 9331200 \"$VBOARD_FOLDER/camera1\" > /velmarine/pictures", camera + pace);
        const std::string pictures = readFile(onBoard("/velmarine/pictures"));
        std::string changes;
        for (size_t at = 0; at < pictures.size(); at += kPictureBytes) {
            changes += static_cast<unsigned char>(pictures[at]) > 128 ? 'W' : 'B';
        }
        return changes + read.error;
    };
    EXPECT_EQ(brightness({"--fps", "30"}), "BBBWWWBBBWWWBBBWWW");
    EXPECT_EQ(brightness({"--fps", "max"}), "BWBWBWBWBWBWBWBWBW");
}

TEST_F(Launcher, ASourceThatEndsIsSaidOnceAndTheProgramGoesOn)
{
    ASSERT_TRUE(support::writeFile(folder_.file("film"), "no film"));
    const auto program =
        startWaiting({"/bin/cat", "/velmarine/gate"}, {"--camera", "3=file:" + folder_.file("film")});
    const int gate = reachGate(*program);
    ASSERT_NE(gate, -1);
    const auto said = [&] {
        return readFile(folder_.file("board.errors")).find("camera 3 has ended") != std::string::npos;
    };
    EXPECT_TRUE(support::waitUntil(said));
    ::close(gate);
    EXPECT_EQ(program->wait(), 0);
    const std::string errors = readFile(folder_.file("board.errors"));
    EXPECT_EQ(std::count(errors.begin(), errors.end(), '\n'), 1) << errors;
}

TEST_F(Launcher, TheReportSaysWhichFaultsFiredAndWhichCould)
{
    const std::string slow = "write@/velmarine/f/*#1=slow:20";
    const std::string full = "write@/velmarine/f/a#2/2=ENOSPC";
    const auto began = support::Clock::now();
    const Outcome outcome =
        shell("echo a > /velmarine/f/a; echo b > /velmarine/f/a; true",
              {"--report", folder_.file("report"), "--list-calls", "--fault", slow, "--fault", full});
    EXPECT_GE(support::Clock::now() - began, support::Duration{20});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_NE(outcome.error, "");
    EXPECT_EQ(readFile(onBoard("/velmarine/f/a")), "");
    const support::Report report = support::Report::read(folder_.file("report"));
    ASSERT_TRUE(report.complete());
    EXPECT_EQ(report.faultsFired(), 2U);
    for (const std::string& rule : {slow, full}) {
        EXPECT_NE(readFile(folder_.file("report")).find('"' + rule + '"'), std::string::npos) << rule;
    }
    uint64_t writes = 0;
    for (const support::CallTarget& made : report.callTargets()) {
        writes += made.call == "write" && made.target == "/velmarine/f/a" ? made.count : 0;
    }
    EXPECT_EQ(writes, 2U);
}

}  // namespace
