#include "cli/FaultRules.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "shim/Call.h"

namespace cli {
namespace {

/// Device requests and the codec library's functions are named as they are; they begin so.
constexpr std::array<std::string_view, 4> kRequests{"VIDIOC_", "IPU_", "FBIO", "MXCFB_"};
constexpr std::array<std::string_view, 2> kCodec{"vpu_", "IO"};
constexpr std::array<std::string_view, 5> kCameraEvents{"bad", "lost", "wrap", "nosignal", "gone"};

template <typename Prefixes>
bool beginsWithOneOf(std::string_view text, const Prefixes& prefixes)
{
    return std::any_of(prefixes.begin(), prefixes.end(),
                       [&](std::string_view prefix) { return text.substr(0, prefix.size()) == prefix; });
}

std::string listOfCalls()
{
    std::string list;
    for (const char* name : shim::kCallNames) {
        list += std::string(name) + ", ";
    }
    return list + "a device request or a function of the codec library";
}

}  // namespace

std::string checkFaultRule(const std::string& rule)
{
    const std::string call = rule.substr(0, rule.find('@'));
    const size_t equals = rule.rfind('=');
    const std::string error = equals == std::string::npos ? std::string() : rule.substr(equals + 1);
    const bool codec = beginsWithOneOf(call, kCodec);
    const bool known =
        std::find(shim::kCallNames.begin(), shim::kCallNames.end(), call) != shim::kCallNames.end();
    if (!known && !codec && !beginsWithOneOf(call, kRequests)) {
        return "no call '" + call + "' can fail by plan; name " + listOfCalls();
    }
    if (error == "short" && call != "read" && call != "write") {
        return "only read and write can be short, not '" + call + "'";
    }
    if (error == "skip" && call != "vpu_EncStartOneFrame") {
        return "only vpu_EncStartOneFrame can skip, not '" + call + "'";
    }
    const auto* const end = kCameraEvents.end();
    if (call != "VIDIOC_DQBUF" && std::find(kCameraEvents.begin(), end, error) != end) {
        return "'" + error + "' befalls a camera at VIDIOC_DQBUF, not at '" + call + "'";
    }
    if (!codec && (error.substr(0, 1) == "-" || error == "0" || error.compare(0, 8, "RETCODE_") == 0)) {
        return "'" + call + "' fails with an errno, not with '" + error + "'";
    }
    return {};
}

}  // namespace cli
