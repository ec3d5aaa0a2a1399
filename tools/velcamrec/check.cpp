#include <algorithm>
#include <cstdio>
#include <nlohmann/json.hpp>

#include "Survey.h"
#include "Verbs.h"

namespace recording {
namespace {

// A file full of faults shall not fill the memory.
constexpr size_t kMostInJson = 10'000;

void print(const std::string& file, const Finding& finding)
{
    std::printf("%s: offset %lld, %lld bytes: %s; lost: %s\n", file.c_str(),
                static_cast<long long>(finding.offset), static_cast<long long>(finding.length),
                finding.what.c_str(), finding.loss.c_str());
}

void print(const std::string& file, const Summary& summary)
{
    const std::string damage = summary.findings == 0 ? "sound"
                                                     : count(summary.findings, "fault") + ", " +
                                                           count(summary.badBytes, "byte") + " of no use";
    const std::string skipped =
        summary.skippedFrames == 0 ? "" : std::to_string(summary.skippedFrames) + " skipped by the encoder, ";
    std::printf("%s: %s%s; %s in %s, %s, %s%s\n", file.c_str(), damage.c_str(),
                summary.beingWritten ? ", being written" : "", count(summary.frames, "frame").c_str(),
                count(summary.sessions, "session").c_str(), count(summary.keyFrames, "key frame").c_str(),
                skipped.c_str(), clockText(summary.seconds()).c_str());
}

void printJson(const std::string& file, const Summary& summary, nlohmann::ordered_json&& findings)
{
    nlohmann::ordered_json json;
    json["file"] = file;
    json["sound"] = summary.findings == 0;
    json["bytes"] = summary.bytes;
    json["frames"] = summary.frames;
    json["skippedFrames"] = summary.skippedFrames;
    json["keyFrames"] = summary.keyFrames;
    json["sessions"] = summary.sessions;
    json["seconds"] = summary.seconds();
    json["beingWritten"] = summary.beingWritten;
    json["uselessBytes"] = summary.badBytes;
    json["faults"] = summary.findings;
    json["findings"] = std::move(findings);
    const auto replace = nlohmann::ordered_json::error_handler_t::replace;  // a name may be of any bytes
    std::puts(json.dump(-1, ' ', false, replace).c_str());
}

int checkFile(const std::string& file, bool asJson)
{
    RecordingReader reader;
    if (!reader.open(file, Depth::kBytes)) {
        return fail(kBadUsage, file + " cannot be read: " + reader.error());
    }
    auto findings = nlohmann::ordered_json::array();
    const auto sink = [&](const Finding& finding) {
        if (!asJson) {
            print(file, finding);
        } else if (findings.size() < kMostInJson) {
            findings.push_back({{"offset", finding.offset},
                                {"bytes", finding.length},
                                {"what", finding.what},
                                {"lost", finding.loss}});
        }
    };
    Progress progress("check " + file, reader.size());
    Survey survey(reader, progress, sink);
    survey.walk();
    if (interrupted()) {
        return fail(kFailed, "interrupted");
    }
    if (asJson) {
        printJson(file, survey.summary(), std::move(findings));
    } else {
        print(file, survey.summary());
    }
    return survey.summary().findings == 0 ? kDone : kFailed;
}

}  // namespace

int runCheck(const CheckRequest& request)
{
    int status = kDone;
    for (const std::string& file : request.files) {
        status = std::max(status, checkFile(file, request.json));
        if (interrupted()) {
            break;
        }
    }
    return status;
}

}  // namespace recording
