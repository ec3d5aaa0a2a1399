#pragma once

#include <string>
#include <vector>

namespace recording {

/// What the verbs are asked. Each gives the exit status back and has said on standard error what went wrong.
struct ListRequest {
    std::string directory;
    bool json = false;
};
int runList(const ListRequest& request);

struct CheckRequest {
    std::vector<std::string> files;
    bool json = false;
};
int runCheck(const CheckRequest& request);

/// Of every verb that makes a file from a recording.
struct MakeRequest {
    std::string input;
    std::string output;
    bool force = false;
};
int runRepair(const MakeRequest& request);
int runIndex(const MakeRequest& request);

// Times are seconds from the recording's beginning.
struct CutRequest {
    MakeRequest make;
    double from = 0;
    double to = 0;
};
int runCut(const CutRequest& request);

struct GrabRequest {
    MakeRequest make;
    double at = 0;
    unsigned camera = 0;  ///< 1 to 4; 0: the whole picture
};
int runGrab(const GrabRequest& request);

}  // namespace recording
