#pragma once

#include <string>

#include "vpu_lib.h"

namespace codec {

/// How a call of the codec library ended. A reason marks a call that the board refuses: it goes into the
/// report.
struct Answer {
    RetCode code = RETCODE_SUCCESS;
    std::string reason = {};

    bool done() const { return code == RETCODE_SUCCESS; }
};

}  // namespace codec
