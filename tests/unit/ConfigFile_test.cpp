#include "lib/ConfigFile.h"

#include <gtest/gtest.h>

#include <string>

#include "Folder.h"

namespace {

class Config : public testing::Test {
protected:
    bool parse(const std::string& text)
    {
        const std::string path = folder_.file("settings.cfg");
        return support::writeFile(path, text) && config_.parse(path);
    }

    std::string text(const std::string& key, std::string fallback = "absent") const
    {
        config_.findKey(fallback, key);
        return fallback;
    }

    long number(const std::string& key, long fallback = -77) const
    {
        config_.findKey(fallback, key);
        return fallback;
    }

    bool flag(const std::string& key, bool fallback) const
    {
        config_.findKey(fallback, key);
        return fallback;
    }

    int byte(const std::string& key, u_int8_t fallback = 77) const
    {
        config_.findKey(fallback, key);
        return fallback;
    }

    support::Folder folder_;
    ConfigFile config_;
};

TEST_F(Config, LinesOrOtherWordsMatter)
{
    ASSERT_TRUE(parse("heading a=1\tb=2\r\n\v# remark c=3 d = e\nlast=end"));
    EXPECT_EQ(text("a") + text("b") + text("c") + text("last"), "123end");
    EXPECT_EQ(text(""), "") << "a lone = is the empty key";
    EXPECT_EQ(text("d") + text("e") + text("heading"), "absentabsentabsent");
}

TEST_F(Config, AValueIsCutOrUnquoted)
{
    ASSERT_TRUE(parse("a=x=y b= q=\"z\" #dir=/x Dir=upper"));
    EXPECT_EQ(text("a"), "x=y");
    EXPECT_EQ(text("b"), "");
    EXPECT_EQ(text("q"), "\"z\"");
    EXPECT_EQ(text("#dir"), "/x");
    EXPECT_EQ(text("dir"), "absent");
}

TEST_F(Config, ALaterAssignmentWins)
{
    ASSERT_TRUE(parse("a=1 a=2"));
    EXPECT_EQ(number("a"), 1);
    ASSERT_TRUE(parse("a=3 b=4"));
    EXPECT_EQ(number("a"), 1);
    EXPECT_EQ(number("b"), 4);
}

TEST_F(Config, AnAbsentKeyChangesTheDefaultOrIsAdded)
{
    ASSERT_TRUE(parse(""));
    for (int pass = 0; pass < 2; ++pass) {
        EXPECT_TRUE(flag("k", true));
        EXPECT_EQ(text("k"), "absent");
        EXPECT_EQ(number("k"), -77);
        EXPECT_EQ(byte("k"), 77);
    }
}

TEST_F(Config, AMissingFileIsParsed)
{
    EXPECT_FALSE(config_.parse(folder_.file("missing")));
    EXPECT_TRUE(config_.parse(folder_.path())) << "opens, and holds no word";
    EXPECT_EQ(text(""), "absent");
}

TEST_F(Config, AnotherWordThanTheThreeIsTrue)
{
    ASSERT_TRUE(parse("a=1 b=TRUE c=true d=True e=yes f= g=11 h=0"));
    EXPECT_TRUE(flag("a", false) && flag("b", false) && flag("c", false));
    for (const char* key : {"d", "e", "f", "g", "h"}) {
        EXPECT_FALSE(flag(key, true)) << key;
    }
}

TEST_F(Config, ANumberReadsOtherwiseThanOnTheBoard)
{
    ASSERT_TRUE(
        parse("a=12abc b= c=abc d=-5 e=+7 f=0x10 top=2147483648 low=-99999999999999999999 max=2147483647"));
    EXPECT_EQ(number("a"), 12);
    EXPECT_EQ(number("b"), 0);
    EXPECT_EQ(number("c"), 0);
    EXPECT_EQ(number("d"), -5);
    EXPECT_EQ(number("e"), 7);
    EXPECT_EQ(number("f"), 0);
    EXPECT_EQ(number("top"), 2'147'483'647);
    EXPECT_EQ(number("max"), 2'147'483'647);
    EXPECT_EQ(number("low"), -2'147'483'647 - 1);
}

TEST_F(Config, AByteIsRangeChecked)
{
    ASSERT_TRUE(parse("a=300 b=-1 c=abc d=256 e=2 f=4294967296"));
    EXPECT_EQ(byte("a"), 44);
    EXPECT_EQ(byte("b"), 255);
    EXPECT_EQ(byte("c"), 0);
    EXPECT_EQ(byte("d"), 0);
    EXPECT_EQ(byte("e"), 2);
    EXPECT_EQ(byte("f"), 255) << "the conversion stops at 32 bits, and its low byte is taken then";
}

}  // namespace
