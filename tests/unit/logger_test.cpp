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
    std::map<std::string, std::string> kept() const
    {
        std::map<std::string, std::string> files;
        for (const auto& entry : std::filesystem::directory_iterator(folder_.file("logs"))) {
            files[entry.path().filename()] = support::readFile(entry.path());
        }
        return files;
    }
    void keep(const std::map<std::string, std::string>& files)
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

using Files = std::map<std::string, std::string>;

TEST_F(Log, AFullLineHasAnotherFormat)
{
    const auto log = make(false);
    EXPECT_TRUE(log->log_item("text", logger::LOG_WARNING));
    EXPECT_TRUE(log->log_item(std::string(), logger::LOG_NOTICE));
    EXPECT_TRUE(log->log_item("%s%n", logger::LOG_ERROR));
    EXPECT_TRUE(log->log_item("d", logger::LOG_DEBUG));
    EXPECT_TRUE(log->log_item("d", static_cast<logger::LOG_TYPE>(7)));
    const std::string time = "99-99-9999 99:99:99 +9999";
    EXPECT_EQ(shape(working()), time + " [Warning]: text\r\n" + time + " [Notice]: \r\n" + time +
                                    " [Error]: %s%n\r\n" + time + " [Debug]: d\r\n" + time +
                                    " [Debug]: d\r\n");
    EXPECT_EQ(output_.text(), working());
}

TEST_F(Log, ACompactLineHasAnotherFormat)
{
    const auto log = make(true);
    EXPECT_TRUE(log->log_item("text", logger::LOG_WARNING));
    EXPECT_EQ(shape(working()), "99999999999999: text\r\n");
    EXPECT_EQ(output_.text(), working());
}

TEST_F(Log, TheTimeIsNotLocal)
{
    setZone("XYZ-05:30");
    const auto log = make(false);
    char before[80];
    char after[80];
    const auto stamp = [](char(&text)[80]) {
        const time_t now = ::time(nullptr) + (5 * 60 + 30) * 60;
        std::tm parts = {};
        ::gmtime_r(&now, &parts);
        ::strftime(text, sizeof text, "%m-%d-%Y %H:%M:%S +0530", &parts);
    };
    stamp(before);
    log->log_item("x", logger::LOG_ERROR);
    stamp(after);
    const std::string line = working();
    EXPECT_TRUE(line == std::string(before) + " [Error]: x\r\n" ||
                line == std::string(after) + " [Error]: x\r\n")
        << line;
}

TEST_F(Log, ALineBelowTheLevelIsWritten)
{
    const auto log = make(false);
    log->setLevel(logger::LOG_WARNING);
    EXPECT_FALSE(log->log_item("notice", logger::LOG_NOTICE));
    EXPECT_EQ(output_.text() + working(), "");
    EXPECT_TRUE(log->log_item("warning", logger::LOG_WARNING));
    log->setLevel(4);
    EXPECT_FALSE(log->log_item("error", logger::LOG_ERROR));
    EXPECT_EQ(working().find("error"), std::string::npos);
}

TEST_F(Log, RawTextIsChangedOrFiltered)
{
    const auto log = make(false);
    EXPECT_TRUE(log->write_text("raw"));
    EXPECT_EQ(output_.text(), "raw\n");
    log->setLevel(9);
    EXPECT_TRUE(log->write_text("more"));
    EXPECT_EQ(output_.text(), "raw\n");
    EXPECT_EQ(working(), "rawmore");
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
    constexpr size_t kStampBytes = 16;
    std::map<std::string, int> lines;
    std::istringstream written(working());
    for (std::string line; std::getline(written, line);) {
        ASSERT_GT(line.size(), kStampBytes);
        ++lines[line.substr(kStampBytes)];
    }
    std::map<std::string, int> expected;
    for (const char name : names) {
        expected[std::string(60, name) + "\r"] = kLines;
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

TEST_F(Log, TheLimitIsOffByOne)
{
    const std::string atLimit(kLimit, 'x');
    keep({{"V.log", atLimit}});
    make(true)->process();
    EXPECT_EQ(kept(), (Files{{"V.log", atLimit}}));
    setWorking("y");
    make(true)->process();
    EXPECT_EQ(kept(), (Files{{"V.log.0", atLimit + "y"}}));
}

TEST_F(Log, TheFullFormatKeepsAGeneration)
{
    keep({{"V.log", std::string(kLimit + 1, 'x')}, {"V.log.0", "0"}});
    make(false)->process();
    EXPECT_EQ(kept(), (Files{{"V.log.0", "0"}}));
}

TEST_F(Log, RotationLosesOrKeepsTheWrongGeneration)
{
    const std::string large(kLimit + 1, 'x');
    keep({{"V.log", large},
          {"V.log.0", "0"},
          {"V.log.1", "1"},
          {"V.log.2", "2"},
          {"V.log.3", "3"},
          {"V.log.4", "4"}});
    make(true)->process();
    EXPECT_EQ(
        kept(),
        (Files{{"V.log.0", large}, {"V.log.1", "0"}, {"V.log.2", "1"}, {"V.log.3", "2"}, {"V.log.4", "3"}}));
}

TEST_F(Log, RotationWithGapsFillsThem)
{
    const std::string large(kLimit + 1, 'x');
    keep({{"V.log", large}, {"V.log.2", "2"}});
    make(true)->process();
    EXPECT_EQ(kept(), (Files{{"V.log.0", large}, {"V.log.3", "2"}}));
}

TEST_F(Log, AFailedRotationLeavesAnOversizeLog)
{
    std::filesystem::create_directory(folder_.file("logs/V.log.0"));
    keep({{"V.log", std::string(kLimit + 1, 'x')}});
    make(true)->process();
    EXPECT_FALSE(std::filesystem::exists(folder_.file("logs/V.log")));
    EXPECT_TRUE(std::filesystem::is_directory(folder_.file("logs/V.log.0")));
}

TEST_F(Log, ALimitOfTwoGiBIsUnsigned)
{
    keep({{"V.log", "x"}});
    make(false, 0x80000000U)->process();
    EXPECT_EQ(kept(), Files());
}

TEST_F(Log, ClearLeavesAFileOfTheLogOrTakesAnother)
{
    setWorking("w");
    keep({{"V.log", "p"},
          {"V.log.0", "0"},
          {"V.log.2", "2"},
          {"V.log.4", "4"},
          {"V.log.5", "5"},
          {"other", "o"}});
    make(true)->clear();
    EXPECT_EQ(kept(), (Files{{"V.log.5", "5"}, {"other", "o"}}));
    EXPECT_FALSE(std::filesystem::exists(folder_.file("tmp/V.log")));
}

}  // namespace
