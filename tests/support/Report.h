#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace support {

/// A call and what it was made on, both as the fault plan names them.
struct CallTarget {
    std::string call, target;
    uint64_t count = 0;
};

/// What the board noted about a run.
class Report {
public:
    /// Reads the launcher's report; complete() is false when there is none or it cannot be read.
    static Report read(const std::string& file);

    bool complete() const { return complete_; }
    uint64_t framesEncoded() const;
    uint64_t framesDelivered(int camera) const;  ///< camera 1 to 4
    uint64_t framesDropped(int camera) const;
    /// Every call of the run that could fail; empty unless the launcher was told to list them.
    std::vector<CallTarget> callTargets() const;
    /// How often the faults of the plan fired, all together.
    uint64_t faultsFired() const;
    /// One line for each allocation that was still live, and for each call that the board refused.
    std::vector<std::string> live() const;
    std::vector<std::string> refused() const;

private:
    nlohmann::json json_;
    bool complete_ = false;
};

}  // namespace support
