#include "lib/ConfigFile.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <limits>
#include <utility>

#include "lib/interrupted.h"
#include "lib/strfnts.h"

// The interface takes strings by value; start-up is the only caller.
// NOLINTBEGIN(performance-unnecessary-value-param)

namespace {

/// As strtol converts where a long has 32 bits, on the board, so that a PC reads the same value from the same
/// file.
std::int32_t toNumber(const std::string& text)
{
    constexpr long lowest = std::numeric_limits<std::int32_t>::min();
    constexpr long highest = std::numeric_limits<std::int32_t>::max();
    return static_cast<std::int32_t>(std::clamp(std::strtol(text.c_str(), nullptr, 10), lowest, highest));
}

}  // namespace

bool ConfigFile::parse(std::string path)
{
    std::ifstream file;
    openInterrupted(file, path.c_str());
    if (!file.is_open()) {
        return false;
    }
    std::string word;
    while (file >> word) {
        const size_t equals = word.find('=');
        if (equals == std::string::npos) {
            continue;
        }
        std::string key = word.substr(0, equals);
        std::string value = word.substr(equals + 1);
        trim(key);
        trim(value);
        config_map.emplace(std::move(key), std::move(value));  // leaves a key that is there as it is
    }
    return true;
}

void ConfigFile::findKey(bool& value, std::string key) const
{
    if (const std::string* text = stored(key)) {
        value = *text == "1" || *text == "TRUE" || *text == "true";
    }
}

void ConfigFile::findKey(std::string& value, std::string key) const
{
    if (const std::string* text = stored(key)) {
        value = *text;
    }
}

void ConfigFile::findKey(long& value, std::string key) const
{
    if (const std::string* text = stored(key)) {
        value = toNumber(*text);
    }
}

void ConfigFile::findKey(u_int8_t& value, std::string key) const
{
    if (const std::string* text = stored(key)) {
        value = static_cast<u_int8_t>(toNumber(*text));
    }
}

void ConfigFile::trim(std::string& text)
{
    strfnts::trim(text);
}

const std::string* ConfigFile::stored(const std::string& key) const
{
    const auto found = config_map.find(key);
    return found == config_map.end() ? nullptr : &found->second;
}

// NOLINTEND(performance-unnecessary-value-param)
