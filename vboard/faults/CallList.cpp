#include "faults/CallList.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace board {

void CallList::note(const char* call, const char* target) const
{
    if (!isKept() || std::strlen(target) >= kTargetBytes) {
        return;
    }
    CallTarget* entry = find(call, target);
    if (entry == nullptr) {
        const BoardLock lock(board_);
        entry = find(call, target);
        if (entry == nullptr && state_.callTargetUsed < state_.callTargets.size()) {
            entry = &state_.callTargets[state_.callTargetUsed];
            std::snprintf(entry->call, sizeof(entry->call), "%s", call);
            std::snprintf(entry->target, sizeof(entry->target), "%s", target);
            ++state_.callTargetUsed;
        }
    }
    if (entry != nullptr) {
        ++entry->count;
    }
}

CallTarget* CallList::find(const char* call, const char* target) const
{
    auto* const end = state_.callTargets.begin() + state_.callTargetUsed;
    auto* const found = std::find_if(state_.callTargets.begin(), end, [&](const CallTarget& entry) {
        return std::strcmp(entry.call, call) == 0 && std::strcmp(entry.target, target) == 0;
    });
    return found == end ? nullptr : found;
}

}  // namespace board
