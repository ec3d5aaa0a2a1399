#include <variant>

#include "cli/CommandLine.h"
#include "cli/Launcher.h"

int main(int argc, char** argv)
{
    const cli::Request request = cli::parseCommandLine(argc, argv);
    if (const auto* toRun = std::get_if<cli::RunRequest>(&request)) {
        return cli::run(*toRun);
    }
    if (const auto* toAttach = std::get_if<cli::AttachRequest>(&request)) {
        return cli::attach(*toAttach);
    }
    if (const auto* toSnapshot = std::get_if<cli::SnapshotRequest>(&request)) {
        return cli::snapshot(*toSnapshot);
    }
    if (const auto* toCut = std::get_if<cli::CutRequest>(&request)) {
        return cli::cut(*toCut);
    }
    const auto* finished = std::get_if<cli::Finished>(&request);
    return finished == nullptr ? cli::kBadUsage : finished->status;
}
