#pragma once

#include <string>
#include <vector>

/// String operations. Holds no state. White space is that of the C locale, letters are those of ASCII.
///
/// Threads: any.
class strfnts {
public:
    /// The fields between delimiters, empty ones included. A text without any delimiter gives no field at
    /// all.
    static std::vector<std::string> split(const std::string& text, char delimiter);
    /// As above; an empty delimiter gives no field.
    static std::vector<std::string> split(const std::string& text, std::string delimiter);

    /// Every element followed by the separator, the last one too.
    static std::string join(const std::vector<std::string>& list, char separator);

    /// A copy of `text` without any `c`.
    static std::string strip_characters(std::string text, char c);

    static void ltrim(std::string& text);
    static void rtrim(std::string& text);
    static void trim(std::string& text);

    /// Makes letters upper or lower case.
    static void strCase(std::string& text, bool upper);

    /// Base64 (RFC 4648) without line breaks.
    static std::string base64_encode(std::string data);
};
