#include <cstdio>
#include <filesystem>
#include <random>

#include "cli/Launcher.h"
#include "medium/Medium.h"

namespace cli {
namespace {

constexpr double kUsPerSecond = 1e6;

double secondsBetween(const medium::Journal& journal, size_t from, size_t to)
{
    return static_cast<double>(journal.entries[to].record.timeUs - journal.entries[from].record.timeUs) /
           kUsPerSecond;
}

/// The first entry that comes after so many seconds; the number of entries when none does.
size_t entryAt(const medium::Journal& journal, double seconds)
{
    size_t entry = 0;
    while (entry < journal.entries.size() && secondsBetween(journal, 0, entry) < seconds) {
        ++entry;
    }
    return entry;
}

}  // namespace

int cut(const CutRequest& request)
{
    const medium::Journal journal = medium::readJournal(request.folder + "/" + board::journal::kFile);
    if (journal.entries.empty()) {
        return complain("no journal in " + request.folder + ": run the board with --journal");
    }
    std::error_code error;
    if (!std::filesystem::is_empty(request.into, error) && !error) {
        return complain("choose a new or empty folder, not " + request.into);
    }
    const uint32_t seed = request.seed.value_or(std::random_device()());
    std::mt19937 chance(seed);
    const double end = secondsBetween(journal, 0, journal.entries.size() - 1);
    const double at = request.seconds.value_or(std::uniform_real_distribution<double>(0, end)(chance));
    const size_t entry = entryAt(journal, at);
    if (!medium::Medium(journal).cut(entry, static_cast<uint32_t>(chance()), request.into)) {
        complain("cannot write into " + request.into + ": choose a folder that can be written");
        return 1;
    }
    std::printf("power cut %.3f s after the board came up (of %.3f s), seed %u\n", at, end, seed);
    return 0;
}

}  // namespace cli
