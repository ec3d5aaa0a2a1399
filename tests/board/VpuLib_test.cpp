#include <gtest/gtest.h>
#include <vpu_io.h>
#include <vpu_lib.h>

#include <array>
#include <cstring>
#include <vector>

#include "OnBoard.h"
#include "drivers/mx_vpu_buffer.h"

namespace {

constexpr int kWidth = 320;
constexpr int kHeight = 240;
constexpr int kFrameBytes = kWidth * kHeight * 3 / 2;
constexpr int kBitstreamBytes = kFrameBytes / 1024 * 1024;
constexpr int kQuantiser = 26;
constexpr int kShortWaitMs = 20;
constexpr int kFrameBuffers = 2;

const support::Command kPlain{};

/// A frame's worth of the codec's memory, mapped; it goes with its owner.
struct Block : mx_vpu_buffer {
    Block() { EXPECT_TRUE(b_alloc(STD_AVC, 0, kWidth, kHeight, 0)); }
    PhysicalAddress address() const { return static_cast<uint32_t>(addrY); }
    uint8_t* data() const { return reinterpret_cast<uint8_t*>(desc.virt_uaddr); }
};

/// The library in use, with memory for one encoder; every step can be taken alone.
class Session {
public:
    Session() { EXPECT_EQ(vpu_Init(nullptr), RETCODE_SUCCESS); }
    ~Session()
    {
        if (handle_ != nullptr) {
            vpu_SWReset(handle_, 0);
            EXPECT_EQ(vpu_EncClose(handle_), RETCODE_SUCCESS);
        }
        vpu_UnInit();
    }
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    EncOpenParam openParameters() const
    {
        EncOpenParam open{};
        open.bitstreamBuffer = bitstream.address();
        open.bitstreamBufferSize = kBitstreamBytes;
        open.bitstreamFormat = STD_AVC;
        open.picWidth = kWidth;
        open.picHeight = kHeight;
        open.frameRateInfo = 30;
        open.chromaInterleave = 1;
        open.rcIntraQp = -1;
        return open;
    }
    RetCode open()
    {
        EncOpenParam parameters = openParameters();
        return vpu_EncOpen(&handle_, &parameters);
    }
    RetCode obtainInfo()
    {
        EncInitialInfo info{};
        return vpu_EncGetInitialInfo(handle_, &info);
    }
    RetCode registerFrames(int count = kFrameBuffers, int stride = kWidth)
    {
        std::array<FrameBuffer, kFrameBuffers> buffers{};
        for (size_t i = 0; i < buffers.size(); ++i) {
            buffers[i] = frame(references[i].address(), static_cast<int>(i));
        }
        EncExtBufInfo extra{};
        return vpu_EncRegisterFrameBuffer(handle_, buffers.data(), count, stride, stride, subSample.address(),
                                          subSample.address(), &extra);
    }
    bool ready()
    {
        return open() == RETCODE_SUCCESS && obtainInfo() == RETCODE_SUCCESS &&
               registerFrames() == RETCODE_SUCCESS;
    }

    RetCode start(bool keyFrame = false) { return startAt(source.address(), keyFrame); }
    RetCode startAt(PhysicalAddress address, bool keyFrame = false)
    {
        FrameBuffer picture = frame(address, 0);
        EncParam parameters{};
        parameters.sourceFrame = &picture;
        parameters.forceIPicture = keyFrame ? 1 : 0;
        parameters.quantParam = kQuantiser;
        return vpu_EncStartOneFrame(handle_, &parameters);
    }
    RetCode fetch(EncOutputInfo& info) { return vpu_EncGetOutputInfo(handle_, &info); }
    RetCode encode(EncOutputInfo& info, bool keyFrame = false)
    {
        const RetCode started = start(keyFrame);
        return started == RETCODE_SUCCESS && vpu_WaitForInt(kShortWaitMs) == 0 ? fetch(info) : started;
    }

    EncHandle handle() const { return handle_; }
    RetCode close()
    {
        const RetCode closed = vpu_EncClose(handle_);
        if (closed == RETCODE_SUCCESS) {
            handle_ = nullptr;
        }
        return closed;
    }

    Block bitstream;
    Block source;
    std::array<Block, kFrameBuffers> references;
    Block subSample;

private:
    static FrameBuffer frame(PhysicalAddress address, int index)
    {
        constexpr unsigned kLuma = kWidth * kHeight;
        return {kWidth, kWidth / 2, index, address, address + kLuma, address + kLuma + kLuma / 4, 0};
    }

    EncHandle handle_ = nullptr;
};

BOARD_TEST(VpuLib, EncodesElsewhereThanInPhysicalMemoryOrLosesWhatIsPending, kPlain)
{
    Session session;
    ASSERT_TRUE(session.ready());
    std::memset(session.source.data(), 0x55, kFrameBytes);
    EncOutputInfo first{};
    ASSERT_EQ(session.encode(first), RETCODE_SUCCESS);
    EXPECT_EQ(first.bitstreamBuffer, session.bitstream.address());
    EXPECT_EQ(first.picType, 0);
    EXPECT_EQ(first.numOfSlices, 1);
    EXPECT_GT(first.bitstreamSize, 4U);
    EXPECT_EQ(std::memcmp(session.bitstream.data(), "\0\0\0\1\x65", 5), 0);
    PhysicalAddress read = 0;
    PhysicalAddress write = 0;
    Uint32 pending = 0;
    ASSERT_EQ(vpu_EncGetBitstreamBuffer(session.handle(), &read, &write, &pending), RETCODE_SUCCESS);
    EXPECT_EQ(pending, first.bitstreamSize);
    EXPECT_EQ(write - read, pending);
    ASSERT_EQ(vpu_EncUpdateBitstreamBuffer(session.handle(), pending - 1), RETCODE_SUCCESS);
    ASSERT_EQ(vpu_EncGetBitstreamBuffer(session.handle(), &read, &write, &pending), RETCODE_SUCCESS);
    EXPECT_EQ(pending, 1U);

    EncOutputInfo second{};
    ASSERT_EQ(session.encode(second), RETCODE_SUCCESS);
    EXPECT_EQ(second.picType, 1);
    EXPECT_NE(second.reconFrameIndex, first.reconFrameIndex);
    ASSERT_EQ(session.encode(second, true), RETCODE_SUCCESS);
    EXPECT_EQ(second.picType, 0);
}

BOARD_TEST(VpuLib, IsBusyUntilTheEndWasWaitedFor, kPlain)
{
    Session session;
    ASSERT_TRUE(session.ready());
    EXPECT_EQ(vpu_IsBusy(), 0);
    EXPECT_NE(vpu_WaitForInt(1), 0);
    ASSERT_EQ(session.start(), RETCODE_SUCCESS);
    EXPECT_NE(vpu_IsBusy(), 0);
    EXPECT_EQ(session.close(), RETCODE_FRAME_NOT_COMPLETE);
    EXPECT_EQ(vpu_WaitForInt(kShortWaitMs), 0);
    EXPECT_EQ(vpu_IsBusy(), 0);
    EXPECT_EQ(session.close(), RETCODE_FRAME_NOT_COMPLETE);
    EncOutputInfo info{};
    EXPECT_EQ(session.fetch(info), RETCODE_SUCCESS);
    EXPECT_EQ(session.close(), RETCODE_SUCCESS);
}

BOARD_TEST(VpuLib, AHangingFrameEndsWithoutAReset,
           (support::Command{"--fault", "vpu_EncStartOneFrame@*#1=hang"}))
{
    Session session;
    ASSERT_TRUE(session.ready());
    ASSERT_EQ(session.start(), RETCODE_SUCCESS);
    EXPECT_NE(vpu_WaitForInt(1), 0);
    EXPECT_NE(vpu_WaitForInt(1), 0);
    EXPECT_NE(vpu_IsBusy(), 0);
    EXPECT_EQ(session.close(), RETCODE_FRAME_NOT_COMPLETE);
    EXPECT_EQ(vpu_SWReset(session.handle(), 0), RETCODE_SUCCESS);
    EXPECT_EQ(vpu_IsBusy(), 0);
    EncOutputInfo info{};
    ASSERT_EQ(session.encode(info), RETCODE_SUCCESS);
    EXPECT_EQ(info.picType, 0) << "a frame was lost: the next one cannot refer to it";
}

BOARD_TEST(VpuLib, EncodesAPictureThatThePlanHasItSkip,
           (support::Command{"--fault", "vpu_EncStartOneFrame@*#1=skip", "--fault",
                             "vpu_EncStartOneFrame@*#3/2=skip"}))
{
    Session session;
    ASSERT_TRUE(session.ready());
    struct Step {
        bool keyFrame, skipped;
        int type;
    };
    constexpr int kKey = 0;
    constexpr int kOther = 1;
    for (const Step& step :
         {Step{false, true, kOther}, Step{false, false, kKey}, Step{false, true, kOther},
          Step{false, false, kOther}, Step{true, true, kOther}, Step{false, false, kKey}}) {
        EncOutputInfo info{};
        ASSERT_EQ(session.encode(info, step.keyFrame), RETCODE_SUCCESS);
        EXPECT_EQ(info.bitstreamBuffer, session.bitstream.address());
        EXPECT_EQ(info.skipEncoded != 0, step.skipped);
        EXPECT_EQ(info.bitstreamSize == 0, step.skipped);
        EXPECT_EQ(info.picType, step.type);
    }
}

BOARD_TEST_LEAVING(VpuLib, TakesCallsOutOfSequence, kPlain, support::Leaves::kSomething)
{
    EncOutputInfo info{};
    EncHandle handle = nullptr;
    EncOpenParam parameters{};
    EXPECT_EQ(vpu_EncOpen(&handle, &parameters), RETCODE_NOT_INITIALIZED);
    Session session;
    EXPECT_EQ(vpu_EncClose(nullptr), RETCODE_INVALID_HANDLE);
    ASSERT_EQ(session.open(), RETCODE_SUCCESS);
    EXPECT_EQ(session.registerFrames(), RETCODE_WRONG_CALL_SEQUENCE);
    EXPECT_EQ(session.start(), RETCODE_WRONG_CALL_SEQUENCE);
    ASSERT_EQ(session.obtainInfo(), RETCODE_SUCCESS);
    EXPECT_EQ(session.obtainInfo(), RETCODE_CALLED_BEFORE);
    ASSERT_EQ(session.registerFrames(), RETCODE_SUCCESS);
    EXPECT_EQ(session.registerFrames(), RETCODE_CALLED_BEFORE);
    EXPECT_EQ(session.fetch(info), RETCODE_WRONG_CALL_SEQUENCE);
    ASSERT_EQ(session.start(), RETCODE_SUCCESS);
    EXPECT_EQ(session.start(), RETCODE_FRAME_NOT_COMPLETE);
    EXPECT_EQ(session.fetch(info), RETCODE_FRAME_NOT_COMPLETE);
}

BOARD_TEST_LEAVING(VpuLib, TakesMemoryThatDoesNotFitOrIsNotLive, kPlain, support::Leaves::kSomething)
{
    vpu_mem_desc record{};
    EXPECT_EQ(IOGetPhyMem(&record), -1);
    EXPECT_EQ(IOGetVirtMem(&record), -1);
    EXPECT_EQ(IOFreePhyMem(&record), -1);
    record.size = 1;
    ASSERT_EQ(IOGetPhyMem(&record), 0);
    record.phy_addr += 8;
    EXPECT_EQ(IOFreePhyMem(&record), -1);

    Session session;
    ASSERT_EQ(session.open(), RETCODE_SUCCESS);
    ASSERT_EQ(session.obtainInfo(), RETCODE_SUCCESS);
    EXPECT_EQ(session.registerFrames(1), RETCODE_INSUFFICIENT_FRAME_BUFFERS);
    EXPECT_EQ(session.registerFrames(kFrameBuffers, kWidth - 8), RETCODE_INVALID_STRIDE);
    ASSERT_EQ(session.registerFrames(), RETCODE_SUCCESS);
    EXPECT_EQ(session.startAt(0x1000), RETCODE_MEMORY_ACCESS_VIOLATION);
    EXPECT_EQ(session.startAt(session.source.address() + kWidth * kHeight), RETCODE_MEMORY_ACCESS_VIOLATION);
    EncOutputInfo info{};
    EXPECT_EQ(session.encode(info), RETCODE_SUCCESS);
    session.references[1].b_free();
    EXPECT_EQ(session.start(), RETCODE_MEMORY_ACCESS_VIOLATION);

    ASSERT_EQ(session.close(), RETCODE_SUCCESS);
    ASSERT_EQ(session.open(), RETCODE_SUCCESS);
    ASSERT_EQ(session.obtainInfo(), RETCODE_SUCCESS);
    EXPECT_EQ(session.registerFrames(), RETCODE_INVALID_FRAME_BUFFER);
}

struct WrongParameter {
    RetCode code;
    void (*spoil)(EncOpenParam&);
};

BOARD_TEST_LEAVING(VpuLib, TakesParametersThatItCannotEncodeBy, kPlain, support::Leaves::kSomething)
{
    constexpr WrongParameter kWrong[] = {
        {RETCODE_NOT_SUPPORTED, [](EncOpenParam& open) { open.bitstreamFormat = STD_MPEG4; }},
        {RETCODE_NOT_SUPPORTED, [](EncOpenParam& open) { open.ringBufferEnable = 1; }},
        {RETCODE_INVALID_PARAM, [](EncOpenParam& open) { open.picWidth = 0; }},
        {RETCODE_INVALID_PARAM, [](EncOpenParam& open) { open.frameRateInfo = 0; }},
        {RETCODE_INVALID_PARAM, [](EncOpenParam& open) { open.bitRate = -1; }},
        {RETCODE_MEMORY_ACCESS_VIOLATION, [](EncOpenParam& open) { open.bitstreamBufferSize *= 2; }},
    };
    const Session session;
    for (const WrongParameter& wrong : kWrong) {
        EncOpenParam parameters = session.openParameters();
        wrong.spoil(parameters);
        EncHandle handle = nullptr;
        EXPECT_EQ(vpu_EncOpen(&handle, &parameters), wrong.code) << &wrong - kWrong;
    }
}

}  // namespace
