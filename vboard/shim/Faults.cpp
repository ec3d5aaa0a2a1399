#include "shim/Faults.h"

#include <dlfcn.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string>

#include "board/Real.h"
#include "faults/FaultPlan.h"
#include "paths/Paths.h"
#include "shim/Attachment.h"
#include "shim/Handles.h"

namespace shim {
namespace {

using board::FaultAction;
using board::FaultKind;
using board::FaultPlan;

std::atomic<uint32_t> plannedCalls{0};
static_assert(kCallNames.size() <= 32, "a bit for each call");

constexpr uint32_t bitOf(Call call)
{
    return uint32_t{1} << static_cast<unsigned>(call);
}

bool planned(Call call)
{
    return call != Call::kNone && (plannedCalls.load(std::memory_order_relaxed) & bitOf(call)) != 0;
}

std::optional<FaultAction> decide(Call call, const char* target)
{
    const board::Board* board = attachedBoard();
    if (board == nullptr || target == nullptr) {
        return std::nullopt;
    }
    const FaultPlan plan(*board);
    const char* name = kCallNames[static_cast<size_t>(call)];
    const bool transfers = call == Call::kRead || call == Call::kWrite;
    return transfers ? plan.checkTransfer(name, target) : plan.check(name, target);
}

std::optional<FaultAction> decide(Call call, int fd)
{
    const board::Board* board = attachedBoard();
    if (board == nullptr || fd < 0) {
        return std::nullopt;
    }
    const auto node = handles::nodeOf(fd);
    if (node) {
        return decide(call, board::paths::nodePath(*node));
    }
    const std::string there = real::pathOf(fd);
    const std::string name = board::paths::nameOnBoard(board->folder(), there);
    const bool standard = fd == STDOUT_FILENO || fd == STDERR_FILENO;
    return standard && name == there ? std::nullopt : decide(call, name.c_str());
}

/// The function that calls is a wrapper around the call when it has its name: then it calls for the program.
const char* nameOfCaller(Call call, const void* caller)
{
    Dl_info place = {};
    const bool known = ::dladdr(caller, &place) != 0 && place.dli_fname != nullptr;
    const char* name = kCallNames[static_cast<size_t>(call)];
    if (!known || (place.dli_sname != nullptr && std::strstr(place.dli_sname, name) != nullptr)) {
        return program_invocation_short_name;
    }
    const char* slash = std::strrchr(place.dli_fname, '/');
    return slash == nullptr ? place.dli_fname : slash + 1;
}

/// True, with `errno`, when the fault lets the call fail as a whole.
bool fail(const std::optional<FaultAction>& fault)
{
    if (!fault || fault->kind == FaultKind::kShort || fault->kind == FaultKind::kTear) {
        return false;
    }
    if (fault->kind == FaultKind::kHang) {
        real::waitForSignal();
    }
    errno = fault->kind == FaultKind::kHang ? EINTR : fault->error;
    return true;
}

}  // namespace

void learnFaults(const board::Board& board)
{
    const FaultPlan plan(board);
    uint32_t calls = 0;
    for (size_t i = 0; i < kCallNames.size(); ++i) {
        calls |= plan.names(kCallNames[i]) ? bitOf(static_cast<Call>(i)) : 0;
    }
    plannedCalls = calls;
}

bool failsByPlan(Call call, const char* target)
{
    return planned(call) && fail(decide(call, target));
}

bool failsByPlan(Call call, int fd)
{
    return planned(call) && fail(decide(call, fd));
}

bool failsForCaller(Call call, const void* caller)
{
    return planned(call) && fail(decide(call, nameOfCaller(call, caller)));
}

Transfer planTransfer(Call call, int fd, size_t bytes)
{
    if (!planned(call)) {
        return {false, bytes, false};
    }
    const auto fault = decide(call, fd);
    if (fail(fault)) {
        return {true, 0, false};
    }
    const bool kills = fault && fault->kind == FaultKind::kTear;
    return {false, fault && bytes > 1 ? bytes / 2 : bytes, kills};
}

}  // namespace shim
