#pragma once

#include <sys/types.h>

#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include "support/Child.h"

namespace survival {

/// A frame's chunk in a recording.
struct Place {
    off_t offset;
    uint32_t size;

    bool operator==(const Place& other) const { return offset == other.offset && size == other.size; }
};

/// The chunks that velcamrec finds in a file.
std::vector<Place> chunksFound(const std::string& file);

/// Which of the wanted chunks that end up to an offset are not among those found.
std::vector<Place> missingIn(const std::vector<Place>& found, const std::vector<Place>& wanted,
                             off_t upTo = std::numeric_limits<off_t>::max());

/// What a recording must hold after runs that ended in any way: every chunk that was written as a whole.
///
/// Found by the format's own words, from where each run began to where it was torn off, so that nothing
/// depends on a reader that has to find its way behind a tear.
class Ledger {
public:
    explicit Ledger(std::string file) : file_(std::move(file)) {}

    /// Takes note of what a run has added.
    void closeRun();

    /// The chunks that velcamrec does not find.
    std::vector<Place> missing() const { return missingIn(chunksFound(file_), chunks_); }

    const std::vector<Place>& chunks() const { return chunks_; }
    size_t tears() const { return tears_; }  ///< runs whose end is not that of a chunk
    /// Of these, ends that lack only padding: the frame is whole.
    size_t unpadded() const { return unpadded_; }
    /// Chunks that begin within what a torn one says to be its own: gone for whoever believes it.
    size_t swallowed() const { return swallowed_; }

private:
    void add(const Place& chunk);
    void tear(const std::string& data, size_t at);

    std::string file_;
    std::vector<Place> chunks_;
    size_t tears_ = 0;
    size_t unpadded_ = 0;
    size_t swallowed_ = 0;
    size_t end_ = 0;
    size_t claimed_ = 0;  // by torn chunks: up to where
};

/// What playing a file came to.
struct Playing {
    size_t frames = 0;         ///< that the player gives
    size_t unreadable = 0;     ///< of these, with a first tile whose code cannot be read
    size_t readableAtEnd = 0;  ///< pictures in a row, up to the last one, whose code can be read
    std::string complaints;    ///< the decoder's
};
Playing play(const std::string& file);

/// What playing the file comes to when velcamrec has mended it.
Playing playRepaired(const std::string& file);

/// How many chunks FFmpeg finds in a file, whether or not it can decode them.
size_t packetsSeen(const std::string& file);

/// Mends a recording; what is wrong with the result, empty when it has `frames` frames that all play without
/// a complaint.
std::string judgeRepaired(const std::string& file, size_t frames);

/// A line of figures for whoever collects them.
void report(const std::string& what, const std::vector<std::pair<std::string, size_t>>& figures);

}  // namespace survival
