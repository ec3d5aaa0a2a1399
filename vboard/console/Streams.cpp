#include "console/Streams.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <nlohmann/json.hpp>

#include "Protocol.h"

namespace console {
namespace {

using namespace std::chrono_literals;
using nlohmann::json;

constexpr auto kTick = 250ms;       // how late the log may come while no status does
constexpr auto kSlowInterval = 1s;  // of what has to be looked up in folders
constexpr auto kSilence = 1s;       // something is sent at least so often: only sending shows who has gone
constexpr uint64_t kOldLogBytes = 8192;
constexpr const char* kLog = "VelCam.log";

std::string event(const char* name, const json& data)
{
    // A log may hold any bytes.
    const std::string text = data.dump(-1, ' ', false, json::error_handler_t::replace);
    return std::string("event: ") + name + "\ndata: " + text + "\n\n";
}

json describe(const std::vector<BoardFolder::Entry>& entries)
{
    json list = json::array();
    for (const BoardFolder::Entry& entry : entries) {
        list.push_back({{"name", entry.name}, {"bytes", entry.bytes}, {"changed", entry.changed}});
    }
    return list;
}

/// The bitrate that is saved on the board, null when there is none that can be read.
json savedBitrate(const BoardFolder& folder)
{
    const std::string text = folder.text(BoardFolder::kConfiguration, "bitrate").value_or("");
    unsigned kbps = 0;
    const auto read = std::from_chars(text.data(), text.data() + text.size(), kbps);
    return read.ec == std::errc() ? json(kbps) : json();
}

json counters(const board::State& state)
{
    json cameras = json::array();
    for (const board::Camera& camera : state.cameras) {
        cameras.push_back({{"delivered", camera.delivered.load()}, {"dropped", camera.dropped.load()}});
    }
    return {{"framesEncoded", state.framesEncoded.load()}, {"cameras", cameras}};
}

}  // namespace

std::string PictureStream::next()
{
    const auto picture = pictures_.await(seen_);
    if (picture == nullptr) {
        return {};
    }
    // A browser shows a part when the next one's line comes, so that this line ends each part.
    const std::string opening = seen_ == 0 ? "--picture\r\n" : "";
    seen_ = picture->number;
    return opening + "Content-Type: image/jpeg\r\nContent-Length: " + std::to_string(picture->jpeg.size()) +
           "\r\n\r\n" + picture->jpeg + "\r\n--picture\r\n";
}

std::string EventStream::next()
{
    const auto until = StatusFeed::Clock::now() + kSilence;
    std::string news = began_ ? "" : "retry: 1000\n\n";
    do {
        news += statusNews();
        if (statuses_.stopped()) {
            return {};
        }
        news += logNews() + slowNews();
        began_ = true;
    } while (news.empty() && StatusFeed::Clock::now() < until);
    return news.empty() ? ":\n\n" : news;
}

std::string EventStream::statusNews()
{
    const auto report = statuses_.await(seenStatus_, began_ ? kTick : 0ms);
    if (began_ && report.number == seenStatus_) {
        return {};
    }
    seenStatus_ = report.number;
    return event("status", report.number == 0 ? json() : control::toJson(report.status));
}

std::string EventStream::logNews()
{
    std::array<char, 16384> text{};
    const auto file = folder_.open(BoardFolder::kTemporary, kLog);
    if (!file) {
        return {};
    }
    const bool another = file->identity != logIdentity_ || file->bytes < logOffset_;
    if (another) {
        logIdentity_ = file->identity;
        logOffset_ = began_ || file->bytes < kOldLogBytes ? 0 : file->bytes - kOldLogBytes;
    }
    const ssize_t got =
        ::pread(file->descriptor.get(), text.data(), text.size(), static_cast<off_t>(logOffset_));
    if (got <= 0) {
        return {};
    }
    logOffset_ += static_cast<uint64_t>(got);
    return event("log", std::string(text.data(), static_cast<size_t>(got)));
}

/// What is looked up once a second, and said when it has changed.
std::string EventStream::slowNews()
{
    const auto now = StatusFeed::Clock::now();
    if (now < slowNewsDue_) {
        return {};
    }
    slowNewsDue_ = now + kSlowInterval;
    std::string news;
    const auto say = [&](const char* name, const json& data, std::string& said) {
        std::string text = event(name, data);
        if (text != said) {
            news += text;
            said = std::move(text);
        }
    };
    say("files",
        {{"recordings", describe(folder_.list(BoardFolder::kRecordings))},
         {"videos", describe(folder_.list(BoardFolder::kVideos))},
         {"kbps", savedBitrate(folder_)}},
        files_);
    say("board", counters(board_.state()), counters_);
    return news;
}

}  // namespace console
