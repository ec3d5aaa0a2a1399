#pragma once

#include <string>

#include "cli/ChildProcess.h"
#include "cli/CommandLine.h"

namespace cli {

/// What makes a process run on the board of a folder: the board's variable, and the preloaded library (behind
/// a sanitizer's runtime when this launcher was built for one). What is wrong, empty when nothing.
std::string boardEnvironment(const std::string& folder, const Foreign& foreign, Environment& environment);

/// Exit status for a program that could not be started, as a shell has it.
int statusOfFailedStart(int error);

/// Exit statuses of the launcher's commands.
int attach(const AttachRequest& request);
int snapshot(const SnapshotRequest& request);
int run(const RunRequest& request);
int cut(const CutRequest& request);

}  // namespace cli
