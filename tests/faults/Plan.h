#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "Report.h"

namespace faults {

enum class When { kFirst, kMiddle, kFromMiddle, kAlways };

/// One thing that goes wrong in a run.
struct Fault {
    std::string call, target;
    When when = When::kFirst;
    uint64_t occurrence = 1;  ///< the first that fails
    std::string error;

    std::string rule() const;  ///< for the launcher's --fault
    /// A number by which faults can be dealt out: the same in every run.
    uint64_t lot() const;
    /// The call is only interrupted or does a part of its work: that must not show.
    bool isHarmless() const { return error == "EINTR" || error == "short"; }
};

/// Each call of a run fails at its first, a middle and every occurrence, with each error that it can really
/// have. What is not the daemon's own (its player's, a font behind a link) is left out.
std::vector<Fault> planOf(const std::vector<support::CallTarget>& calls);

}  // namespace faults
