#pragma once

#include <string>

namespace pipeline {

/// A recording without a daemon, for comparison.
struct BareRun {
    enum class Work {
        kNone,  ///< x264 alone: the finished frames lie in memory, its output is dropped
        kTight  ///< all the pixel work and the writing, in plain loops
    };
    Work work;
    unsigned cameras;  ///< 2 or 4
    int threads;       ///< of x264
    unsigned frames;
    std::string preset;
    std::string clips;  ///< folder with camera1.nv12 ...
    std::string output;
};

/// What is wrong, empty when nothing is.
std::string run(const BareRun& bare);

}  // namespace pipeline
