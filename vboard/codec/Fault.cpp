#include "codec/Fault.h"

#include <algorithm>
#include <array>
#include <cerrno>

namespace codec {
namespace {

struct Translation {
    int error;
    RetCode code;
};

constexpr std::array kTranslations{
    Translation{EINVAL, RETCODE_INVALID_PARAM},  Translation{EFAULT, RETCODE_MEMORY_ACCESS_VIOLATION},
    Translation{EBADF, RETCODE_INVALID_HANDLE},  Translation{EBUSY, RETCODE_FRAME_NOT_COMPLETE},
    Translation{ENOSYS, RETCODE_NOT_SUPPORTED},  Translation{ENODEV, RETCODE_NOT_INITIALIZED},
    Translation{ETIME, RETCODE_FAILURE_TIMEOUT}, Translation{ETIMEDOUT, RETCODE_FAILURE_TIMEOUT},
};

}  // namespace

std::optional<board::FaultAction> enter(const board::Board& board, const char* call)
{
    board.countCall(kDevice, call);
    return board::FaultPlan(board).check(call, "*");
}

RetCode resultOf(const board::FaultAction& fault)
{
    if (fault.kind == board::FaultKind::kHang) {
        return RETCODE_FAILURE_TIMEOUT;
    }
    if (fault.kind == board::FaultKind::kError && fault.error <= 0) {
        return static_cast<RetCode>(fault.error);
    }
    const auto known = std::find_if(kTranslations.begin(), kTranslations.end(),
                                    [&](const Translation& row) { return row.error == fault.error; });
    return known == kTranslations.end() ? RETCODE_FAILURE : known->code;
}

}  // namespace codec
