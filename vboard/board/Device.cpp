#include "board/Device.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>

#include "board/Real.h"
#include "faults/FaultPlan.h"

namespace board {
namespace {

/// A request that hangs waits for a signal, as a driver does whose interrupt never comes.
int answerOf(const FaultAction& fault)
{
    if (fault.kind == FaultKind::kHang) {
        real::waitForSignal();
        return -EINTR;
    }
    return -fault.error;
}

}  // namespace

int Device::ioctl(unsigned long requestNumber, void* argument)
{
    const Request* known = find(static_cast<uint32_t>(requestNumber));
    if (known == nullptr) {
        char number[16];
        std::snprintf(number, sizeof(number), "0x%08X", static_cast<unsigned>(requestNumber));
        return refuse("ioctl", -ENOTTY, std::string("unknown request ") + number);
    }
    board_.countCall(name_, known->name);
    const auto fault = FaultPlan(board_).check(known->name, path_);
    if (fault && !befall(*fault)) {
        return answerOf(*fault);
    }
    if (!isPresent()) {
        return -ENODEV;
    }
    if (known->takesRecord && argument == nullptr) {
        return refuse(known->name, -EFAULT, "null record");
    }
    return known->answer(*this, argument);
}

int Device::refuse(const char* call, int error, const std::string& reason) const
{
    board_.refuse(name_, call, reason);
    return error;
}

const Request* Device::find(uint32_t code) const
{
    const Table table = requests();
    const Request* end = table.first + table.count;
    const Request* found =
        std::find_if(table.first, end, [&](const Request& row) { return row.code == code; });
    return found == end ? nullptr : found;
}

}  // namespace board
