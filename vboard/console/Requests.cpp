#include "console/Requests.h"

#include <microhttpd.h>

#include <array>
#include <nlohmann/json.hpp>
#include <optional>

#include "Protocol.h"
#include "Queues.h"

namespace console {
namespace {

using namespace std::chrono_literals;
using nlohmann::json;

constexpr auto kPatience = 1s;
constexpr int kMostInASecond = 20;
constexpr unsigned kLastCamera = 4;

/// A field of an object when it is there, null otherwise.
const json& field(const json& object, const char* name)
{
    static const json kNothing;
    const auto found = object.is_object() ? object.find(name) : object.end();
    return found == object.end() ? kNothing : *found;
}

/// Up to four camera numbers; those that are not given are 0.
std::optional<control::Channels> channelsOf(const json& list)
{
    control::Channels channels{};
    if (!list.is_array() || list.size() > channels.size()) {
        return std::nullopt;
    }
    for (size_t i = 0; i < list.size(); ++i) {
        if (!list[i].is_number_unsigned() || list[i] > kLastCamera) {
            return std::nullopt;
        }
        channels[i] = list[i].get<uint8_t>();
    }
    return channels;
}

std::string textOf(const json& value)
{
    return value.is_string() ? value.get<std::string>() : std::string();
}

std::optional<control::Packet> stateRequest(const json& asked)
{
    const auto state = control::stateByName(textOf(field(asked, "state")));
    const auto channels = channelsOf(field(asked, "channels"));
    const bool known = state && *state != control::MediaState::kPlay && channels;
    return known ? std::optional(control::stateRequest(*state, *channels)) : std::nullopt;
}

std::optional<control::Packet> channelSelection(const json& asked)
{
    const auto channels = channelsOf(field(asked, "channels"));
    return channels ? std::optional(control::channelSelection(*channels)) : std::nullopt;
}

std::optional<control::Packet> bitrateSelection(const json& asked)
{
    constexpr uint64_t kAboveAll = 1000000;
    const json& rate = field(asked, "kbps");
    const bool fits = rate.is_number_unsigned() && rate < kAboveAll;
    return fits ? control::bitrateSelection(rate.get<unsigned>()) : std::nullopt;
}

std::optional<control::Packet> playRequest(const json& asked)
{
    return control::playRequest(textOf(field(asked, "name")));
}

struct Kind {
    const char* path;
    std::optional<control::Packet> (*packet)(const json& asked);
    const char* usage;
};
constexpr std::array kKinds{
    Kind{"/api/state", stateRequest,
         R"(send {"state": "idle|camera|backup|transfer", "channels": [up to four of 0 to 4]})"},
    Kind{"/api/channels", channelSelection, R"(send {"channels": [up to four of 0 to 4]})"},
    Kind{"/api/bitrate", bitrateSelection, R"(send {"kbps": 1000, 2000 or 4000})"},
    Kind{"/api/play", playRequest, R"(send {"name": a stored video's, up to 98 bytes})"}};

}  // namespace

std::vector<Route> Requests::routes()
{
    std::vector<Route> routes;
    for (const Kind& kind : kKinds) {
        routes.push_back({"POST", kind.path, [this, &kind](const HttpRequest& request) {
                              const json asked = json::parse(request.body, nullptr, false);
                              const auto packet = kind.packet(asked);
                              return packet ? send(*packet) : refusal(MHD_HTTP_BAD_REQUEST, kind.usage);
                          }});
    }
    return routes;
}

bool Requests::withinRate()
{
    const std::lock_guard<std::mutex> guard(lock_);
    const auto now = std::chrono::steady_clock::now();
    if (now - second_ >= 1s) {
        second_ = now;
        inSecond_ = 0;
    }
    return ++inSecond_ <= kMostInASecond;
}

HttpResponse Requests::send(const control::Packet& packet)
{
    if (!withinRate()) {
        return refusal(MHD_HTTP_TOO_MANY_REQUESTS, "more than twenty requests in a second");
    }
    control::Queue queue(queueName_, control::Queue::Direction::kSend);
    if (!queue.isOpen()) {
        return refusal(MHD_HTTP_SERVICE_UNAVAILABLE, "the daemon is not up");
    }
    if (!queue.send(control::encode(packet), kPatience)) {
        return refusal(MHD_HTTP_SERVICE_UNAVAILABLE, "the daemon does not take the request");
    }
    HttpResponse done;
    done.status = MHD_HTTP_NO_CONTENT;
    return done;
}

}  // namespace console
