#include "Drive.h"

#include <sys/stat.h>

#include <array>

#include "RecordingReader.h"
#include "Scenes.h"

namespace faults {
namespace {

using control::MediaState;
using support::Duration;
using support::operator+;

constexpr Duration kPatience{6000 * scenes::kSlowness};    // for an answer, which takes 0.2 s
constexpr Duration kAllowance{20000 * scenes::kSlowness};  // for an end: two hung frames take 8.4 s

constexpr std::array kDamageNames{"fragment", "header", "torn tail", "torn chunk",
                                  "contents", "zeros",  "foreign",   "unreadable"};

struct Request {
    control::Packet packet;
    const char* said;  ///< on standard output, once it is acted upon; null: nothing
};

std::vector<Request> requests()
{
    return {{*control::bitrateSelection(4000), nullptr},
            {control::stateRequest(MediaState::kCamera, {1, 2}), "Req State Camera"},
            {control::channelSelection({3, 4}), nullptr},
            {control::stateRequest(MediaState::kBackup, {4}), "Req State BackupCam"},
            {*control::playRequest("short.avi"), "Req State VideoPlayback"},
            {control::stateRequest(MediaState::kTransfer, {1}), "Req State Transfer"},
            {control::stateRequest(MediaState::kIdle, {}), "Req State Idle"}};
}

}  // namespace

Kept readKept(const std::string& file)
{
    Kept kept;
    recording::RecordingReader reader;
    if (!reader.open(file, recording::Depth::kBytes)) {
        return kept;
    }
    while (const auto event = reader.next()) {
        if (const auto* header = std::get_if<recording::HeaderEvent>(&*event)) {
            kept.header = header->format.has_value();
        } else if (const auto* chunk = std::get_if<recording::Chunk>(&*event)) {
            kept.opens =
                kept.opens || (kept.frames == 0 && chunk->unit.keyFrame && chunk->unit.parameterSets);
            ++kept.frames;
        } else if (const auto* damage = std::get_if<recording::Damage>(&*event)) {
            kept.damage.emplace_back(kDamageNames.at(static_cast<size_t>(damage->kind)));
        }
    }
    return kept;
}

Drive::Drive(const std::string& player)
{
    EXPECT_TRUE(panel_.layOutWithPlayer(player));
}

void Drive::clean()
{
    std::error_code ignored;  // what was not made need not go
    std::filesystem::remove(panel_.recording(), ignored);
    std::filesystem::remove(panel_.file("/velmarine/f/logs/VelCam.log"), ignored);
    std::filesystem::remove(panel_.file("/tmp/VelCam.log"), ignored);
}

/// A daemon that was heard of no more is not waited for again.
void Drive::awaitReports(int count)
{
    constexpr Duration kLook{20};  // at whether the daemon has ended
    const auto any = [](const control::Status&) { return true; };
    for (int report = 0; report < count && reports_; ++report) {
        const auto since = support::Clock::now();
        const auto heard = [&] {
            return !panel_.running() || panel_.watch().await(any, since, kLook).has_value();
        };
        reports_ = support::waitUntil(heard, kPatience);
    }
}

/// Asks, and waits until it is acted upon; false when it is not, or the daemon has ended.
bool Drive::follow(const control::Packet& packet, const char* said)
{
    constexpr int kDrained = 2;  // reports after which a request has been taken and a pass was made
    if (!panel_.request(packet)) {
        return false;
    }
    if (said != nullptr && !awaitSaid(said, kPatience)) {
        return false;
    }
    awaitReports(panel_.running() ? kDrained : 0);
    return panel_.running();
}

/// False when it is not said in time, or the daemon has ended.
bool Drive::awaitSaid(const char* text, Duration limit)
{
    const auto said = [&] { return !panel_.running() || panel_.said(text); };
    return support::waitUntil(said, limit) && panel_.running();
}

bool Drive::followAll()
{
    for (const Request& request : requests()) {
        if (!follow(request.packet, request.said)) {
            return false;
        }
    }
    awaitFrames();
    return true;
}

/// A busy machine may have brought no frame so far that was recorded.
void Drive::awaitFrames()
{
    constexpr Duration kUntilAPassIsReported{1000 * scenes::kSlowness};
    const auto recording = [](const control::Status& status) { return status.isRecording; };
    const size_t before = support::readFile(panel_.recording()).size();
    if (reports_ && panel_.watch().await(recording, support::Clock::now(), kUntilAPassIsReported)) {
        support::waitUntil(
            [&] { return !panel_.running() || support::readFile(panel_.recording()).size() > before; },
            kPatience);
    }
}

Result Drive::run(const support::Command& options)
{
    clean();
    panel_.start(support::Command{"--fps", "25", "--codec-preset", "ultrafast"} + options);
    reports_ = true;

    Result result;
    // The second comes at once, if that thread comes at all.
    result.answered = awaitSaid("(core): Starting all threads", kAllowance) &&
                      awaitSaid("(core): Started core thread", kPatience) && followAll();
    result.finished = panel_.running();
    result.status = panel_.running() ? panel_.end(kAllowance) : panel_.awaitEnd(kAllowance);
    result.output = panel_.output();
    result.errors = panel_.errors();
    result.report = panel_.report();
    result.recording = readKept(panel_.recording());
    return result;
}

}  // namespace faults
