#pragma once

#include <cstdint>
#include <ctime>
#include <optional>
#include <string>
#include <vector>

#include "cli/Descriptor.h"

namespace console {

/// The files of a board that the console shows, and no others: each step of a path is taken without following
/// links, so that nothing outside the board's folder is ever opened, whatever lies in it.
///
/// Threads: any; the folder is looked at anew with each call.
/// Errors:  what is not there, or is no plain file, is not listed and not opened.
class BoardFolder {
public:
    /// Where the daemon keeps things, below the board's root.
    static constexpr const char* kRecordings = "velmarine/f/camrecord";
    static constexpr const char* kVideos = "velmarine/f/video";
    static constexpr const char* kConfiguration = "velmarine/config";
    static constexpr const char* kTemporary = "tmp";

    struct Entry {
        std::string name;
        uint64_t bytes;
        time_t changed;
    };
    struct File {
        cli::Descriptor descriptor;
        uint64_t bytes = 0;
        uint64_t identity = 0;  ///< another one when the name stands for another file
    };

    explicit BoardFolder(std::string boardFolder) : folder_(std::move(boardFolder)) {}

    /// Plain files by name; those whose names are no UTF-8 are left out, and so is what is above a thousand.
    std::vector<Entry> list(const char* place) const;
    /// A plain file, to read. A name is one step: no '/', and neither "." nor "..".
    std::optional<File> open(const char* place, const std::string& name) const;
    /// The whole text of a small file, nothing when it is not there or above 4096 bytes.
    std::optional<std::string> text(const char* place, const std::string& name) const;

private:
    cli::Descriptor openPlace(const char* place) const;

    std::string folder_;
};

}  // namespace console
