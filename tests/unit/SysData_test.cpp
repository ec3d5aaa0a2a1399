#include "sys/SysData.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <ostream>
#include <string>
#include <vector>

namespace {

using Channels = std::array<u_int8_t, SysData::kChannels>;

struct StatusLine {
    const char* name;
    const char* line;
    Channels channels;
    bool malformed;
};

std::ostream& operator<<(std::ostream& out, const StatusLine& row)
{
    return out << '"' << row.line << '"';
}

class CameraStatusLine : public testing::TestWithParam<StatusLine> {};

TEST_P(CameraStatusLine, GivesTheWrongStatuses)
{
    const CameraStatus status = parseCameraStatus(GetParam().line);
    EXPECT_EQ(status.channels, GetParam().channels);
    EXPECT_EQ(status.malformed, GetParam().malformed);
}

INSTANTIATE_TEST_SUITE_P(
    WellFormed, CameraStatusLine,
    testing::Values(StatusLine{"InOrder", "0x00,0x01,0x0A,0xff", {0, 1, 10, 255}, false},
                    StatusLine{"FewerFieldsLeaveTheRestGood", "0x05,0x06", {5, 6, 0, 0}, false},
                    StatusLine{"OtherTextMovesTheNextFieldUp", "0x00,0x0A,0xzz,0x01", {0, 10, 1, 0}, false},
                    StatusLine{"SignsAreOtherText", "0x-1,0x+2,0x 3,0x04", {4, 0, 0, 0}, false},
                    StatusLine{"PrefixIsNotExamined", "??07,  08", {7, 8, 0, 0}, false},
                    StatusLine{"LowByteCounts", "0x1FE,0x7FFFFFFF", {0xFE, 0xFF, 0, 0}, false},
                    StatusLine{"AFifthFieldGoesNowhere", "0x1,0x2,0x3,0x4,0x5,0x6", {1, 2, 3, 4}, false}),
    [](const auto& row) { return std::string(row.param.name); });

INSTANTIATE_TEST_SUITE_P(
    Malformed, CameraStatusLine,
    testing::Values(StatusLine{"Empty", "", {0, 0, 0, 0}, true},
                    StatusLine{"TrailingComma", "0x01,0x02,", {1, 2, 0, 0}, true},
                    StatusLine{"OneCharacter", "0x01,5,0x03", {1, 3, 0, 0}, true},
                    StatusLine{"PrefixAlone", "0x,0x04", {4, 0, 0, 0}, true},
                    StatusLine{"BeyondInt", "0x80000000,0x05", {5, 0, 0, 0}, true},
                    StatusLine{"BeyondEveryInteger", "0xFFFFFFFFFFFFFFFFFF,0x06", {6, 0, 0, 0}, true},
                    StatusLine{"OnlyCommas", ",,,,,,,,", {0, 0, 0, 0}, true}),
    [](const auto& row) { return std::string(row.param.name); });

/// What the record says of each of some channel numbers, existing and not.
std::vector<bool> verdicts(const SysData& sys, const std::vector<u_int8_t>& numbers)
{
    std::vector<bool> found;
    found.reserve(numbers.size());
    for (const u_int8_t number : numbers) {
        found.push_back(sys.camChannelOk(number));
    }
    return found;
}

TEST(SysData, TrustsACameraThatWasNeverCheckedOrDoesNotExist)
{
    SysData sys;
    EXPECT_EQ(verdicts(sys, {0, 1, 2, 3}), std::vector<bool>(4, false));
    sys.media.cam.channelStatus = {0, 0, 1, 0};
    EXPECT_EQ(verdicts(sys, {0, 1, 2, 3, 4, 255}),
              (std::vector<bool>{true, true, false, true, false, false}));
}

TEST(SysData, TakesMissingStatusFilesForFaultsOrADisplay)
{
    if (std::filesystem::exists("/velmarine/dev-csi/cam_status")) {
        GTEST_SKIP() << "this machine has status files";
    }
    SysData sys;
    sys.media.cam.isVMMAttached = true;
    sys.checkCamera();
    EXPECT_FALSE(sys.media.cam.isVMMAttached);
    EXPECT_EQ(verdicts(sys, {0, 1, 2, 3}), std::vector<bool>(4, true));
}

TEST(SysData, TakesAMessageForAFormat)
{
    const SysData sys;
    testing::internal::CaptureStdout();
    sys.log_item("100%s%n", logger::LOG_ERROR);
    sys.log_item(std::string("%d"), logger::LOG_DEBUG);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "100%s%n\n%d\n");
}

}  // namespace
