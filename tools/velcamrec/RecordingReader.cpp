#include "RecordingReader.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace recording {
namespace {

constexpr const char* kTag = "00db";
constexpr size_t kTagBytes = 4;
constexpr size_t kHeadBytes = RecordingReader::kChunkHeadBytes;
constexpr size_t kPlausibleBytes = kHeadBytes + kFrontBytes;

// A chunk holds at most the encoder's bitstream buffer, the codec header and the padding.
constexpr uint32_t kMostSize = 4 * 1024 * 1024 + kMostCodecBytes + RecordingReader::kMostPadding;
constexpr uint32_t kLeastSize = 8;

// A header is looked for in the first bytes only: what is before it is at most 200 bytes of a torn one.
constexpr size_t kHeaderSearchBytes = 4096;
constexpr off_t kMostFragment = 200;

constexpr size_t kSearchBytes = 65536;
constexpr size_t kFrontViewBytes = 256;

uint32_t sizeIn(const uint8_t* head)
{
    uint32_t size = 0;
    for (size_t i = kHeadBytes; i > kTagBytes; --i) {
        size = size << 8 | head[i - 1];
    }
    return size;
}

bool hasTag(Bytes bytes)
{
    return bytes.size >= kTagBytes && std::memcmp(bytes.data, kTag, kTagBytes) == 0;
}

bool possibleHead(Bytes bytes)
{
    if (bytes.size < kHeadBytes || !hasTag(bytes)) {
        return false;
    }
    const uint32_t size = sizeIn(bytes.data);
    return size >= kLeastSize && size <= kMostSize;
}

bool emptyHead(Bytes bytes)
{
    return bytes.size >= kHeadBytes && hasTag(bytes) && sizeIn(bytes.data) == 0;
}

Bytes behind(Bytes bytes, size_t skipped)
{
    return {bytes.data + skipped, bytes.size - skipped};
}

/// Whether a chunk begins with these bytes, of which kPlausibleBytes are needed to say so. An empty one is
/// known by the next one.
bool plausible(Bytes bytes)
{
    return bytes.size >= kPlausibleBytes &&
           ((possibleHead(bytes) && beginsFrame(behind(bytes, kHeadBytes))) ||
            (emptyHead(bytes) && hasTag(behind(bytes, kHeadBytes))));
}

struct SearchResult {
    bool found;
    size_t at;  // where a chunk begins, else where to search on
};

SearchResult search(Bytes bytes)
{
    size_t at = 0;
    while (at + kPlausibleBytes <= bytes.size) {
        const void* hit = ::memmem(bytes.data + at, bytes.size - at, kTag, kTagBytes);
        if (hit == nullptr) {
            return {false, bytes.size - kTagBytes + 1};
        }
        at = static_cast<size_t>(static_cast<const uint8_t*>(hit) - bytes.data);
        if (plausible(behind(bytes, at))) {
            return {true, at};
        }
        if (bytes.size - at < kPlausibleBytes) {
            return {false, at};
        }
        ++at;
    }
    return {false, at};
}

}  // namespace

bool RecordingReader::open(const std::string& path, Depth depth)
{
    depth_ = depth;
    return file_.open(path, depth == Depth::kBytes ? FileWindow::Pace::kWhole : FileWindow::Pace::kSparse);
}

std::optional<Event> RecordingReader::next()
{
    if (!started_) {
        started_ = true;
        return readHeader();
    }
    if (!pending_.empty()) {
        const Damage damage = pending_.front();
        pending_.pop_front();
        return damage;
    }
    const off_t from = position_;
    std::optional<Event> event;
    if (!failed_ && position_ < file_.size()) {
        event = readChunk();
    }
    if (!failed_ && !file_.error().empty()) {
        failed_ = true;
        position_ = file_.size();
        return Damage{Damage::Kind::kUnreadable, from, file_.size() - from, from};
    }
    return event;
}

HeaderEvent RecordingReader::readHeader()
{
    const Bytes begin = file_.view(0, kHeaderSearchBytes);
    const auto found = findHeader(begin);
    const off_t firstChunk = found ? 0 : findChunk(0, file_.size());
    if (!found) {
        pending_.push_back({Damage::Kind::kHeader, 0, firstChunk, 0, 0, AccessUnit::Fault::kNone, false});
        position_ = firstChunk;
        return {};
    }
    const auto at = static_cast<off_t>(*found);
    const Bytes header = file_.view(at, kHeaderBytes);
    const HeaderEvent event{at, parseFormat(header)};
    position_ = at;
    if (at > 0) {
        const auto kind = at <= kMostFragment ? Damage::Kind::kFragment : Damage::Kind::kForeign;
        pending_.push_back({kind, 0, at, 0, 0, AccessUnit::Fault::kNone, false});
    }
    judgeHeader(header, event.format);
    return event;
}

/// Compares the header with what the daemon writes, and goes on behind it.
void RecordingReader::judgeHeader(Bytes header, const std::optional<Format>& format)
{
    const HeaderBytes expected = buildHeader(format.value_or(usualFormat()));
    const auto* differing = std::mismatch(header.data, header.data + header.size, expected.begin()).first;
    const auto same = static_cast<size_t>(differing - header.data);
    const off_t at = position_;
    if (same == kHeaderBytes) {
        position_ = at + static_cast<off_t>(kHeaderBytes);
        return;
    }
    // Of a header with wrong values all is there; one that was torn ends where the first chunk begins.
    const off_t end = std::min(at + static_cast<off_t>(kHeaderBytes), file_.size());
    position_ = findChunk(at, end);
    const off_t faultAt = at + static_cast<off_t>(same);
    pending_.push_back(
        {Damage::Kind::kHeader, at, position_ - at, faultAt, 0, AccessUnit::Fault::kNone, false});
}

Event RecordingReader::readChunk()
{
    if (isEmptyChunk()) {
        const off_t end = position_ + static_cast<off_t>(kHeadBytes);
        return takeChunk({end, 0, end, end});
    }
    const Bytes head = file_.view(position_, kPlausibleBytes);
    if (plausible(head)) {
        const Extents extents = measure(sizeIn(head.data));
        const off_t lacking = extents.data + static_cast<off_t>(extents.size) - extents.end;
        return lacking > static_cast<off_t>(kMostPadding) ? takeTorn(extents) : takeChunk(extents);
    }
    return isTornHead()
               ? takeTorn({position_ + static_cast<off_t>(kHeadBytes), 0, file_.size(), file_.size()})
               : takeForeign();
}

/// Finds out where the chunk at the position ends.
RecordingReader::Extents RecordingReader::measure(uint32_t size)
{
    Extents extents{position_ + static_cast<off_t>(kHeadBytes), size, 0, 0};
    const off_t end = extents.data + static_cast<off_t>(size);
    extents.end = std::min(end, file_.size());
    if (end > file_.size() || !endsChunk(end)) {
        extents.end = findChunk(extents.data, extents.end);
    }
    extents.next = extents.end;
    return extents;
}

/// Whether the file ends here or another chunk begins, as far as there are bytes to tell.
bool RecordingReader::endsChunk(off_t offset)
{
    std::array<uint8_t, kTagBytes> tag{};
    std::copy(kTag, kTag + kTagBytes, tag.begin());
    return file_.holds(offset, {tag.data(), tag.size()});
}

bool RecordingReader::isEmptyChunk()
{
    return emptyHead(file_.view(position_, kHeadBytes)) &&
           endsChunk(position_ + static_cast<off_t>(kHeadBytes));
}

/// Whether the rest of the file is the beginning of a chunk, too short to be judged.
bool RecordingReader::isTornHead()
{
    const Bytes rest = file_.view(position_, kPlausibleBytes);
    const bool tagged = std::equal(rest.data, rest.data + std::min(rest.size, kTagBytes), kTag);
    return rest.size < kPlausibleBytes && tagged && (rest.size < kHeadBytes || possibleHead(rest));
}

Event RecordingReader::takeChunk(const Extents& extents)
{
    Chunk chunk;
    chunk.offset = position_;
    chunk.size = extents.size;
    chunk.missing = static_cast<uint32_t>(extents.data + static_cast<off_t>(extents.size) - extents.end);
    chunk.number = frames_++;
    position_ = extents.next;
    if (depth_ == Depth::kBytes) {
        chunk.data = read(chunk);
    }
    if (chunk.size > 0) {
        chunk.unit = depth_ == Depth::kHeads ? examineFront(extents) : examineAll(chunk);
    }
    chunk.skipped = !chunk.unit.picture && chunk.unit.codecBytes == chunk.size;
    if (depth_ == Depth::kHeads || chunk.unit.fault == AccessUnit::Fault::kNone) {
        return chunk;
    }
    return Damage{Damage::Kind::kContents,
                  chunk.offset,
                  position_ - chunk.offset,
                  extents.data + static_cast<off_t>(chunk.unit.faultAt),
                  0,
                  chunk.unit.fault};
}

AccessUnit RecordingReader::examineFront(const Extents& extents)
{
    const auto whole = static_cast<size_t>(extents.end - extents.data);
    AccessUnit unit;
    for (size_t length = kFrontViewBytes; !unit.picture; length *= 16) {
        unit = examine(file_.view(extents.data, std::min(length, whole)), Extent::kFront);
        if (length >= whole) {
            break;
        }
    }
    return unit;
}

AccessUnit RecordingReader::examineAll(const Chunk& chunk)
{
    AccessUnit unit = examine(chunk.data, Extent::kAll);
    if (unit.fault == AccessUnit::Fault::kNone && !unit.picture && chunk.missing > 0) {
        unit.fault = AccessUnit::Fault::kNoPicture;  // parameter sets alone have no padding to lack
    }
    return unit;
}

Event RecordingReader::takeTorn(const Extents& extents)
{
    Damage damage{Damage::Kind::kTornChunk, position_, extents.next - position_, extents.end};
    damage.lacking = extents.data + static_cast<off_t>(extents.size) - extents.end;
    if (extents.end == file_.size()) {
        damage.kind = Damage::Kind::kTornTail;
    }
    position_ = extents.next;
    return damage;
}

/// No chunk with a frame begins at the position: skips to the next one.
Event RecordingReader::takeForeign()
{
    const Bytes head = file_.view(position_, kHeadBytes);
    const off_t claimed = possibleHead(head) ? static_cast<off_t>(kHeadBytes + sizeIn(head.data)) : 0;
    Damage damage{Damage::Kind::kForeign, position_, 0, position_};
    position_ = findChunk(position_ + 1, file_.size());
    damage.length = position_ - damage.offset;
    if (claimed > damage.length) {
        damage.kind = position_ == file_.size() ? Damage::Kind::kTornTail : Damage::Kind::kTornChunk;
        damage.faultAt = position_;
        damage.lacking = claimed - damage.length;
    } else if (claimed > 0) {
        damage.kind = Damage::Kind::kContents;
        damage.faultAt += static_cast<off_t>(kHeadBytes);
        damage.fault = AccessUnit::Fault::kNoStartCode;
    } else if (allZeros(damage.offset, position_)) {
        damage.kind = Damage::Kind::kZeros;
    }
    return damage;
}

/// The first place before `limit` where a chunk begins, or the limit.
off_t RecordingReader::findChunk(off_t from, off_t limit)
{
    while (from < limit) {
        const SearchResult result = search(file_.nextPiece(from, kPlausibleBytes, kSearchBytes));
        if (result.found) {
            return std::min(from + static_cast<off_t>(result.at), limit);
        }
        if (result.at == 0) {
            break;  // too few bytes are left to tell
        }
        from += static_cast<off_t>(result.at);
    }
    return limit;
}

bool RecordingReader::allZeros(off_t from, off_t to)
{
    while (from < to) {
        const auto rest = static_cast<uint64_t>(to - from);
        const Bytes bytes = file_.view(from, static_cast<size_t>(std::min<uint64_t>(rest, kSearchBytes)));
        const uint8_t* end = bytes.data + bytes.size;
        if (bytes.size == 0 || std::any_of(bytes.data, end, [](uint8_t byte) { return byte != 0; })) {
            return false;
        }
        from += static_cast<off_t>(bytes.size);
    }
    return true;
}

Bytes RecordingReader::read(const Chunk& chunk)
{
    return file_.view(chunk.offset + static_cast<off_t>(kHeadBytes), chunk.size - chunk.missing);
}

}  // namespace recording
