#include "Survey.h"

#include <array>
#include <utility>

namespace recording {
namespace {

constexpr const char* kNothing = "nothing";
constexpr const char* kNoPlayer = "the whole file for players that want a header first";

struct Words {
    Damage::Kind kind;
    const char* what;
    const char* loss;
};
constexpr std::array kWords{
    Words{Damage::Kind::kFragment, "the rest of a torn header in front of the header", kNoPlayer},
    Words{Damage::Kind::kHeader, "the header is not as velcamd writes it", kNoPlayer},
    Words{Damage::Kind::kTornTail, "the last frame is torn", "1 frame"},
    Words{Damage::Kind::kTornChunk, "a frame is torn, the next one begins in it",
          "1 frame, and the next one with players that go by the sizes"},
    Words{Damage::Kind::kContents, "a chunk holds no whole frame", "1 frame"},
    Words{Damage::Kind::kZeros, "zeros in place of frames", "the frames that stood there"},
    Words{Damage::Kind::kForeign, "foreign bytes between frames", "the frames that stood there, if any"},
    Words{Damage::Kind::kUnreadable, "the file cannot be read on", "all behind it"},
};

const Words& wordsFor(Damage::Kind kind)
{
    for (const Words& words : kWords) {
        if (words.kind == kind) {
            return words;
        }
    }
    return kWords.back();
}

const char* faultText(AccessUnit::Fault fault)
{
    switch (fault) {
        case AccessUnit::Fault::kNone:
            return "";
        case AccessUnit::Fault::kNoStartCode:
            return "no start code";
        case AccessUnit::Fault::kZeros:
            return "zeros";
        case AccessUnit::Fault::kPattern:
            return "bytes that H.264 forbids";
        case AccessUnit::Fault::kNoPicture:
            return "no picture";
    }
    return "";
}

std::string detail(const Damage& damage)
{
    const std::string at = " at " + std::to_string(damage.faultAt);
    if (damage.kind == Damage::Kind::kHeader) {
        return damage.length == 0 ? ": missing" : ": first differing byte" + at;
    }
    if (damage.fault != AccessUnit::Fault::kNone) {
        return std::string(": ") + faultText(damage.fault) + at;
    }
    return damage.lacking > 0 ? ": " + count(static_cast<uint64_t>(damage.lacking), "byte") + " missing" + at
                              : "";
}

}  // namespace

Survey::Survey(RecordingReader& reader, Progress& progress, Sink sink)
    : reader_(reader), progress_(progress), sink_(std::move(sink))
{
    summary_.bytes = reader.size();
}

std::optional<Event> Survey::next()
{
    if (!progress_.step(reader_.position())) {
        return std::nullopt;
    }
    std::optional<Event> event = reader_.next();
    if (event) {
        std::visit([this](const auto& one) { account(one); }, *event);
    } else {
        settle(true);
    }
    return event;
}

void Survey::walk()
{
    while (next()) {
    }
}

void Survey::account(const HeaderEvent& event)
{
    summary_.formatKnown = event.format.has_value();
    summary_.format = event.format.value_or(usualFormat());
}

void Survey::account(const Chunk& chunk)
{
    if (chunk.skipped) {
        accountSkipped(chunk);
        return;
    }
    const bool swallowed = swallowing_;
    swallowing_ = false;
    if (chunk.unit.keyFrame && !swallowed) {
        settle(false);
    }
    remnants_ += counting_ && !swallowed ? 1U : 0U;
    judgeSession(chunk);
    const auto data = static_cast<off_t>(chunk.size);
    if ((chunk.size - chunk.unit.codecBytes) % sizeof(uint32_t) != 0) {
        note(
            {chunk.offset, data, "the size of a chunk, less its codec header, is no multiple of 4", kNothing},
            false);
    }
    if (chunk.missing > 0) {
        note({chunk.offset, data, count(chunk.missing, "byte") + " of a chunk's padding missing",
              std::string(kNothing) + ", unless the very end of the frame is cut off too"},
             false);
    }
    summary_.frames += 1;
    summary_.keyFrames += chunk.unit.keyFrame ? 1 : 0;
    summary_.sessions += chunk.unit.parameterSets ? 1 : 0;
}

/// No picture, and none lost.
void Survey::accountSkipped(const Chunk& chunk)
{
    summary_.skippedFrames += 1;
    summary_.sessions += chunk.unit.parameterSets ? 1 : 0;
    opening_ = opening_ || chunk.unit.parameterSets;
}

void Survey::judgeSession(const Chunk& chunk)
{
    const auto data = static_cast<off_t>(chunk.size);
    const bool opens = chunk.unit.parameterSets || opening_;
    opening_ = false;
    if (opens && !chunk.unit.keyFrame) {
        note({chunk.offset, data, "a start of the writer without a key frame", "a clean picture"}, true);
    } else if (summary_.frames == 0 && !opens) {
        note({chunk.offset, data, "the first frame comes without parameter sets",
              "all up to the next start of the writer"},
             false);
    }
}

void Survey::account(const Damage& damage)
{
    if (damage.kind == Damage::Kind::kTornTail && reader_.isGrowing()) {
        summary_.beingWritten = true;
        return;
    }
    summary_.badBytes += static_cast<uint64_t>(damage.length);
    summary_.headerSound = summary_.headerSound && damage.kind != Damage::Kind::kHeader;
    const Words& words = wordsFor(damage.kind);
    note({damage.offset, damage.length, words.what + detail(damage), words.loss}, damage.losesFrame);
    swallowing_ = damage.kind == Damage::Kind::kTornChunk;
}

void Survey::note(Finding finding, bool losesFrame)
{
    settle(false);
    ++summary_.findings;
    counting_ = losesFrame;
    open_ = std::move(finding);
}

/// The open finding, if any, costs the frames that were counted.
void Survey::settle(bool atEnd)
{
    if (open_) {
        if (remnants_ > 0) {
            open_->loss += "; " + count(remnants_, "frame") + " behind it " +
                           (remnants_ == 1 ? "shows" : "show") + " remnants, " +
                           (atEnd ? "up to the end" : "up to the next key frame or fault");
        }
        if (sink_) {
            sink_(*open_);
        }
    }
    open_.reset();
    counting_ = false;
    remnants_ = 0;
}

}  // namespace recording
