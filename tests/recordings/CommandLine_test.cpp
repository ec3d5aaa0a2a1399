#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>

#include "Console.h"
#include "Recordings.h"
#include "support/Child.h"

namespace {

using recordings::Tape;
using support::Command;
using support::Folder;
using support::operator+;
using support::Outcome;

Outcome velcamrec(const Command& arguments)
{
    return support::runToEnd(Command{support::program("velcamrec")} + arguments);
}

TEST(CommandLine, AnswersBadUsageWithOneLineAndStatus2)
{
    for (const Command& arguments : std::vector<Command>{
             {},
             {"mend"},
             {"check"},
             {"list"},
             {"repair", "in.avi"},
             {"index", "in.avi", "-o", "out.mov"},
             {"cut", "in.avi", "-o", "out.avi", "--from", "1:2:3:4", "--to", "9"},
             {"cut", "in.avi", "-o", "out.avi", "--from", "-1", "--to", "9"},
             {"cut", "in.avi", "-o", "out.avi", "--from", "9", "--to", "9"},
             {"grab", "in.avi", "-o", "out.png"},
             {"grab", "in.avi", "-o", "out.png", "--at", "1", "--camera", "5"},
         }) {
        const Outcome outcome = velcamrec(arguments);
        EXPECT_EQ(outcome.status, 2) << testing::PrintToString(arguments);
        EXPECT_EQ(outcome.output, "");
        EXPECT_EQ(outcome.error.rfind("velcamrec: ", 0), 0U) << outcome.error;
        EXPECT_EQ(std::count(outcome.error.begin(), outcome.error.end(), '\n'), 1) << outcome.error;
    }
}

TEST(CommandLine, GivesHelpAndVersion)
{
    EXPECT_EQ(velcamrec({"--version"}).output, "velcamrec " VELCAM_VERSION "\n");
    for (const char* verb : {"list", "check", "repair", "index", "cut", "grab"}) {
        EXPECT_NE(velcamrec({"--help"}).output.find(verb), std::string::npos);
        EXPECT_EQ(velcamrec({verb, "--help"}).status, 0);
    }
}

TEST(CommandLine, ReportsDamageByTheExitStatus)
{
    const Folder folder;
    Tape tape;
    tape.session(4);
    EXPECT_EQ(velcamrec({"check", tape.path()}).status, 0);
    recordings::writeOld(folder.file("torn.avi"), tape.content().substr(0, tape.chunks[3] + 16));
    const Outcome outcome = velcamrec({"check", tape.path(), folder.file("torn.avi")});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_NE(outcome.output.find("offset " + std::to_string(tape.chunks[3])), std::string::npos)
        << outcome.output;
    EXPECT_EQ(outcome.error, "");
}

TEST(CommandLine, SaysInOneLineWhatCannotBeDone)
{
    const Folder folder;
    Tape tape;
    tape.session(4);
    support::writeFile(folder.file("there.avi"), "precious");
    recordings::writeOld(folder.file("junk"), std::string(recording::kHeaderBytes, 'j'));
    for (const Command& arguments : std::vector<Command>{
             {"repair", tape.path(), "-o", folder.file("there.avi")},
             {"repair", folder.file("junk"), "-o", folder.file("out.avi")},
             {"index", tape.path(), "-o", folder.file("there.avi")},
             {"index", folder.file("none.avi"), "-o", folder.file("out.avi")},
             {"index", tape.path(), "-o", folder.file("none/out.avi")},
             {"cut", tape.path(), "-o", folder.file("out.mp4"), "--from", "5", "--to", "9"},
             {"grab", tape.path(), "-o", folder.file("out.png"), "--at", "5"},
             {"grab", tape.path(), "-o", folder.file("out.png"), "--at",
              "0"},  // nothing in it can be decoded
         }) {
        const Outcome outcome = velcamrec(arguments);
        EXPECT_EQ(outcome.status, 1) << testing::PrintToString(arguments);
        EXPECT_EQ(std::count(outcome.error.begin(), outcome.error.end(), '\n'), 1) << outcome.error;
    }
    const auto files = std::filesystem::directory_iterator(folder.path());
    EXPECT_EQ(std::distance(begin(files), end(files)), 2) << "something was left behind";
    EXPECT_EQ(support::readFile(folder.file("there.avi")), "precious");
}

TEST(CommandLine, TakesAnOutputsNameForAProtocolsAddress)
{
    const Folder folder;
    Tape tape;
    tape.session(4);
    const std::string script = R"(cd "$1" && exec "$2" index "$3" -o "$4")";
    for (const char* name : {"12:30.mkv", "file:out.avi"}) {
        const Outcome outcome = support::runToEnd(
            {"/bin/sh", "-c", script, "sh", folder.path(), support::program("velcamrec"), tape.path(), name});
        EXPECT_EQ(outcome.status, 0) << outcome.error;
        EXPECT_GT(support::readFile(folder.file(name)).size(), tape.frames.front().size()) << name;
    }
    const auto files = std::filesystem::directory_iterator(folder.path());
    EXPECT_EQ(std::distance(begin(files), end(files)), 2) << "something was left behind";
}

TEST(CommandLine, DoesNotWaitForAPipe)
{
    const Folder folder;
    ASSERT_EQ(::mkfifo(folder.file("pipe").c_str(), 0600), 0);
    EXPECT_EQ(velcamrec({"check", folder.file("pipe")}).status, 2);
}

TEST(Times, AreReadInEveryUsualForm)
{
    using recording::parseTime;
    EXPECT_EQ(parseTime("90"), 90);
    EXPECT_EQ(parseTime("90.25"), 90.25);
    EXPECT_EQ(parseTime("25:00"), 1500);
    EXPECT_EQ(parseTime("1:02:03.5"), 3723.5);
    for (const char* text : {"", ":", "1:", ":1", "-1", "1.", ".5", "1.5:00", "1:2:3:4", "1e3", "0x10", "nan",
                             " 1", "99999999999999999999"}) {
        EXPECT_EQ(parseTime(text), std::nullopt) << text;
    }
    EXPECT_EQ(recording::clockText(3723.5), "1:02:03.500");
    EXPECT_EQ(recording::clockText(59.9996), "01:00.000");
}

}  // namespace
