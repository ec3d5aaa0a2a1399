#include <cstdio>

#include "Muxer.h"
#include "OutputFile.h"
#include "Passage.h"
#include "Verbs.h"

namespace recording {
namespace {

/// Frames on their way from a recording into a file that players can search, which begins with the first
/// frame that can be decoded.
class Conversion {
public:
    Conversion(OutputFile& file, const char* kind) : file_(file), kind_(kind) {}

    bool add(const Chunk& chunk, const Summary& summary)
    {
        if (chunk.skipped) {
            sets_.keep(chunk.data);
            return true;
        }
        const Bytes frame = sets_.bring({chunk.data.data, chunk.unit.bytes}, chunk.unit);
        const size_t codecBytes = chunk.unit.codecBytes + (frame.size - chunk.unit.bytes);
        if (!begun_ && !(chunk.unit.keyFrame && codecBytes > 0)) {
            ++leftOut_;
            return true;
        }
        return (begun_ || begin(trustedFormat(summary, frame), {frame.data, codecBytes}, chunk.number)) &&
               add(frame, chunk.number, chunk.unit.keyFrame);
    }

    bool begin(const Format& format, Bytes codecHeader, uint64_t number)
    {
        begun_ = true;
        first_ = number;
        return muxer_.open(file_.temporaryPath(), kind_, format, codecHeader);
    }

    bool add(Bytes frame, uint64_t number, bool keyFrame)
    {
        ++frames_;
        end_ = number + 1;
        return muxer_.write(frame, number - first_, keyFrame);
    }

    /// Complete and under its name.
    bool finish() { return muxer_.finish() && file_.commit(); }

    std::string error() const { return muxer_.error().empty() ? file_.error() : muxer_.error(); }
    bool begun() const { return begun_; }
    uint64_t frames() const { return frames_; }
    uint64_t places() const { return end_ - first_; }  ///< of frames, also of those that are not there
    uint64_t leftOut() const { return leftOut_; }

private:
    OutputFile& file_;
    const char* kind_;
    Muxer muxer_;
    ParameterSets sets_;
    bool begun_ = false;
    uint64_t first_ = 0, end_ = 0;
    uint64_t frames_ = 0;
    uint64_t leftOut_ = 0;
};

int failedWrite(const MakeRequest& request, const Conversion& conversion)
{
    return fail(kFailed, request.output + " cannot be written: " + conversion.error());
}

int unknownKind(const MakeRequest& request)
{
    return fail(kBadUsage, request.output + " should end in .avi, .mp4 or .mkv, which says what to make");
}

bool prepare(const MakeRequest& request, OutputFile& output)
{
    const auto existing = request.force ? OutputFile::Existing::kReplace : OutputFile::Existing::kRefuse;
    if (!output.prepare(request.output, request.input, existing)) {
        fail(kFailed, request.output + " " + output.error());
        return false;
    }
    return true;
}

bool convert(Survey& survey, Conversion& conversion)
{
    while (const auto event = survey.next()) {
        const auto* chunk = std::get_if<Chunk>(&*event);
        if (chunk != nullptr && !conversion.add(*chunk, survey.summary())) {
            return false;
        }
    }
    return true;
}

void printCut(const CutRequest& request, const Passage& passage, const PassageResult& result)
{
    const Summary& summary = passage.summary;
    std::printf("%s: %s, from %s to %s of the recording; %s to %s was asked for%s\n",
                request.make.output.c_str(), count(result.frames, "frame").c_str(),
                clockText(summary.seconds(passage.first)).c_str(),
                clockText(summary.seconds(passage.end)).c_str(), clockText(request.from).c_str(),
                clockText(request.to).c_str(),
                result.faults == 0 ? "" : ("; damaged in " + count(result.faults, "place")).c_str());
}

}  // namespace

int runIndex(const MakeRequest& request)
{
    const char* kind = Muxer::kindFor(request.output);
    if (kind == nullptr) {
        return unknownKind(request);
    }
    RecordingReader reader;
    if (!reader.open(request.input, Depth::kBytes)) {
        return fail(kFailed, request.input + " cannot be read: " + reader.error());
    }
    OutputFile output;
    if (!prepare(request, output)) {
        return kFailed;
    }
    Progress progress("index " + request.input, reader.size());
    Survey survey(reader, progress, {});
    Conversion conversion(output, kind);
    const bool converted = convert(survey, conversion);
    if (interrupted()) {
        return fail(kFailed, "interrupted");
    }
    if (converted && !conversion.begun()) {
        return fail(kFailed,
                    request.input + " holds no key frame with parameter sets, so nothing can be shown");
    }
    if (!converted || !conversion.finish()) {
        return failedWrite(request, conversion);
    }
    const Summary& summary = survey.summary();
    std::printf(
        "%s: %s, %s%s%s\n", request.output.c_str(), count(conversion.frames(), "frame").c_str(),
        clockText(summary.seconds(conversion.places())).c_str(),
        conversion.leftOut() == 0
            ? ""
            : ("; left out before the first key frame: " + std::to_string(conversion.leftOut())).c_str(),
        summary.findings == 0 ? "" : ("; the recording has " + count(summary.findings, "fault")).c_str());
    return kDone;
}

int runCut(const CutRequest& request)
{
    const MakeRequest& make = request.make;
    const char* kind = Muxer::kindFor(make.output);
    if (kind == nullptr) {
        return unknownKind(make);
    }
    const auto rate = recordingRate(make.input);
    if (!rate) {
        return kFailed;
    }
    OutputFile output;
    Passage passage;
    if (!prepare(make, output) || !findPassage(make.input, frameAt(request.from, *rate),
                                               frameBehind(request.to, *rate), Widening::kBoth, passage)) {
        return kFailed;
    }
    Conversion conversion(output, kind);
    const auto take = [&](const PassageFrame& frame) {
        const Bytes header{passage.codecHeader.data(), passage.codecHeader.size()};
        return (conversion.begun() ||
                conversion.begin(trustedFormat(passage.summary, frame.data), header, frame.number)) &&
               conversion.add(frame.data, frame.number, frame.keyFrame);
    };
    PassageResult result;
    if (!readPassage(make.input, "cut " + make.input, passage, take, result)) {
        return conversion.error().empty() ? kFailed : failedWrite(make, conversion);
    }
    if (!conversion.begun()) {
        return fail(kFailed, make.input + " holds no whole frame there");
    }
    if (!conversion.finish()) {
        return failedWrite(make, conversion);
    }
    printCut(request, passage, result);
    return kDone;
}

}  // namespace recording
