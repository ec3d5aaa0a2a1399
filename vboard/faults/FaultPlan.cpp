#include "faults/FaultPlan.h"

#include <fnmatch.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstring>
#include <string_view>

#include "board/Real.h"
#include "faults/CallList.h"

namespace board {
namespace {

struct NamedError {
    const char* name;
    FaultKind kind;
    int error;
};

#define ERRNO(name)                      \
    NamedError                           \
    {                                    \
#name, FaultKind::kError, (name) \
    }

constexpr std::string_view kSlow = "slow:";

constexpr std::array kErrors{
    NamedError{"short", FaultKind::kShort, 0},
    NamedError{"hang", FaultKind::kHang, 0},
    NamedError{"kill", FaultKind::kKill, 0},
    NamedError{"tear", FaultKind::kTear, 0},
    NamedError{"skip", FaultKind::kSkip, 0},
    NamedError{"bad", FaultKind::kBadFrame, 0},
    NamedError{"lost", FaultKind::kLostFrame, 0},
    NamedError{"wrap", FaultKind::kWrap, 0},
    NamedError{"nosignal", FaultKind::kNoSignal, 0},
    NamedError{"gone", FaultKind::kGone, 0},
    ERRNO(EPERM),
    ERRNO(ENOENT),
    ERRNO(EINTR),
    ERRNO(EIO),
    ERRNO(ENXIO),
    ERRNO(EBADF),
    ERRNO(EAGAIN),
    ERRNO(ENOMEM),
    ERRNO(EACCES),
    ERRNO(EFAULT),
    ERRNO(EBUSY),
    ERRNO(EEXIST),
    ERRNO(ENODEV),
    ERRNO(ENOTDIR),
    ERRNO(EISDIR),
    ERRNO(EINVAL),
    ERRNO(ENFILE),
    ERRNO(EMFILE),
    ERRNO(ENOTTY),
    ERRNO(EFBIG),
    ERRNO(ENOSPC),
    ERRNO(EROFS),
    ERRNO(EPIPE),
    ERRNO(ERANGE),
    ERRNO(EPROTO),
    ERRNO(ETIME),
    ERRNO(ETIMEDOUT),
    ERRNO(EMSGSIZE),
    ERRNO(ENOBUFS),
    ERRNO(EDQUOT),
    ERRNO(ESTALE),
    ERRNO(ENAMETOOLONG),
    ERRNO(ENOSYS),
    ERRNO(EOVERFLOW),
    ERRNO(ENOLINK),
    ERRNO(ENODATA),
    // The codec library's own result codes.
    NamedError{"RETCODE_FAILURE", FaultKind::kError, -1},
    NamedError{"RETCODE_INVALID_HANDLE", FaultKind::kError, -2},
    NamedError{"RETCODE_INVALID_PARAM", FaultKind::kError, -3},
    NamedError{"RETCODE_INVALID_COMMAND", FaultKind::kError, -4},
    NamedError{"RETCODE_FRAME_NOT_COMPLETE", FaultKind::kError, -6},
    NamedError{"RETCODE_INVALID_FRAME_BUFFER", FaultKind::kError, -7},
    NamedError{"RETCODE_INSUFFICIENT_FRAME_BUFFERS", FaultKind::kError, -8},
    NamedError{"RETCODE_INVALID_STRIDE", FaultKind::kError, -9},
    NamedError{"RETCODE_WRONG_CALL_SEQUENCE", FaultKind::kError, -10},
    NamedError{"RETCODE_NOT_INITIALIZED", FaultKind::kError, -13},
    NamedError{"RETCODE_FAILURE_TIMEOUT", FaultKind::kError, -17},
    NamedError{"RETCODE_MEMORY_ACCESS_VIOLATION", FaultKind::kError, -18},
};
#undef ERRNO

template <typename Number>
bool parseNumber(const std::string& text, Number& value)
{
    const char* end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, value);
    return !text.empty() && result.ec == std::errc() && result.ptr == end;
}

bool parseSlowness(const std::string& text, Fault& fault)
{
    fault.kind = static_cast<uint32_t>(FaultKind::kSlow);
    return text.compare(0, kSlow.size(), kSlow) == 0 && parseNumber(text.substr(kSlow.size()), fault.error) &&
           fault.error > 0;
}

bool parseError(const std::string& text, Fault& fault)
{
    if (parseSlowness(text, fault)) {
        return true;
    }
    for (const NamedError& known : kErrors) {
        if (text == known.name) {
            fault.kind = static_cast<uint32_t>(known.kind);
            fault.error = known.error;
            return true;
        }
    }
    fault.kind = static_cast<uint32_t>(FaultKind::kError);
    return parseNumber(text, fault.error);
}

constexpr uint64_t kForEver = UINT64_MAX;

/// "N/M"; false when it is none.
bool parsePeriod(const std::string& text, Fault& fault)
{
    const size_t slash = text.find('/');
    fault.to = kForEver;
    return slash != std::string::npos && parseNumber(text.substr(0, slash), fault.from) && fault.from != 0 &&
           parseNumber(text.substr(slash + 1), fault.step) && fault.step != 0;
}

bool parseOccurrence(std::string text, Fault& fault)
{
    if (parsePeriod(text, fault)) {
        return true;
    }
    fault.step = 1;
    if (text == "*") {
        fault.from = 1;
        fault.to = kForEver;
        return true;
    }
    const bool onwards = !text.empty() && text.back() == '+';
    if (onwards) {
        text.pop_back();
    }
    if (!parseNumber(text, fault.from) || fault.from == 0) {
        return false;
    }
    fault.to = onwards ? kForEver : fault.from;
    return true;
}

template <size_t Size>
bool store(char (&target)[Size], const std::string& text)
{
    if (text.empty() || text.size() >= Size || text.find('\0') != std::string::npos) {
        return false;
    }
    std::memcpy(target, text.c_str(), text.size() + 1);
    return true;
}

std::string occurrenceText(const Fault& fault)
{
    std::string first = std::to_string(fault.from);
    if (fault.step != 1) {
        return first + "/" + std::to_string(fault.step);
    }
    if (fault.to != kForEver) {
        return first;
    }
    return fault.from == 1 ? "*" : first + "+";
}

bool isTurnOf(const Fault& rule, uint64_t occurrence)
{
    return occurrence >= rule.from && occurrence <= rule.to && (occurrence - rule.from) % rule.step == 0;
}

/// A signal does not make a slow device any faster.
void delay(uint64_t milliseconds)
{
    constexpr uint64_t kUsPerMs = 1000;
    const uint64_t endUs = real::monotonicUs() + milliseconds * kUsPerMs;
    for (uint64_t nowUs = real::monotonicUs(); nowUs < endUs; nowUs = real::monotonicUs()) {
        real::sleepUs(endUs - nowUs);
    }
}

}  // namespace

std::optional<FaultAction> FaultPlan::check(const char* call, const char* target) const
{
    const auto decision = checkTransfer(call, target);
    if (decision && decision->kind == FaultKind::kTear) {
        killProcess();
    }
    return decision;
}

std::optional<FaultAction> FaultPlan::checkTransfer(const char* call, const char* target) const
{
    const auto decision = decide(call, target);
    if (decision && decision->kind == FaultKind::kKill) {
        killProcess();
    }
    return decision;
}

void FaultPlan::killProcess()
{
    for (;;) {
        real::kill(real::processId(), SIGKILL);
    }
}

std::optional<FaultAction> FaultPlan::decide(const char* call, const char* target) const
{
    CallList(board_).note(call, target);
    std::optional<FaultAction> decision;
    for (uint32_t i = 0; i < state_.faultCount; ++i) {
        Fault& rule = state_.faults[i];
        if (std::strcmp(rule.call, call) != 0 || ::fnmatch(rule.target, target, 0) != 0) {
            continue;
        }
        const uint64_t occurrence = ++rule.seen;
        if (!decision && isTurnOf(rule, occurrence)) {
            ++rule.fired;
            decision = FaultAction{static_cast<FaultKind>(rule.kind), rule.error};
        }
    }
    if (decision && decision->kind == FaultKind::kSlow) {
        delay(static_cast<uint64_t>(decision->error));
        return std::nullopt;
    }
    return decision;
}

bool FaultPlan::names(const char* call) const
{
    auto* const first = state_.faults.data();
    return CallList(board_).isKept() || std::any_of(first, first + state_.faultCount, [&](const Fault& rule) {
               return std::strcmp(rule.call, call) == 0;
           });
}

std::string FaultPlan::textOf(const Fault& fault)
{
    const auto* known = std::find_if(kErrors.begin(), kErrors.end(), [&](const NamedError& entry) {
        return static_cast<uint32_t>(entry.kind) == fault.kind && entry.error == fault.error;
    });
    const std::string number = std::to_string(fault.error);
    const bool slow = fault.kind == static_cast<uint32_t>(FaultKind::kSlow);
    const std::string error = slow                     ? std::string(kSlow) + number
                              : known == kErrors.end() ? number
                                                       : known->name;
    return std::string(fault.call) + "@" + fault.target + "#" + occurrenceText(fault) + "=" + error;
}

std::string FaultPlan::add(const std::string& rule) const
{
    const size_t at = rule.find('@');
    const size_t error = rule.rfind('=');
    const size_t occurrence = rule.rfind('#', error);
    if (at == std::string::npos || error == std::string::npos || occurrence == std::string::npos ||
        occurrence < at) {
        return "a fault reads CALL@TARGET#N=ERROR, not '" + rule + "'";
    }
    if (state_.faultCount == state_.faults.size()) {
        return "too many faults, at most " + std::to_string(state_.faults.size());
    }
    Fault& fault = state_.faults[state_.faultCount];
    if (!store(fault.call, rule.substr(0, at)) ||
        !store(fault.target, rule.substr(at + 1, occurrence - at - 1))) {
        return "the call or the target of fault '" + rule + "' is empty, too long or no text";
    }
    if (!parseOccurrence(rule.substr(occurrence + 1, error - occurrence - 1), fault)) {
        return "the occurrence of fault '" + rule + "' is neither N, N+, N/M nor *";
    }
    if (!parseError(rule.substr(error + 1), fault)) {
        return "the error of fault '" + rule +
               "' is not known: an errno name or number, RETCODE_..., short, hang, slow:MS, kill, tear, "
               "skip, bad, lost, wrap, nosignal or gone";
    }
    ++state_.faultCount;
    return {};
}

}  // namespace board
