#include "lib/logger.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "Folder.h"
#include "Stdout.h"

namespace {

constexpr u_int32_t kLimit = 1000;

using Files = std::map<std::string, std::string>;

class Log : public testing::Test {
protected:
    Log()
    {
        setZone("UTC");
        std::filesystem::create_directories(folder_.file("tmp"));
        std::filesystem::create_directories(folder_.file("logs"));
    }

    static void setZone(const char* zone)
    {
        ::setenv("TZ", zone, 1);
        ::tzset();
    }

    std::unique_ptr<logger> make(bool compact, u_int32_t limit = kLimit)
    {
        return std::make_unique<logger>(folder_.file("tmp/"), folder_.file("logs/"), "V.log", limit, compact);
    }

    std::string working() const { return support::readFile(folder_.file("tmp/V.log")); }
    void setWorking(const std::string& text) { support::writeFile(folder_.file("tmp/V.log"), text); }

    /// The files of the log folder with their contents.
    Files kept() const
    {
        Files files;
        for (const auto& entry : std::filesystem::directory_iterator(folder_.file("logs"))) {
            files[entry.path().filename()] = support::readFile(entry.path());
        }
        return files;
    }
    void keep(const Files& files)
    {
        for (const auto& [name, text] : files) {
            support::writeFile(folder_.file("logs/" + name), text);
        }
    }

    support::Folder folder_;
    const unit::Stdout output_;
};

/// The text with every digit as 9.
std::string shape(std::string text)
{
    std::replace_if(
        text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; }, '9');
    return text;
}

TEST_F(Log, ALineHasAnotherFormat)
{
    const auto log = make(false);
    EXPECT_TRUE(log->log_item("text", logger::LOG_WARNING));
    EXPECT_TRUE(log->log_item(std::string(), logger::LOG_NOTICE));
    EXPECT_TRUE(log->log_item("%s%n", logger::LOG_ERROR));
    EXPECT_TRUE(log->log_item("d", logger::LOG_DEBUG));
    EXPECT_TRUE(log->log_item("d", static_cast<logger::LOG_TYPE>(7)));
    EXPECT_TRUE(make(true)->log_item("text", logger::LOG_WARNING));
    const std::string time = "99-99-9999 99:99:99 +9999";
    EXPECT_EQ(shape(output_.text()), time + " [Warning]: text\r\n" + time + " [Notice]: \r\n" + time +
                                         " [Error]: %s%n\r\n" + time + " [Debug]: d\r\n" + time +
                                         " [Debug]: d\r\n99999999999999: text\r\n");
    EXPECT_EQ(kept(), (Files{{"V.log", output_.text()}}));
}

TEST_F(Log, TheTimeIsNotLocal)
{
    setZone("XYZ-05:30");
    const auto log = make(false);
    const time_t before = ::time(nullptr);
    log->log_item("x", logger::LOG_ERROR);
    const std::string line = working();
    std::tm parts = {};
    const char* rest = ::strptime(line.c_str(), "%m-%d-%Y %H:%M:%S", &parts);
    ASSERT_NE(rest, nullptr) << line;
    EXPECT_STREQ(rest, " +0530 [Error]: x\r\n");
    const time_t logged = ::timegm(&parts) - (5 * 60 + 30) * 60;
    EXPECT_TRUE(before <= logged && logged <= ::time(nullptr)) << line;
}

TEST_F(Log, ALineBelowTheLevelIsWrittenOrRawTextChangedOrFiltered)
{
    const auto log = make(false);
    EXPECT_TRUE(log->write_text("raw"));
    EXPECT_EQ(output_.text(), "raw\n");
    log->setLevel(logger::LOG_WARNING);
    EXPECT_TRUE(log->write_text("more"));
    EXPECT_FALSE(log->log_item("notice", logger::LOG_NOTICE));
    EXPECT_EQ(output_.text(), "raw\n");
    EXPECT_EQ(working(), "rawmore");
    EXPECT_TRUE(log->log_item("warning", logger::LOG_WARNING));
    log->setLevel(4);
    EXPECT_FALSE(log->log_item("error", logger::LOG_ERROR));
    EXPECT_EQ(working().find("error"), std::string::npos);
}

TEST_F(Log, AWorkingFileThatCannotBeOpenedSilencesTheLog)
{
    std::filesystem::create_directory(folder_.file("tmp/V.log"));
    const auto log = make(true);
    EXPECT_FALSE(log->log_item("text", logger::LOG_ERROR));
    EXPECT_FALSE(log->write_text("raw"));
    EXPECT_NE(output_.text().find(": text\r\n"), std::string::npos);
    EXPECT_EQ(kept(), Files());
}

TEST_F(Log, LinesOfSeveralThreadsMix)
{
    constexpr int kLines = 200;
    auto log = make(true);
    std::vector<std::thread> threads;
    const std::string names = "abcd";
    for (const char name : names) {
        threads.emplace_back([&log, name] {
            for (int i = 0; i < kLines; ++i) {
                log->log_item(std::string(60, name), logger::LOG_NOTICE);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(output_.text(), working());
    std::map<std::string, int> lines;
    std::istringstream written(shape(working()));
    for (std::string line; std::getline(written, line);) {
        ++lines[line];
    }
    std::map<std::string, int> expected;
    for (const char name : names) {
        expected["99999999999999: " + std::string(60, name) + "\r"] = kLines;
    }
    EXPECT_EQ(lines, expected);
}

TEST_F(Log, TheEndOfARunLosesItsLines)
{
    keep({{"V.log", "earlier\r\n"}});
    setWorking("crashed run\r\n");
    auto log = make(true);
    log->write_text("this run\r\n");
    EXPECT_EQ(kept(), (Files{{"V.log", "earlier\r\n"}}));
    log.reset();
    EXPECT_EQ(kept(), (Files{{"V.log", "earlier\r\ncrashed run\r\nthis run\r\n"}}));
    EXPECT_FALSE(std::filesystem::exists(folder_.file("tmp/V.log")));
}

TEST_F(Log, AnAppendThatFailsKeepsTheWorkingFile)
{
    std::filesystem::remove(folder_.file("logs"));
    setWorking("lines");
    make(true)->process();
    EXPECT_FALSE(std::filesystem::exists(folder_.file("tmp/V.log")));
}

TEST_F(Log, TheLimitIsOffByOneOrRotationLosesOrKeepsTheWrongGeneration)
{
    struct Case {
        bool compact;
        u_int32_t limit;
        const char* working;
        Files before, after;
    };
    const std::string atLimit(kLimit, 'x');
    const std::string large = atLimit + "x";
    const Case cases[] = {
        {true, kLimit, "", {{"V.log", atLimit}}, {{"V.log", atLimit}}},
        {true, kLimit, "x", {{"V.log", atLimit}}, {{"V.log.0", large}}},
        {true,
         kLimit,
         "",
         {{"V.log", large}, {"V.log.0", "0"}, {"V.log.1", "1"}, {"V.log.3", "3"}, {"V.log.4", "4"}},
         {{"V.log.0", large}, {"V.log.1", "0"}, {"V.log.2", "1"}, {"V.log.4", "3"}}},
        {false, kLimit, "", {{"V.log", large}, {"V.log.0", "0"}}, {{"V.log.0", "0"}}},
        {false, 0x80000000U, "", {{"V.log", "x"}}, {}},  // a signed number
    };
    for (const Case& one : cases) {
        std::filesystem::remove_all(folder_.file("logs"));
        keep(one.before);
        setWorking(one.working);
        make(one.compact, one.limit)->process();
        EXPECT_EQ(kept(), one.after);
    }
}

TEST_F(Log, AFailedRotationLeavesAnOversizeLog)
{
    std::filesystem::create_directory(folder_.file("logs/V.log.0"));
    keep({{"V.log", std::string(kLimit + 1, 'x')}});
    make(true)->process();
    EXPECT_FALSE(std::filesystem::exists(folder_.file("logs/V.log")));
    EXPECT_TRUE(std::filesystem::is_directory(folder_.file("logs/V.log.0")));
}

TEST_F(Log, ClearLeavesAFileOfTheLogOrTakesAnother)
{
    setWorking("w");
    keep({{"V.log", "p"}, {"V.log.0", "0"}, {"V.log.4", "4"}, {"V.log.5", "5"}, {"other", "o"}});
    make(true)->clear();
    EXPECT_EQ(kept(), (Files{{"V.log.5", "5"}, {"other", "o"}}));
    EXPECT_FALSE(std::filesystem::exists(folder_.file("tmp/V.log")));
}

}  // namespace
