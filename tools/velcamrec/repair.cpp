#include <algorithm>
#include <array>
#include <cstdio>

#include "OutputFile.h"
#include "Passage.h"
#include "Verbs.h"
#include "lib/AviWriter.h"

namespace recording {
namespace {

/// The copy: a header as the daemon writes it, then chunks.
class Copy {
public:
    explicit Copy(OutputFile& file) : file_(file) {}

    bool add(const Chunk& chunk, const Summary& summary)
    {
        return (headed_ || writeHeader(chunk, summary)) && writeChunk(chunk);
    }

    uint64_t frames() const { return frames_; }

private:
    bool writeHeader(const Chunk& first, const Summary& summary)
    {
        headed_ = true;
        const HeaderBytes header = buildHeader(trustedFormat(summary, first.data));
        return file_.write({header.data(), header.size()});
    }

    bool writeChunk(const Chunk& chunk)
    {
        constexpr std::array<uint8_t, RecordingReader::kMostPadding> kZeros{};
        std::array<char, RecordingReader::kChunkHeadBytes> head{};
        unsigned int position = 0;
        AviWriter::writeText(head.data(), &position, "00db");
        AviWriter::writeDWORD(head.data(), &position, chunk.size);
        std::array<uint8_t, RecordingReader::kChunkHeadBytes> bytes{};
        std::copy(head.begin(), head.end(), bytes.begin());
        frames_ += chunk.skipped ? 0U : 1U;
        return file_.write({bytes.data(), bytes.size()}) && file_.write(chunk.data) &&
               file_.write({kZeros.data(), chunk.missing});
    }

    OutputFile& file_;
    bool headed_ = false;
    uint64_t frames_ = 0;
};

bool copyFrames(Survey& survey, Copy& copy)
{
    while (const auto event = survey.next()) {
        const auto* chunk = std::get_if<Chunk>(&*event);
        if (chunk != nullptr && !copy.add(*chunk, survey.summary())) {
            return false;
        }
    }
    return true;
}

}  // namespace

int runRepair(const MakeRequest& request)
{
    RecordingReader reader;
    if (!reader.open(request.input, Depth::kBytes)) {
        return fail(kFailed, request.input + " cannot be read: " + reader.error());
    }
    OutputFile output;
    const auto existing = request.force ? OutputFile::Existing::kReplace : OutputFile::Existing::kRefuse;
    if (!output.prepare(request.output, request.input, existing)) {
        return fail(kFailed, request.output + " " + output.error());
    }
    Progress progress("repair " + request.input, reader.size());
    Survey survey(reader, progress, {});
    Copy copy(output);
    const bool copied = copyFrames(survey, copy);
    if (interrupted()) {
        return fail(kFailed, "interrupted");
    }
    if (copied && copy.frames() == 0) {
        return fail(kFailed, request.input + " holds no whole frame");
    }
    if (!copied || !output.commit()) {
        return fail(kFailed, request.output + " cannot be written: " + output.error());
    }
    const Summary& summary = survey.summary();
    std::printf("%s: %s in %s, %s mended, %s left out\n", request.output.c_str(),
                count(copy.frames(), "frame").c_str(), count(summary.sessions, "session").c_str(),
                count(summary.findings, "fault").c_str(), count(summary.badBytes, "byte").c_str());
    return kDone;
}

}  // namespace recording
