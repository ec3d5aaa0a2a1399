#include "lib/strfnts.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

TEST(Strfnts, SplitLosesEmptyFieldsOrGivesOneWithoutADelimiterOrOverlaps)
{
    struct Case {
        const char* text;
        const char* delimiter;
        std::vector<std::string> fields;
    };
    const Case cases[] = {
        {"a,,b", ",", {"a", "", "b"}},
        {"abc,", ",", {"abc", ""}},
        {",a", ",", {"", "a"}},
        {",", ",", {"", ""}},
        {"abc", ",", {}},
        {"", ",", {}},
        {"a-b", "--", {}},
        {"abc", "", {}},
        {"a--b--", "--", {"a", "b", ""}},
        {"a---b", "--", {"a", "-b"}},
        {"----", "--", {"", "", ""}},
    };
    for (const Case& one : cases) {
        EXPECT_EQ(strfnts::split(one.text, std::string(one.delimiter)), one.fields) << one.text;
    }
    EXPECT_EQ(strfnts::split("a,b", ','), strfnts::split("a,b", std::string(",")));
}

TEST(Strfnts, JoinLeavesOutTheLastSeparatorOrStripACharacter)
{
    EXPECT_EQ(strfnts::join({"a", "b"}, ','), "a,b,");
    EXPECT_EQ(strfnts::join({}, ','), "");
    EXPECT_EQ(strfnts::strip_characters("..a.b..c.", '.'), "abc");
}

TEST(Strfnts, TrimTakesInnerBlanksOrLeavesASpaceCharacter)
{
    std::string text = " \t\n\v\f\ra b\t c\r\f\v\n\t ";
    std::string left = text;
    std::string right = text;
    strfnts::ltrim(left);
    strfnts::rtrim(right);
    strfnts::trim(text);
    EXPECT_EQ(text, "a b\t c");
    EXPECT_EQ(left, "a b\t c\r\f\v\n\t ");
    EXPECT_EQ(right, " \t\n\v\f\ra b\t c");

    std::string blank = " \n ";
    strfnts::trim(blank);
    EXPECT_EQ(blank, "");
    std::string other("\0x\xA0", 3);  // neither is a space in the C locale
    strfnts::trim(other);
    EXPECT_EQ(other.size(), 3U);
}

TEST(Strfnts, CaseTouchesWhatIsNoLetter)
{
    std::string text = "aZ@[`{09\xE4\xC4";
    strfnts::strCase(text, true);
    EXPECT_EQ(text, "AZ@[`{09\xE4\xC4");
    strfnts::strCase(text, false);
    EXPECT_EQ(text, "az@[`{09\xE4\xC4");
}

TEST(Strfnts, Base64DiffersFromTheStandard)
{
    EXPECT_EQ(strfnts::base64_encode(std::string(2, '\0')), "AAA=");
    // The standard's own vectors.
    EXPECT_EQ(strfnts::base64_encode(""), "");
    EXPECT_EQ(strfnts::base64_encode("f"), "Zg==");
    EXPECT_EQ(strfnts::base64_encode("fooba"), "Zm9vYmE=");
    EXPECT_EQ(strfnts::base64_encode("foobar"), "Zm9vYmFy");
    EXPECT_EQ(strfnts::base64_encode("\xFB\xEF\xBE\xFF\xFF\xFF"), "++++////")
        << "bytes above 127, and the last digits";
}

}  // namespace
