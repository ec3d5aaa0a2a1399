#pragma once

#include <ctime>
#include <optional>
#include <string>
#include <vector>

namespace recording {

/// One file of the series that a recording directory holds.
struct Member {
    std::string name;
    std::optional<unsigned> generation;  ///< 0 is the youngest rotated one; nothing for the live file
};

/// The live file and its generations in the order of time, the oldest first, with the numbers that are
/// missing between.
struct Series {
    std::vector<Member> members;
    std::vector<unsigned> missing;
};

/// Nothing when the directory cannot be read; `error` says why.
std::optional<Series> readSeries(const std::string& directory, std::string& error);

/// What a file's own times tell of what it recorded.
struct RecordedTimes {
    std::optional<std::time_t> first;  ///< nothing when it cannot be known
    std::time_t last = 0;
};

/// The last frame came at the file's last change. The first one came when the file was made, if the file
/// system says when and the recording fits between (a copy is made later than what it shows); a recording in
/// one session reaches back as long as it lasts.
std::optional<RecordedTimes> recordedTimes(const std::string& path, double seconds, bool oneSession);

}  // namespace recording
