#include "vpu_lib.h"

#include <optional>

#include "codec/Codec.h"
#include "codec/Fault.h"

using board::Board;
using board::FaultKind;
using codec::Answer;
using codec::Codec;

unsigned int system_rev = 0;

namespace {

/// Notes a refusal for the report and gives the call's result.
RetCode finish(const Board& board, const char* call, const Answer& result)
{
    if (!result.reason.empty()) {
        board.refuse(codec::kDevice, call, result.reason);
    }
    return result.code;
}

/// A call's way in and out: off a board nothing works, the fault plan is asked first, a refusal is noted.
template <typename Work>
RetCode answer(const char* call, Work work)
{
    Board* const board = Board::current();
    if (board == nullptr) {
        return RETCODE_NOT_INITIALIZED;
    }
    if (const auto fault = codec::enter(*board, call)) {
        return codec::resultOf(*fault);
    }
    return finish(*board, call, work(*board));
}

/// What becomes of a frame that is started; nothing when the start itself fails.
std::optional<Codec::Outcome> outcomeOf(const std::optional<board::FaultAction>& fault)
{
    if (!fault) {
        return Codec::Outcome::kCompletes;
    }
    switch (fault->kind) {
        case FaultKind::kHang:
            return Codec::Outcome::kHangs;
        case FaultKind::kSkip:
            return Codec::Outcome::kSkips;
        default:
            return std::nullopt;
    }
}

}  // namespace

RetCode vpu_Init(void* /*callback*/)
{
    if (Board::current() == nullptr) {
        return RETCODE_FAILURE;
    }
    return answer(__func__, [](const Board& board) { return Codec::instance().init(board); });
}

void vpu_UnInit()
{
    answer(__func__, [](const Board&) { return Codec::instance().unInit(); });
}

RetCode vpu_GetVersionInfo(vpu_versioninfo* verinfo)
{
    return answer(__func__, [&](const Board&) { return Codec::instance().version(verinfo); });
}

int vpu_IsBusy()
{
    Board* const board = Board::current();
    if (board == nullptr) {
        return 0;
    }
    if (const auto fault = codec::enter(*board, __func__)) {
        return fault->kind == FaultKind::kError ? fault->error : 1;
    }
    return Codec::instance().busy() ? 1 : 0;
}

int vpu_WaitForInt(int timeout_in_ms)
{
    Board* const board = Board::current();
    if (board == nullptr) {
        return -1;
    }
    const auto fault = codec::enter(*board, __func__);
    if (fault && fault->kind != FaultKind::kHang) {
        return codec::resultOf(*fault);
    }
    if (fault) {
        Codec::instance().hang();
    }
    return Codec::instance().wait(timeout_in_ms) ? 0 : -1;
}

RetCode vpu_SWReset(DecHandle handle, int /*index*/)
{
    return answer(__func__, [&](const Board&) { return Codec::instance().reset(handle); });
}

RetCode vpu_EncOpen(EncHandle* pHandle, EncOpenParam* pop)
{
    return answer(__func__, [&](const Board& board) { return Codec::instance().open(board, pHandle, pop); });
}

RetCode vpu_EncClose(EncHandle handle)
{
    return answer(__func__, [&](const Board&) { return Codec::instance().close(handle); });
}

RetCode vpu_EncGetInitialInfo(EncHandle handle, EncInitialInfo* info)
{
    return answer(__func__, [&](const Board&) { return Codec::instance().initialInfo(handle, info); });
}

RetCode vpu_EncRegisterFrameBuffer(EncHandle handle, FrameBuffer* bufArray, int num, int frameBufStride,
                                   int sourceBufStride, PhysicalAddress subSampBaseA,
                                   PhysicalAddress subSampBaseB, EncExtBufInfo* /*pExtBufInfo*/)
{
    const codec::FrameRegistration frames{bufArray,        num,          frameBufStride,
                                          sourceBufStride, subSampBaseA, subSampBaseB};
    return answer(__func__, [&](const Board&) { return Codec::instance().registerFrames(handle, frames); });
}

RetCode vpu_EncGetBitstreamBuffer(EncHandle handle, PhysicalAddress* prdPrt, PhysicalAddress* pwrPtr,
                                  Uint32* size)
{
    return answer(__func__,
                  [&](const Board&) { return Codec::instance().bitstream(handle, prdPrt, pwrPtr, size); });
}

RetCode vpu_EncUpdateBitstreamBuffer(EncHandle handle, Uint32 size)
{
    return answer(__func__, [&](const Board&) { return Codec::instance().takeBitstream(handle, size); });
}

RetCode vpu_EncStartOneFrame(EncHandle handle, EncParam* param)
{
    Board* const board = Board::current();
    if (board == nullptr) {
        return RETCODE_NOT_INITIALIZED;
    }
    const auto fault = codec::enter(*board, __func__);
    const auto outcome = outcomeOf(fault);
    return outcome ? finish(*board, __func__, Codec::instance().start(handle, param, *outcome))
                   : codec::resultOf(*fault);
}

RetCode vpu_EncGetOutputInfo(EncHandle handle, EncOutputInfo* info)
{
    return answer(__func__, [&](const Board&) { return Codec::instance().output(handle, info); });
}

RetCode vpu_EncGiveCommand(EncHandle handle, CodecCommand cmd, void* pParam)
{
    return answer(__func__, [&](const Board&) { return Codec::instance().command(handle, cmd, pParam); });
}
