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

    /// What the key sets a variable of the fallback's type to.
    template <typename Value>
    Value find(const std::string& key, Value fallback) const
    {
        config_.findKey(fallback, key);
        return fallback;
    }
    std::string text(const std::string& key) const { return find(key, std::string("absent")); }

    support::Folder folder_;
    ConfigFile config_;
};

TEST_F(Config, LinesOrOtherWordsMatterOrAValueIsChangedOrALaterAssignmentWins)
{
    ASSERT_TRUE(
        parse("heading a=1\tb=2\r\n\v# remark c=3 d = e\nx=y=z\nn= a=4 q=\"z\" #dir=/x Dir=up last=end"));
    EXPECT_EQ(text("a") + text("b") + text("c") + text("last"), "123end");
    EXPECT_EQ(text(""), "") << "a lone = is the empty key";
    EXPECT_EQ(text("d") + text("e") + text("heading") + text("dir"), "absentabsentabsentabsent");
    EXPECT_EQ(text("x"), "y=z");
    EXPECT_EQ(text("n"), "");
    EXPECT_EQ(text("q"), "\"z\"");
    EXPECT_EQ(text("#dir"), "/x");
    ASSERT_TRUE(parse("a=3 z=4"));
    EXPECT_EQ(text("a"), "1");
    EXPECT_EQ(text("z"), "4");
}

TEST_F(Config, AnAbsentKeyChangesTheDefaultOrIsAdded)
{
    ASSERT_TRUE(parse(""));
    for (int pass = 0; pass < 2; ++pass) {
        EXPECT_TRUE(find("k", true));
        EXPECT_EQ(text("k"), "absent");
        EXPECT_EQ(find("k", -77L), -77);
        EXPECT_EQ(find("k", u_int8_t{77}), 77);
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
    EXPECT_TRUE(find("a", false) && find("b", false) && find("c", false));
    for (const char* key : {"d", "e", "f", "g", "h"}) {
        EXPECT_FALSE(find(key, true)) << key;
    }
}

TEST_F(Config, ANumberReadsOtherwiseThanOnTheBoardOrAByteIsRangeChecked)
{
    struct Case {
        const char* text;
        long number;
        int byte;
    };
    constexpr long kHighest = 2'147'483'647;
    const Case cases[] = {{"12abc", 12, 12},
                          {"", 0, 0},
                          {"abc", 0, 0},
                          {"-5", -5, 251},
                          {"+7", 7, 7},
                          {"0x10", 0, 0},
                          {"300", 300, 44},
                          {"256", 256, 0},
                          {"2147483647", kHighest, 255},
                          {"4294967296", kHighest, 255},
                          {"-99999999999999999999", -kHighest - 1, 0}};
    for (const Case& one : cases) {
        const std::string key = std::string("key") + one.text;
        ASSERT_TRUE(parse(key + "=" + one.text));
        EXPECT_EQ(find(key, -77L), one.number) << one.text;
        EXPECT_EQ(find(key, u_int8_t{77}), one.byte) << one.text;
    }
}

}  // namespace
