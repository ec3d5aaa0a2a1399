#include "Series.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <system_error>

namespace recording {
namespace {

constexpr const char* kLiveName = "cam.avi";
constexpr const char* kEnding = ".avi";
constexpr size_t kDigits = 2;
constexpr unsigned kDecimal = 10;

bool isDigit(char character)
{
    return character >= '0' && character <= '9';
}

/// Of "cam.avi.NN.avi".
std::optional<unsigned> generationOf(const std::string& name)
{
    const std::string begin = std::string(kLiveName) + ".";
    const size_t end = begin.size() + kDigits;
    const bool fits = name.size() == end + std::string(kEnding).size() &&
                      name.compare(0, begin.size(), begin) == 0 &&
                      name.compare(end, std::string::npos, kEnding) == 0;
    if (!fits || !isDigit(name[end - 2]) || !isDigit(name[end - 1])) {
        return std::nullopt;
    }
    return static_cast<unsigned>(name[end - 2] - '0') * kDecimal + static_cast<unsigned>(name[end - 1] - '0');
}

std::vector<unsigned> missingBefore(const std::vector<Member>& generations)
{
    std::vector<unsigned> missing;
    unsigned expected = 0;
    for (auto member = generations.rbegin(); member != generations.rend(); ++member) {
        for (; expected < *member->generation; ++expected) {
            missing.push_back(expected);
        }
        ++expected;
    }
    return missing;
}

}  // namespace

std::optional<Series> readSeries(const std::string& directory, std::string& error)
{
    Series series;
    bool live = false;
    std::error_code code;
    auto entry = std::filesystem::directory_iterator(directory, code);
    for (; !code && entry != std::filesystem::directory_iterator(); entry.increment(code)) {
        const std::string name = entry->path().filename().string();
        live = live || name == kLiveName;
        if (const auto generation = generationOf(name)) {
            series.members.push_back({name, generation});
        }
    }
    if (code) {
        error = code.message();
        return std::nullopt;
    }
    std::sort(series.members.begin(), series.members.end(),
              [](const Member& one, const Member& other) { return *one.generation > *other.generation; });
    series.missing = missingBefore(series.members);
    if (live) {
        series.members.push_back({kLiveName, std::nullopt});
    }
    return series;
}

std::optional<RecordedTimes> recordedTimes(const std::string& path, double seconds, bool oneSession)
{
    constexpr std::time_t kSlack =
        2;  // the writer runs a little behind the clock, and both are cut to seconds
    struct statx status = {};
    if (::statx(AT_FDCWD, path.c_str(), 0, STATX_MTIME | STATX_BTIME, &status) != 0) {
        return std::nullopt;
    }
    RecordedTimes times;
    times.last = status.stx_mtime.tv_sec;
    const std::time_t latestStart = times.last - static_cast<std::time_t>(seconds);
    const bool madeKnown = (status.stx_mask & STATX_BTIME) != 0;
    if (madeKnown && status.stx_btime.tv_sec <= latestStart + kSlack) {
        times.first = status.stx_btime.tv_sec;
    } else if (oneSession) {
        times.first = latestStart;
    }
    return times;
}

}  // namespace recording
