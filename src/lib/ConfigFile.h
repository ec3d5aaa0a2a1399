#pragma once

#include <sys/types.h>

#include <map>
#include <string>

/// Settings read from files of `key=value` words, separated by any white space. Words without "=" are
/// skipped; there are no comments, quotes or escapes. The first assignment of a key wins, within a file and
/// over several.
///
/// Threads: one that parses; any number that look up afterwards.
class ConfigFile {
public:
    /// Adds a file's assignments. False when it cannot be opened.
    bool parse(std::string path);

    // The value of a key, converted; a key that is absent leaves the caller's variable as it was, so put the
    // default there.
    void findKey(bool& value, std::string key) const;         ///< true for exactly "1", "TRUE" or "true"
    void findKey(std::string& value, std::string key) const;  ///< as it stands
    /// Leading decimal digits, else 0; within signed 32 bits.
    void findKey(long& value, std::string key) const;
    void findKey(u_int8_t& value, std::string key) const;  ///< as for long, then its low 8 bits

private:
    static void trim(std::string& text);
    const std::string* stored(const std::string& key) const;

    std::map<std::string, std::string> config_map;
};
