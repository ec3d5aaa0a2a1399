#include "RecordingReader.h"

#include <gtest/gtest.h>

#include <functional>
#include <ostream>

#include "Recordings.h"
#include "Verbs.h"
#include "lib/AviWriter.h"

namespace {

using recording::Damage;
using recordings::findings;
using recordings::Tape;
using recordings::walk;
using support::Folder;

constexpr size_t kHeader = 792;
constexpr size_t kTorn = 20;  // bytes that a torn frame lacks

TEST(RecordingReader, FindsEveryFrameThatTheWriterWrote)
{
    Tape tape;
    tape.session(9);
    tape.session(5);
    const auto seen = walk(tape.path());
    EXPECT_EQ(seen.fault, "");
    EXPECT_EQ(seen.frames, tape.frames);
    EXPECT_TRUE(seen.damages.empty());
    EXPECT_TRUE(findings(tape.path()).empty());
    EXPECT_EQ(walk(tape.path(), recording::Depth::kHeads).frames.size(), tape.frames.size());
}

TEST(RecordingReader, ExpectsTheHeaderThatTheWriterWrites)
{
    const Folder folder;
    {
        AviWriter writer;
        ASSERT_TRUE(writer.start(folder.file("cam.avi"), {25, 500'000, 1280, 720, VideoWriter::H264}));
    }
    const auto header = recording::buildHeader({1280, 720, 25, 500'000});
    EXPECT_EQ(support::readFile(folder.file("cam.avi")), std::string(header.begin(), header.end()));
}

/// One fault, put into a sound recording of two sessions with six frames each.
struct Case {
    const char* name;
    std::function<void(std::string& content, const Tape& tape)> damage;
    Damage::Kind kind;
    std::function<size_t(const Tape& tape)> offset;
    std::vector<size_t> lost;  // frames
};

std::ostream& operator<<(std::ostream& out, const Case& one)
{
    return out << one.name;
}

void setSize(std::string& content, size_t chunk, uint32_t size)
{
    for (size_t i = 0; i < sizeof(size); ++i) {
        content[chunk + 4 + i] = static_cast<char>(size >> (8 * i));
    }
}

constexpr auto kNowhere = [](const Tape& /*tape*/) { return size_t{0}; };
size_t chunk3(const Tape& tape)
{
    return tape.chunks[3];
}
size_t lastChunk(const Tape& tape)
{
    return tape.chunks[tape.chunks.size() - 2];
}

// NOLINTBEGIN(readability-magic-numbers): places and lengths of damage
const Case kCases[] = {
    {"TornInTheLastFrame",
     [](auto& content, auto&) { content.resize(content.size() - 30); },
     Damage::Kind::kTornTail,
     lastChunk,
     {11}},
    {"TornInTheLastChunksHead",
     [](auto& content, auto& tape) { content.resize(tape.chunks[11] + 5); },
     Damage::Kind::kTornTail,
     lastChunk,
     {11}},
    {"TornBeforeTheNextSession",
     [](auto& content, auto& tape) { content.erase(tape.chunks[6] - 20, 20); },
     Damage::Kind::kTornChunk,
     [](auto& tape) { return tape.chunks[5]; },
     {5}},
    {"OnlyAHeadBeforeTheNextSession",
     [](auto& content, auto& tape) {
         content.erase(tape.chunks[5] + 8, tape.chunks[6] - tape.chunks[5] - 8);
     },
     Damage::Kind::kTornChunk,
     [](auto& tape) { return tape.chunks[5]; },
     {5}},
    {"ZerosOverFrames",
     [](auto& content, auto& tape) {
         content.replace(tape.chunks[3], tape.chunks[5] - tape.chunks[3],
                         std::string(tape.chunks[5] - tape.chunks[3], '\0'));
     },
     Damage::Kind::kZeros,
     chunk3,
     {3, 4}},
    {"ZerosInAFrame",
     [](auto& content, auto& tape) { content.replace(tape.chunks[3] + 20, 40, std::string(40, '\0')); },
     Damage::Kind::kContents,
     chunk3,
     {3}},
    {"ZerosToTheEndOfAFrame",
     [](auto& content, auto& tape) { content.replace(tape.chunks[4] - 50, 50, std::string(50, '\0')); },
     Damage::Kind::kContents,
     chunk3,
     {3}},
    {"ZerosOverAFramesBegin",
     [](auto& content, auto& tape) { content.replace(tape.chunks[3] + 8, 10, std::string(10, '\0')); },
     Damage::Kind::kContents,
     chunk3,
     {3}},
    {"ForbiddenBytesInAFrame",
     [](auto& content, auto& tape) { content.replace(tape.chunks[3] + 20, 3, std::string("\0\0\2", 3)); },
     Damage::Kind::kContents,
     chunk3,
     {3}},
    {"ForeignBytesBetweenFrames",
     [](auto& content, auto& tape) { content.insert(tape.chunks[3], "neither here nor there"); },
     Damage::Kind::kForeign,
     chunk3,
     {}},
    {"ASecondHeader",
     [](auto& content, auto& tape) { content.insert(tape.chunks[6], content.substr(0, kHeader)); },
     Damage::Kind::kForeign,
     [](auto& tape) { return tape.chunks[6]; },
     {}},
    {"AChunksTagOverwritten",
     [](auto& content, auto& tape) { content[tape.chunks[3]] = 'x'; },
     Damage::Kind::kForeign,
     chunk3,
     {3}},
    {"AHugeSize",
     [](auto& content, auto& tape) { setSize(content, tape.chunks[3], 0xFFFFFFFF); },
     Damage::Kind::kForeign,
     chunk3,
     {3}},
    {"ASizeBeyondTheNextFrame",
     [](auto& content, auto& tape) { setSize(content, tape.chunks[3], 700); },
     Damage::Kind::kTornChunk,
     chunk3,
     {3}},
    {"ASizeOfNothing",
     [](auto& content, auto& tape) { setSize(content, tape.chunks[3], 0); },
     Damage::Kind::kForeign,
     chunk3,
     {3}},
    {"RestOfATornHeaderInFront",
     [](auto& content, auto&) { content.insert(0, content.substr(0, 200)); },
     Damage::Kind::kFragment,
     kNowhere,
     {}},
    {"ForeignBytesInFront",
     [](auto& content, auto&) { content.insert(0, std::string(300, 'x')); },
     Damage::Kind::kForeign,
     kNowhere,
     {}},
    {"HeaderTornAndContinued",
     [](auto& content, auto&) { content.erase(500, kHeader - 500); },
     Damage::Kind::kHeader,
     kNowhere,
     {}},
    {"HeaderMissing",
     [](auto& content, auto&) { content.erase(0, kHeader); },
     Damage::Kind::kHeader,
     kNowhere,
     {}},
    {"HeaderWithAWrongValue",
     [](auto& content, auto&) { content[400] = 1; },
     Damage::Kind::kHeader,
     kNowhere,
     {}},
};

// NOLINTEND(readability-magic-numbers)

class RecordingReaderDamage : public ::testing::TestWithParam<Case> {
protected:
    void SetUp() override
    {
        tape_.session(6);
        tape_.session(6);
        std::string content = tape_.content();
        GetParam().damage(content, tape_);
        recordings::writeOld(tape_.path(), content);
        for (size_t i = 0; i < tape_.frames.size(); ++i) {
            const auto& lost = GetParam().lost;
            if (std::find(lost.begin(), lost.end(), i) == lost.end()) {
                kept_.push_back(tape_.frames[i]);
            }
        }
    }

    Tape tape_;
    std::vector<std::string> kept_;
};

TEST_P(RecordingReaderDamage, IsNamedAtItsPlaceAndCostsNoOtherFrame)
{
    const auto seen = walk(tape_.path());
    EXPECT_EQ(seen.fault, "");
    ASSERT_EQ(seen.damages.size(), 1U);
    EXPECT_EQ(seen.damages[0].kind, GetParam().kind);
    EXPECT_EQ(static_cast<size_t>(seen.damages[0].offset), GetParam().offset(tape_));
    EXPECT_EQ(seen.frames, kept_);
    EXPECT_EQ(findings(tape_.path()).size(), 1U);
}

TEST_P(RecordingReaderDamage, IsGoneAfterRepairWithEveryWholeFrameUnchanged)
{
    const Folder folder;
    const std::string before = tape_.content();
    ASSERT_EQ(recording::runRepair({tape_.path(), folder.file("out.avi"), false}), 0);
    const auto seen = walk(folder.file("out.avi"));
    EXPECT_EQ(seen.fault, "");
    EXPECT_TRUE(seen.damages.empty());
    EXPECT_EQ(seen.frames, kept_);
    EXPECT_TRUE(findings(folder.file("out.avi")).empty());
    EXPECT_EQ(tape_.content(), before) << "the input was changed";
}

INSTANTIATE_TEST_SUITE_P(Each, RecordingReaderDamage, ::testing::ValuesIn(kCases),
                         [](const auto& one) { return one.param.name; });

TEST(RecordingReader, KeepsAFrameThatLacksOnlyPadding)
{
    Tape tape;
    tape.session(6);
    const size_t padded = tape.chunks[4];  // frame 3 has 3 bytes of padding to lose
    tape.session(2);
    std::string content = tape.content();
    ASSERT_EQ(content.substr(padded - 1, 1), std::string(1, '\0'));
    content.erase(padded - 1, 1);
    recordings::writeOld(tape.path(), content);

    EXPECT_EQ(walk(tape.path()).frames, tape.frames);
    const auto found = findings(tape.path());
    ASSERT_EQ(found.size(), 1U);
    EXPECT_NE(found[0].what.find("padding"), std::string::npos) << found[0].what;

    const Folder folder;
    ASSERT_EQ(recording::runRepair({tape.path(), folder.file("out.avi"), false}), 0);
    EXPECT_EQ(walk(folder.file("out.avi")).frames, tape.frames);
    EXPECT_TRUE(findings(folder.file("out.avi")).empty());
}

std::string chunkOf(const std::string& data)
{
    std::string chunk = "00db0000" + data;
    setSize(chunk, 0, static_cast<uint32_t>(data.size()));
    return chunk;
}

/// What check says of a header and these chunks, and nothing else.
std::string saidOf(const std::string& chunks)
{
    const Folder folder;
    const auto header = recording::buildHeader(recording::usualFormat());
    recordings::writeOld(folder.file("cam.avi"), std::string(header.begin(), header.end()) + chunks);
    const auto found = findings(folder.file("cam.avi"));
    return found.size() == 1 ? found[0].what : std::to_string(found.size()) + " findings";
}

TEST(Check, FindsFramesThatVelcamdWouldNotWriteSo)
{
    const std::string key = recordings::codecHeader() + recordings::frame(true, 1, 100);
    const std::string other = recordings::frame(false, 2, 100);
    EXPECT_EQ(saidOf(chunkOf(key) + chunkOf(other)), "0 findings");
    EXPECT_EQ(saidOf(chunkOf(other) + chunkOf(key)), "the first frame comes without parameter sets");
    EXPECT_EQ(saidOf(chunkOf(key) + chunkOf(recordings::codecHeader() + other)),
              "a start of the writer without a key frame");
    EXPECT_EQ(saidOf(chunkOf(key) + chunkOf(other + "x") + chunkOf(other)),
              "the size of a chunk, less its codec header, is no multiple of 4");
    const std::string noPicture = "a chunk holds no whole frame: no picture";
    const std::string information("\0\0\0\1\6\5\1\2\x80\0\0", 11);
    const std::string longSets = recordings::codecHeader() + std::string(80, 'x');
    for (const std::string& none : {information, longSets}) {
        EXPECT_EQ(saidOf(chunkOf(key) + chunkOf(none) + chunkOf(key)).substr(0, noPicture.size()), noPicture);
    }
}

/// The encoder may skip a frame: the writer is then given nothing to write, and the codec header, if it is
/// due, stands alone in the chunk.
TEST(Check, TakesTheChunkOfASkippedFrameForDamage)
{
    const std::string key = recordings::frame(true, 1, 100);
    const std::string other = recordings::frame(false, 2, 100);
    const std::string sets = recordings::codecHeader();
    EXPECT_EQ(saidOf(chunkOf(sets) + chunkOf("") + chunkOf(key) + chunkOf("") + chunkOf("") + chunkOf(other) +
                     chunkOf(sets) + chunkOf(key) + chunkOf("")),
              "0 findings");
    EXPECT_EQ(saidOf(chunkOf(sets)), "0 findings");
    EXPECT_EQ(saidOf(chunkOf(sets + key) + chunkOf("") + "00d").substr(0, 22), "the last frame is torn");
    EXPECT_EQ(saidOf(chunkOf("") + chunkOf(key)), "the first frame comes without parameter sets");
    EXPECT_EQ(saidOf(chunkOf(sets + key) + chunkOf(sets) + chunkOf("") + chunkOf(other)),
              "a start of the writer without a key frame");
    EXPECT_EQ(saidOf(chunkOf(sets + key) + std::string(50, '\0') + chunkOf("") + chunkOf(other)),
              "zeros in place of frames");
}

TEST(Check, CountsTheFramesThatShowRemnantsOfALostOne)
{
    Tape tape;
    tape.session(6);
    tape.session(3);
    std::string content = tape.content();
    content[tape.chunks[2]] = 'x';
    recordings::writeOld(tape.path(), content);
    const auto found = findings(tape.path());
    ASSERT_EQ(found.size(), 1U);
    EXPECT_NE(found[0].loss.find("; 3 frames behind it show remnants"), std::string::npos) << found[0].loss;
}

TEST(Check, CountsTheNextFrameAsLostWhereATornChunkSwallowsIt)
{
    Tape tape;
    tape.session(6);
    tape.session(3);
    std::string content = tape.content();
    content.erase(tape.chunks[6] - kTorn, kTorn);
    recordings::writeOld(tape.path(), content);
    const auto found = findings(tape.path());
    ASSERT_EQ(found.size(), 1U);
    EXPECT_EQ(found[0].loss,
              "1 frame, and the next one with players that go by the sizes; 2 frames behind it show "
              "remnants, up to the "
              "end");
}

TEST(Check, TakesAFrameThatIsBeingWrittenForNoDamage)
{
    Tape tape;
    tape.session(4);
    const std::string whole = tape.content();
    tape.replace(whole.substr(0, whole.size() - 10));

    recording::RecordingReader reader;
    ASSERT_TRUE(reader.open(tape.path(), recording::Depth::kBytes));
    std::ofstream(tape.path(), std::ios::binary | std::ios::app) << whole.substr(whole.size() - 10);
    recording::Progress progress("", reader.size());
    recording::Survey survey(reader, progress, {});
    survey.walk();
    EXPECT_TRUE(survey.summary().beingWritten);
    EXPECT_EQ(survey.summary().findings, 0U);
    EXPECT_EQ(survey.summary().frames, 3U);
}

TEST(Check, TellsSoundDamagedAndUnreadableFilesApart)
{
    const Folder folder;
    Tape tape;
    tape.session(2);
    recordings::writeOld(folder.file("empty.avi"), "");
    recordings::writeOld(folder.file("header.avi"), tape.content().substr(0, kHeader));
    EXPECT_EQ(recording::runCheck({{tape.path()}, false}), 0);
    EXPECT_EQ(recording::runCheck({{folder.file("header.avi")}, false}), 0);
    EXPECT_EQ(recording::runCheck({{folder.file("empty.avi"), tape.path()}, true}), 1);
    EXPECT_EQ(recording::runCheck({{folder.file("none.avi"), tape.path()}, false}), 2);
    EXPECT_EQ(recording::runCheck({{folder.path()}, false}), 2);
}

TEST(Repair, MakesNothingOutOfNothing)
{
    const Folder folder;
    recordings::writeOld(folder.file("junk"), std::string(kHeader, 'j'));
    EXPECT_EQ(recording::runRepair({folder.file("junk"), folder.file("out.avi"), false}), 1);
    size_t files = 0;
    for (const auto& entry : std::filesystem::directory_iterator(folder.path())) {
        files += entry.is_regular_file() ? 1U : 0U;
    }
    EXPECT_EQ(files, 1U) << "something was left behind";
}

TEST(Repair, NeverReplacesItsInputAndOtherFilesOnlyWhenForced)
{
    const Folder folder;
    Tape tape;
    tape.session(3);
    const std::string before = tape.content();
    std::filesystem::create_symlink(tape.path(), folder.file("link.avi"));
    EXPECT_EQ(recording::runRepair({tape.path(), tape.path(), true}), 1);
    EXPECT_EQ(recording::runRepair({tape.path(), folder.file("link.avi"), true}), 1);
    EXPECT_EQ(tape.content(), before);

    support::writeFile(folder.file("other.avi"), "precious");
    EXPECT_EQ(recording::runRepair({tape.path(), folder.file("other.avi"), false}), 1);
    EXPECT_EQ(support::readFile(folder.file("other.avi")), "precious");
    EXPECT_EQ(recording::runRepair({tape.path(), folder.file("other.avi"), true}), 0);
    EXPECT_EQ(support::readFile(folder.file("other.avi")), before);
}

}  // namespace
