#include "drivers/mx_vpu.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <regex>

#include "Driver.h"
#include "drivers/mx_ipu.h"

namespace {

using driver::Failure;
using driver::outputOf;
using support::Command;

constexpr unsigned kWidth = 320;
constexpr unsigned kHeight = 240;

/// Keeps what the encoder hands over.
class Collector final : public VideoWriter {
public:
    bool start(std::string /*path*/, const VIDEO_FORMAT& /*format*/) override { return true; }
    bool writeChunk(void* data, unsigned length) override
    {
        const auto* bytes = static_cast<const uint8_t*>(data);
        frames.emplace_back(bytes, bytes + length);
        return accepts;
    }
    std::string parameterSets() const { return {header, headerLength}; }

    std::vector<std::vector<uint8_t>> frames;
    bool accepts = true;
};

bool isKeyFrame(const std::vector<uint8_t>& frame)
{
    constexpr uint8_t kStart[] = {0, 0, 1};
    constexpr int kTypeMask = 0x1F;
    constexpr int kKeyPicture = 5;
    for (auto at = frame.begin();; ++at) {
        at = std::search(at, frame.end(), std::begin(kStart), std::end(kStart));
        if (frame.end() - at <= 3) {
            return false;
        }
        if ((at[3] & kTypeMask) == kKeyPicture) {
            return true;
        }
    }
}

/// An encoder with a grey picture to encode.
struct Codec {
    mx_ipu ipu;
    buffer picture;
    Collector collector;
    mx_vpu vpu;

    static mx_vpu::VPU_CFG config() { return {kWidth, kHeight, 0, 300, 1000, 26}; }

    bool setup()
    {
        constexpr int kBytes = static_cast<int>(kWidth * kHeight * 3 / 2);
        if (!ipu.setup("/dev/mxc_ipu", false, 0, false) || !ipu.alloc(picture, kBytes)) {
            return false;
        }
        std::memset(picture.start, 128, picture.length);
        return vpu.setup(config(), &collector);
    }

    bool encode()
    {
        vpu.write_buffer(0, static_cast<int>(picture.offset));
        return vpu.process();
    }

    ~Codec() { ipu.free(picture); }
};

BOARD_TEST(mx_vpu, MixesTheHeaderIntoTheFramesOrMakesAKeyFrameUnasked, Command())
{
    Codec codec;
    ASSERT_TRUE(codec.vpu.isInit());
    ASSERT_TRUE(codec.setup());
    const std::string sets = codec.collector.parameterSets();
    constexpr char kSequence[] = {0, 0, 0, 1, 0x67};
    constexpr char kPicture[] = {0, 0, 0, 1, 0x68};
    EXPECT_EQ(sets.find(std::string(kSequence, sizeof kSequence)), 0U);
    EXPECT_NE(sets.find(std::string(kPicture, sizeof kPicture)), std::string::npos);
    constexpr size_t kRestarted = 2;
    for (size_t i = 0; i < 5; ++i) {
        if (i == kRestarted) {
            codec.vpu.restart();
        }
        ASSERT_TRUE(codec.encode());
        ASSERT_EQ(codec.collector.frames.size(), i + 1);
        EXPECT_EQ(isKeyFrame(codec.collector.frames[i]), i == 0 || i == kRestarted) << i;
    }
}

BOARD_TEST(mx_vpu, RefusesASecondSetupAndReportsAWriterThatFails, Command())
{
    Codec codec;
    ASSERT_TRUE(codec.setup());
    codec.collector.accepts = false;
    EXPECT_EQ(outputOf([&] { EXPECT_FALSE(codec.encode()); }).find("writing bitstream buffer failed"), 0U);
    EXPECT_NE(
        outputOf([&] { EXPECT_FALSE(codec.vpu.setup(Codec::config(), nullptr)); }).find("Already alloc!\n"),
        std::string::npos);
}

class EncoderFailure : public testing::TestWithParam<Failure> {};

TEST_P(EncoderFailure, IsNotSaidOrLeavesSomethingBehind)
{
    support::runOnBoard({"--fault", GetParam().fault}, [] {
        const std::string said = outputOf([] {
            Codec codec;
            EXPECT_FALSE(codec.setup());
        });
        EXPECT_EQ(std::regex_replace(said, std::regex("vpu minframe=.*\n"), ""), GetParam().message);
    });
}

INSTANTIATE_TEST_SUITE_P(
    mx_vpu, EncoderFailure,
    testing::Values(Failure{"Init", "vpu_Init@*#1=RETCODE_FAILURE",
                            "VPU Init Failure.\nEncoder open failed -13\n"},
                    Failure{"Version", "vpu_GetVersionInfo@*#1=RETCODE_FAILURE",
                            "Cannot get version info\nEncoder open failed -13\n"},
                    Failure{"Memory", "IOGetPhyMem@*#1=RETCODE_FAILURE",
                            "Unable to obtain physical memory\nEncoder open failed -13\n"},
                    Failure{"Mapping", "IOGetVirtMem@*#1=RETCODE_FAILURE",
                            "Unable to map physical memory\nEncoder open failed -13\n"},
                    Failure{"Open", "vpu_EncOpen@*#1=EFAULT", "Encoder open failed -18\n"},
                    Failure{"InitialInfo", "vpu_EncGetInitialInfo@*#1=RETCODE_FAILURE",
                            "Encoder GetInitialInfo failed\n"},
                    Failure{"Register", "vpu_EncRegisterFrameBuffer@*#1=RETCODE_INVALID_PARAM",
                            "fbRegister frame buffer failed: -3\n"},
                    Failure{"FrameMemory", "IOGetPhyMem@*#3=RETCODE_FAILURE", ""}),
    driver::nameOf);

BOARD_TEST(mx_vpu, GivesUpAHangingFrameAndEncodesTheNext, (Command{"--fault", "vpu_WaitForInt@*#1=hang"}))
{
    Codec codec;
    ASSERT_TRUE(codec.setup());
    EXPECT_FALSE(codec.encode());
    EXPECT_TRUE(codec.collector.frames.empty());
    EXPECT_TRUE(codec.encode());
    EXPECT_EQ(codec.collector.frames.size(), 1U);
}

}  // namespace
