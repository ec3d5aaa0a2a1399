#pragma once

#include <string>

namespace recordings {

/// A recording of the real daemon on a virtual board: two runs, of more than 300 frames each, so that both
/// kinds of key frames are in it. It is made once for a build and shared by the tests, which may run at the
/// same time.
struct Sample {
    std::string path;   ///< empty: it could not be made
    std::string fault;  ///< why
};
const Sample& sample();

}  // namespace recordings
