#include "sys/SysData.h"

#include <gtest/gtest.h>

#include <array>
#include <filesystem>
#include <string>
#include <vector>

namespace {

TEST(CameraStatusLine, GivesTheWrongStatuses)
{
    struct Case {
        const char* line;
        std::array<u_int8_t, SysData::kChannels> channels;
        bool malformed;
    };
    const Case cases[] = {
        {"0x00,0x01,0x0A,0xff", {0, 1, 10, 255}, false},
        {"0x05,0x06", {5, 6, 0, 0}, false},
        {"0x00,0x0A,0xzz,0x01", {0, 10, 1, 0}, false},  // other text moves the next field up
        {"0x-1,0x+2,0x 3,0x04", {4, 0, 0, 0}, false},   // and so do signs
        {"??07,  08", {7, 8, 0, 0}, false},             // the prefix is not examined
        {"0x1FE,0x7FFFFFFF", {0xFE, 0xFF, 0, 0}, false},
        {"0x1,0x2,0x3,0x4,0x5,0x6", {1, 2, 3, 4}, false},
        {"", {0, 0, 0, 0}, true},
        {"0x01,0x02,", {1, 2, 0, 0}, true},
        {"0x01,5,0x03", {1, 3, 0, 0}, true},
        {"0x,0x04", {4, 0, 0, 0}, true},
        {"0x80000000,0x05", {5, 0, 0, 0}, true},
        {"0xFFFFFFFFFFFFFFFFFF,0x06", {6, 0, 0, 0}, true},
        {",,,,,,,,", {0, 0, 0, 0}, true},
    };
    for (const Case& one : cases) {
        const CameraStatus status = parseCameraStatus(one.line);
        EXPECT_EQ(status.channels, one.channels) << one.line;
        EXPECT_EQ(status.malformed, one.malformed) << one.line;
    }
}

/// What the record says of some channel numbers, existing and not.
std::vector<bool> verdicts(const SysData& sys)
{
    std::vector<bool> found;
    for (const u_int8_t number : std::vector<u_int8_t>{0, 1, 2, 3, 4, 255}) {
        found.push_back(sys.camChannelOk(number));
    }
    return found;
}

TEST(SysData, TrustsACameraThatWasNeverCheckedOrDoesNotExist)
{
    SysData sys;
    EXPECT_EQ(verdicts(sys), std::vector<bool>(6, false));
    sys.media.cam.channelStatus = {0, 0, 1, 0};
    EXPECT_EQ(verdicts(sys), (std::vector<bool>{true, true, false, true, false, false}));
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
    EXPECT_EQ(verdicts(sys), (std::vector<bool>{true, true, true, true, false, false}));
}

}  // namespace
