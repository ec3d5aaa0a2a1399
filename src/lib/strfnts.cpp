#include "lib/strfnts.h"

#include <algorithm>

// The interface takes these strings by value.
// NOLINTBEGIN(performance-unnecessary-value-param)

namespace {

constexpr const char* kWhiteSpace = " \t\n\v\f\r";

constexpr char kBase64[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

}  // namespace

std::vector<std::string> strfnts::split(const std::string& text, char delimiter)
{
    return split(text, std::string(1, delimiter));
}

std::vector<std::string> strfnts::split(const std::string& text, std::string delimiter)
{
    std::vector<std::string> fields;
    if (delimiter.empty()) {
        return fields;
    }
    size_t start = 0;
    for (size_t end = text.find(delimiter); end != std::string::npos; end = text.find(delimiter, start)) {
        fields.push_back(text.substr(start, end - start));
        start = end + delimiter.length();
    }
    if (start != 0) {
        fields.push_back(text.substr(start));
    }
    return fields;
}

std::string strfnts::join(const std::vector<std::string>& list, char separator)
{
    std::string joined;
    for (const std::string& element : list) {
        joined += element;
        joined += separator;
    }
    return joined;
}

std::string strfnts::strip_characters(std::string text, char c)
{
    text.erase(std::remove(text.begin(), text.end(), c), text.end());
    return text;
}

void strfnts::ltrim(std::string& text)
{
    text.erase(0, text.find_first_not_of(kWhiteSpace));
}

void strfnts::rtrim(std::string& text)
{
    text.erase(text.find_last_not_of(kWhiteSpace) + 1);  // npos + 1 is 0
}

void strfnts::trim(std::string& text)
{
    ltrim(text);
    rtrim(text);
}

void strfnts::strCase(std::string& text, bool upper)
{
    constexpr char distance = 'a' - 'A';
    for (char& c : text) {
        if (upper && c >= 'a' && c <= 'z') {
            c = static_cast<char>(c - distance);
        } else if (!upper && c >= 'A' && c <= 'Z') {
            c = static_cast<char>(c + distance);
        }
    }
}

std::string strfnts::base64_encode(std::string data)
{
    constexpr size_t groupBytes = 3;       // which become four characters
    constexpr unsigned int digitBits = 6;  // of a character
    std::string encoded;
    encoded.reserve((data.size() + groupBytes - 1) / groupBytes * 4);
    for (size_t i = 0; i < data.size(); i += groupBytes) {
        const size_t bytes = std::min(groupBytes, data.size() - i);
        unsigned int group = 0;
        for (size_t k = 0; k < groupBytes; ++k) {
            group = (group << 8) | (k < bytes ? static_cast<unsigned char>(data[i + k]) : 0U);
        }
        for (size_t k = 0; k <= groupBytes; ++k) {
            const unsigned int digit = (group >> (digitBits * (groupBytes - k))) & (sizeof kBase64 - 2);
            encoded += k <= bytes ? kBase64[digit] : '=';
        }
    }
    return encoded;
}

// NOLINTEND(performance-unnecessary-value-param)
