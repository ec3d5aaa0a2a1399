#pragma once

#include <ctime>
#include <string>
#include <vector>

#include "RecordingReader.h"
#include "Survey.h"
#include "support/Folder.h"

/// Recordings for the tests of velcamrec: written by the daemon's own writer, then damaged.
namespace recordings {

/// A frame that breaks no rule of H.264's byte stream, though no decoder can show it.
std::string frame(bool key, unsigned seed, size_t bytes);

/// A size as chunks carry it.
std::string littleEndian(size_t size);

/// The codec header of every session that a Tape records.
const std::string& codecHeader();

/// A recording that is being made, and what was put into it.
class Tape {
public:
    Tape() = default;
    /// Continues a file with these bytes.
    explicit Tape(const std::string& content);

    /// One start of the writer: a key frame and frames that build on it, of several sizes.
    void session(unsigned frames);

    std::string content() const { return support::readFile(path()); }
    void replace(const std::string& content) { support::writeFile(path(), content); }
    std::string path() const { return folder_.file("cam.avi"); }

    /// Where the chunks of the last content written by the writer begin; the file's end behind them.
    std::vector<size_t> chunks;
    /// What the chunks hold, without codec header and padding.
    std::vector<std::string> frames;

private:
    support::Folder folder_;
};

/// A file's walk: what the reader said of it.
struct Walk {
    std::vector<recording::Damage> damages;
    std::vector<std::string> frames;  ///< with codec header, without padding
    size_t events = 0;
    std::string fault;  ///< the first of the reader's promises that it broke
};
Walk walk(const std::string& path, recording::Depth depth = recording::Depth::kBytes);

/// What check would say of it.
std::vector<recording::Finding> findings(const std::string& path);

constexpr std::time_t kLongAgo = 1'000'000'000;  ///< seconds since 1970
/// A file that was last changed long ago: nobody is waited for who may be writing it.
void writeOld(const std::string& path, const std::string& content, std::time_t lastChange = kLongAgo);

}  // namespace recordings
