#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

/// Which processes there are, as /proc tells.
namespace processes {

struct Process {
    pid_t id = -1;
    pid_t parent = -1;
    std::string name;
    bool ended = false;       ///< and not collected
    std::string environment;  ///< a zero before each entry and behind the last; an ended one has none
};

std::vector<Process> childrenOf(pid_t parent);

/// Those that were started with this setting in their environment, "NAME=value".
std::vector<Process> withSetting(const std::string& setting);

}  // namespace processes
