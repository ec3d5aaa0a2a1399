#include <array>
#include <cstdio>
#include <ctime>
#include <nlohmann/json.hpp>

#include "Series.h"
#include "Survey.h"
#include "Verbs.h"

namespace recording {
namespace {

constexpr double kBytesAMegabyte = 1e6;

struct Row {
    Member member;
    Summary summary;
    RecordedTimes times;
};

/// All that is shown, in the order of time.
struct History {
    std::vector<Row> rows;
    std::vector<unsigned> missing;
    std::vector<std::string> unreadable;  // "name: why"
};

std::string localTime(std::time_t time)
{
    tm local = {};
    std::array<char, 32> text{};
    ::localtime_r(&time, &local);
    std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M:%S", &local);
    return text.data();
}

std::string localTime(const std::optional<std::time_t>& time)
{
    return time ? localTime(*time) : "unknown";
}

std::string damageText(uint64_t findings)
{
    return findings == 0 ? "sound" : "damaged at " + count(findings, "place");
}

std::string state(const Summary& summary)
{
    if (!summary.beingWritten) {
        return damageText(summary.findings);
    }
    return (summary.findings == 0 ? "" : damageText(summary.findings) + ", ") + "being written";
}

bool survey(const std::string& path, Row& row, std::string& error)
{
    RecordingReader reader;
    if (!reader.open(path, Depth::kHeads)) {
        error = reader.error();
        return false;
    }
    Progress progress("list " + row.member.name, reader.size());
    Survey survey(reader, progress, {});
    survey.walk();
    row.summary = survey.summary();
    const auto times = recordedTimes(path, row.summary.seconds(), row.summary.sessions == 1);
    row.times = times.value_or(RecordedTimes());
    return true;
}

History readHistory(const std::string& directory, const Series& series)
{
    History history;
    history.missing = series.missing;
    for (const Member& member : series.members) {
        Row row{member, {}, {}};
        std::string error;
        if (survey(directory + "/" + member.name, row, error)) {
            history.rows.push_back(row);
        } else {
            history.unreadable.push_back(member.name + ": " + error);
        }
    }
    return history;
}

struct Totals {
    off_t bytes = 0;
    uint64_t sessions = 0;
    uint64_t frames = 0;
    uint64_t findings = 0;
    double seconds = 0;
    std::optional<std::time_t> first;  // the earliest that is known
};

Totals totalsOf(const History& history)
{
    Totals totals;
    for (const Row& row : history.rows) {
        totals.bytes += row.summary.bytes;
        totals.sessions += row.summary.sessions;
        totals.frames += row.summary.frames;
        totals.findings += row.summary.findings;
        totals.seconds += row.summary.seconds();
        if (row.times.first && (!totals.first || *row.times.first < *totals.first)) {
            totals.first = row.times.first;
        }
    }
    return totals;
}

std::string missingText(const std::vector<unsigned>& missing)
{
    std::string text;
    for (const unsigned generation : missing) {
        char number[16];
        std::snprintf(number, sizeof(number), "%02u", generation);
        text += (text.empty() ? "" : ", ") + std::string(number);
    }
    return text;
}

void print(const std::string& directory, const History& history)
{
    constexpr const char* kFormat = "%-14s %9s %8s %8s %12s  %-19s  %-19s  %s\n";
    std::printf(kFormat, "file", "MB", "sessions", "frames", "duration", "first", "last", "state");
    const auto line = [&](const std::string& name, off_t bytes, uint64_t sessions, uint64_t frames,
                          double seconds, const std::string& first, const std::string& last,
                          const std::string& state) {
        char megabytes[32];
        std::snprintf(megabytes, sizeof(megabytes), "%.1f", static_cast<double>(bytes) / kBytesAMegabyte);
        std::printf(kFormat, name.c_str(), megabytes, std::to_string(sessions).c_str(),
                    std::to_string(frames).c_str(), clockText(seconds).c_str(), first.c_str(), last.c_str(),
                    state.c_str());
    };
    for (const Row& row : history.rows) {
        const Summary& summary = row.summary;
        line(row.member.name, summary.bytes, summary.sessions, summary.frames, summary.seconds(),
             localTime(row.times.first), localTime(row.times.last), state(summary));
    }
    const Totals totals = totalsOf(history);
    line("all", totals.bytes, totals.sessions, totals.frames, totals.seconds, "", "",
         damageText(totals.findings));
    if (!history.missing.empty()) {
        std::printf("Missing in the series: %s\n", missingText(history.missing).c_str());
    }
    const bool oldestKnown = history.rows.front().times.first.has_value();
    std::printf("The recordings in %s reach back %sto %s\n", directory.c_str(),
                oldestKnown || !totals.first ? "" : "at least ", localTime(totals.first).c_str());
}

nlohmann::ordered_json timeToJson(const std::optional<std::time_t>& time)
{
    return time ? nlohmann::ordered_json(*time) : nlohmann::ordered_json();
}

nlohmann::ordered_json toJson(const Row& row)
{
    const Summary& summary = row.summary;
    nlohmann::ordered_json json;
    json["name"] = row.member.name;
    json["generation"] =
        row.member.generation ? nlohmann::ordered_json(*row.member.generation) : nlohmann::ordered_json();
    json["bytes"] = summary.bytes;
    json["sessions"] = summary.sessions;
    json["frames"] = summary.frames;
    json["skippedFrames"] = summary.skippedFrames;
    json["keyFrames"] = summary.keyFrames;
    json["seconds"] = summary.seconds();
    json["first"] = timeToJson(row.times.first);
    json["last"] = row.times.last;
    json["damagedPlaces"] = summary.findings;
    json["beingWritten"] = summary.beingWritten;
    return json;
}

void printJson(const std::string& directory, const History& history)
{
    nlohmann::ordered_json json;
    json["directory"] = directory;
    json["files"] = nlohmann::ordered_json::array();
    for (const Row& row : history.rows) {
        json["files"].push_back(toJson(row));
    }
    const Totals totals = totalsOf(history);
    json["missing"] = history.missing;
    json["bytes"] = totals.bytes;
    json["sessions"] = totals.sessions;
    json["frames"] = totals.frames;
    json["seconds"] = totals.seconds;
    json["damagedPlaces"] = totals.findings;
    json["reachesBackTo"] = timeToJson(totals.first);
    const auto replace = nlohmann::ordered_json::error_handler_t::replace;  // a name may be of any bytes
    std::puts(json.dump(-1, ' ', false, replace).c_str());
}

}  // namespace

int runList(const ListRequest& request)
{
    std::string error;
    const auto series = readSeries(request.directory, error);
    if (!series) {
        return fail(kFailed, request.directory + " cannot be read: " + error);
    }
    const History history = readHistory(request.directory, *series);
    if (interrupted()) {
        return fail(kFailed, "interrupted");
    }
    for (const std::string& problem : history.unreadable) {
        fail(kFailed, problem);
    }
    if (request.json) {
        printJson(request.directory, history);
    } else if (history.rows.empty()) {
        std::printf("No recordings in %s\n", request.directory.c_str());
    } else {
        print(request.directory, history);
    }
    return history.unreadable.empty() ? kDone : kFailed;
}

}  // namespace recording
