#include "Passage.h"

#include <algorithm>
#include <cmath>

#include "Codec.h"

namespace recording {
namespace {

constexpr double kSlack = 1e-6;  // of a frame

/// Follows the walk for the key frames around the frames that are asked for.
class Finder {
public:
    Finder(uint64_t from, uint64_t to, Widening widening, Passage& passage)
        : from_(from), to_(to), widening_(widening), passage_(passage)
    {
    }

    /// False when no later chunk matters.
    bool take(const Chunk& chunk, RecordingReader& reader)
    {
        if (chunk.number >= to_ && (chunk.unit.keyFrame || widening_ == Widening::kBefore)) {
            return false;
        }
        passage_.end = chunk.number + 1;
        if (chunk.unit.parameterSets) {
            const Bytes data = reader.read(chunk);
            const size_t length = std::min(chunk.unit.codecBytes, data.size);
            header_.assign(data.data, data.data + length);
        }
        if (chunk.unit.keyFrame && !header_.empty() && (chunk.number <= from_ || !found_)) {
            passage_.first = chunk.number;
            passage_.codecHeader = header_;
            found_ = true;
        }
        return true;
    }

    bool found() const { return found_; }

private:
    uint64_t from_;
    uint64_t to_;
    Widening widening_;
    Passage& passage_;
    std::vector<uint8_t> header_;
    bool found_ = false;
};

/// Hands the passage's frames on while the walk goes through them.
class Player {
public:
    Player(const Passage& passage, const TakeFrame& take, PassageResult& result)
        : passage_(passage), take_(take), result_(result)
    {
    }

    bool play(const Event& event, RecordingReader& reader)
    {
        if (const auto* chunk = std::get_if<Chunk>(&event)) {
            return playChunk(*chunk, reader);
        }
        result_.faults += inside_ && std::holds_alternative<Damage>(event) ? 1U : 0U;
        return true;
    }

    bool atEnd() const { return atEnd_; }

private:
    bool playChunk(const Chunk& chunk, RecordingReader& reader)
    {
        inside_ = chunk.number >= passage_.first;
        atEnd_ = chunk.number + 1 >= passage_.end;
        if (!inside_) {
            return true;
        }
        const Bytes data = reader.read(chunk);
        if (chunk.skipped) {
            sets_.keep(data);
            return true;
        }
        const AccessUnit unit = examine(data, Extent::kAll);
        if (unit.fault != AccessUnit::Fault::kNone) {
            ++result_.faults;
            return true;
        }
        if (result_.frames == 0) {
            // Only a session's first frame brings them along; a passage may begin with a later key frame.
            sets_.keep({passage_.codecHeader.data(), passage_.codecHeader.size()});
        }
        ++result_.frames;
        return take_({sets_.bring({data.data, unit.bytes}, unit), chunk.number, unit.keyFrame});
    }

    const Passage& passage_;
    const TakeFrame& take_;
    PassageResult& result_;
    ParameterSets sets_;
    bool inside_ = false;
    bool atEnd_ = false;
};

bool say(const std::string& text)
{
    fail(kFailed, text);
    return false;
}

}  // namespace

void ParameterSets::keep(Bytes sets)
{
    if (sets.size > 0) {
        kept_.assign(sets.data, sets.data + sets.size);
    }
}

Bytes ParameterSets::bring(Bytes frame, const AccessUnit& unit)
{
    joined_.clear();
    joined_.swap(kept_);
    if (joined_.empty() || unit.parameterSets) {
        return frame;
    }
    joined_.insert(joined_.end(), frame.data, frame.data + frame.size);
    return {joined_.data(), joined_.size()};
}

bool findPassage(const std::string& path, uint64_t from, uint64_t to, Widening widening, Passage& passage)
{
    RecordingReader reader;
    if (!reader.open(path, Depth::kHeads)) {
        return say(path + " cannot be read: " + reader.error());
    }
    Progress progress("look through " + path, reader.size());
    Survey survey(reader, progress, {});
    Finder finder(from, to, widening, passage);
    while (const auto event = survey.next()) {
        const auto* chunk = std::get_if<Chunk>(&*event);
        if (chunk != nullptr && !finder.take(*chunk, reader)) {
            break;
        }
    }
    passage.summary = survey.summary();
    if (interrupted()) {
        return say("interrupted");
    }
    if (from >= passage.end) {
        return say(path + " ends at " + clockText(passage.summary.seconds(passage.end)));
    }
    return finder.found() ||
           say(path + " holds no key frame with parameter sets there, so nothing can be decoded");
}

bool readPassage(const std::string& path, const std::string& label, const Passage& passage,
                 const TakeFrame& take, PassageResult& result)
{
    RecordingReader reader;
    if (!reader.open(path, Depth::kHeads)) {
        return say(path + " cannot be read: " + reader.error());
    }
    Progress progress(label, reader.size());
    Player player(passage, take, result);
    while (!player.atEnd()) {
        const auto event = reader.next();
        if (!progress.step(reader.position())) {
            return say("interrupted");
        }
        if (!event) {
            break;
        }
        if (!player.play(*event, reader)) {
            return false;
        }
    }
    return reader.error().empty() || say(path + " cannot be read: " + reader.error());
}

std::optional<uint32_t> recordingRate(const std::string& path)
{
    RecordingReader reader;
    if (!reader.open(path, Depth::kHeads)) {
        say(path + " cannot be read: " + reader.error());
        return std::nullopt;
    }
    const auto event = reader.next();
    const auto* header = event ? std::get_if<HeaderEvent>(&*event) : nullptr;
    const Format format = header != nullptr && header->format ? *header->format : usualFormat();
    return format.framesPerSecond;
}

// The slack is for what a binary fraction makes of a time: 0.1 s is 3 frames.
uint64_t frameAt(double seconds, uint32_t framesPerSecond)
{
    return static_cast<uint64_t>(seconds * framesPerSecond + kSlack);
}

uint64_t frameBehind(double seconds, uint32_t framesPerSecond)
{
    return static_cast<uint64_t>(std::ceil(seconds * framesPerSecond - kSlack));
}

Format trustedFormat(const Summary& summary, Bytes keyFrame)
{
    Format format = summary.format;
    if (summary.formatKnown && summary.headerSound) {
        return format;
    }
    if (const auto size = pictureSize(keyFrame)) {
        format.width = size->width;
        format.height = size->height;
    }
    return format;
}

}  // namespace recording
