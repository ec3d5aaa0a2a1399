#pragma once

#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <variant>

#include "AccessUnit.h"
#include "FileWindow.h"
#include "Header.h"

namespace recording {

/// How much of the file is read.
enum class Depth {
    kHeads,  ///< chunk heads and what kind of frame follows: damage inside a frame is not seen
    kBytes   ///< every byte
};

/// Where the header was, or would be; comes once, first (damage before or in it comes next).
struct HeaderEvent {
    off_t offset = 0;
    std::optional<Format> format;  ///< nothing: unknown
};

/// A frame that can be used, or the chunk of one that the encoder skipped: its place in time, no picture.
struct Chunk {
    off_t offset = 0;      ///< of the chunk's tag
    uint32_t size = 0;     ///< of its data, as its head says
    uint32_t missing = 0;  ///< of the padding: 0 to 3 bytes
    uint64_t number = 0;   ///< of the frame in the file: its time is number / frames per second
    bool skipped = false;  ///< it is empty, or holds parameter sets alone
    AccessUnit unit;       ///< with Depth::kHeads only what the front tells
    Bytes data;            ///< with Depth::kBytes: until the next event
};

struct Damage {
    enum class Kind {
        kFragment,   ///< what is left of a torn header, before the header
        kHeader,     ///< the header is missing, torn, or not as the daemon writes it
        kTornTail,   ///< the last chunk is not whole
        kTornChunk,  ///< a chunk ends where the next one begins
        kContents,   ///< a chunk's data are not a frame
        kZeros,      ///< zeros between chunks
        kForeign,    ///< other bytes between chunks
        kUnreadable  ///< reading failed; nothing comes after it
    };

    Kind kind = Kind::kForeign;
    off_t offset = 0;                                    ///< of the first byte that cannot be used
    off_t length = 0;                                    ///< bytes that cannot be used
    off_t faultAt = 0;                                   ///< where the fault itself is
    off_t lacking = 0;                                   ///< of torn chunks: bytes that are not there
    AccessUnit::Fault fault = AccessUnit::Fault::kNone;  ///< of kContents
    bool losesFrame = true;
};

using Event = std::variant<HeaderEvent, Chunk, Damage>;

/// The walk over a recording: header, frames and damage in the order of the file, each byte of which belongs
/// to one of them. Whatever the file holds, the walk ends, reads each byte a fixed number of times at most,
/// and keeps no more than one chunk of the largest allowed size.
///
/// Threads:  one.
/// Lifetime: open() once. An event's data hold until the next event.
/// Errors:   open() says why in error(); a failed read becomes Damage::Kind::kUnreadable.
class RecordingReader {
public:
    bool open(const std::string& path, Depth depth);
    const std::string& error() const { return file_.error(); }

    off_t size() const { return file_.size(); }
    /// All before it has been dealt with.
    off_t position() const { return position_; }
    bool isGrowing() const { return file_.isGrowing(); }

    /// The next event; nothing at the end.
    std::optional<Event> next();

    /// The data of a chunk, also with Depth::kHeads, until the next event; fewer bytes when reading fails.
    Bytes read(const Chunk& chunk);

    static constexpr size_t kChunkHeadBytes = 8;
    static constexpr uint32_t kMostPadding = 3;

private:
    /// A chunk's place, with the end that was found for it.
    struct Extents {
        off_t data = 0;
        uint32_t size = 0;  // as its head says
        off_t end = 0;      // of what there is of it
        off_t next = 0;     // where the walk goes on
    };

    HeaderEvent readHeader();
    void judgeHeader(Bytes header, const std::optional<Format>& format);
    Event readChunk();
    Event takeChunk(const Extents& extents);
    Event takeTorn(const Extents& extents);
    Event takeForeign();
    Extents measure(uint32_t size);
    bool endsChunk(off_t offset);
    bool isEmptyChunk();
    bool isTornHead();
    off_t findChunk(off_t from, off_t limit);
    bool allZeros(off_t from, off_t to);
    AccessUnit examineFront(const Extents& extents);
    AccessUnit examineAll(const Chunk& chunk);

    FileWindow file_;
    Depth depth_ = Depth::kHeads;
    bool started_ = false;
    bool failed_ = false;
    off_t position_ = 0;
    uint64_t frames_ = 0;
    std::deque<Damage> pending_;  // found with the header, at most two
};

}  // namespace recording
