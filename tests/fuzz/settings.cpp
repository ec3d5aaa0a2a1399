// What the daemon reads of its own files: the configuration and the cameras' status.
#include <algorithm>
#include <cstdint>
#include <limits>
#include <sstream>

#include "MemoryFile.h"
#include "Targets.h"
#include "lib/ConfigFile.h"
#include "sys/SysData.h"

namespace {

constexpr const char* kUnset = "unset";

/// The value that the first assignment of a key gives, by the format's own words.
std::string firstValue(std::string_view text, const std::string& key)
{
    std::istringstream words{std::string(text)};
    for (std::string word; words >> word;) {
        if (word.compare(0, key.size() + 1, key + "=") == 0) {
            return word.substr(key.size() + 1);
        }
    }
    return kUnset;
}

}  // namespace

std::string fuzz::configuration(std::string_view input)
{
    const MemoryFile file(input);
    ConfigFile config;
    if (!config.parse(file.path())) {
        return "a file that opens was not read";
    }
    for (const char* key : {"dir", "log_level", "a", ""}) {
        std::string text = kUnset;
        bool truth = false;
        long number = 0;
        u_int8_t byte = 0;
        config.findKey(text, key);
        config.findKey(truth, key);
        config.findKey(number, key);
        config.findKey(byte, key);
        if (text != firstValue(input, key)) {
            return std::string("another value of '") + key + "'";
        }
        if (number < std::numeric_limits<std::int32_t>::min() ||
            number > std::numeric_limits<std::int32_t>::max()) {
            return "a number that the panel cannot hold";
        }
        if (byte != static_cast<u_int8_t>(number) ||
            (truth && text != "1" && text != "true" && text != "TRUE")) {
            return "values that do not belong together";
        }
    }
    return {};
}

std::string fuzz::cameraStatus(std::string_view input)
{
    const CameraStatus status = parseCameraStatus(std::string(input));
    const bool digits = input.find_first_of("123456789abcdefABCDEF") != std::string_view::npos;
    const bool faulty =
        std::any_of(status.channels.begin(), status.channels.end(), [](u_int8_t code) { return code != 0; });
    // Only what stands behind the two characters of a prefix is a fault.
    return faulty && !digits ? "a fault out of nothing" : "";
}
