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
using recordings::littleEndian;
using recordings::Tape;
using recordings::walk;
using support::Folder;

constexpr size_t kHeader = 792;

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

using Change = std::function<void(std::string& content, const Tape& tape)>;

/// Other bytes in the place of some, at a distance from where a chunk begins.
Change replaced(size_t chunk, long distance, size_t bytes, const std::string& with = "")
{
    return [=](std::string& content, const Tape& tape) {
        content.replace(tape.chunks.at(chunk) + static_cast<size_t>(distance), bytes, with);
    };
}

/// The header once more, or a piece of it, before what begins there.
Change headerAgain(size_t chunk, long distance, size_t bytes)
{
    return [=](std::string& content, const Tape& tape) {
        replaced(chunk, distance, 0, content.substr(0, bytes))(content, tape);
    };
}

void cutToItsHead(std::string& content, const Tape& tape)
{
    content.erase(tape.chunks[5] + 8, tape.chunks[6] - tape.chunks[5] - 8);
}

void zeroTwoFrames(std::string& content, const Tape& tape)
{
    const auto at = content.begin();
    std::fill(at + static_cast<long>(tape.chunks[3]), at + static_cast<long>(tape.chunks[5]), '\0');
}

std::string zeros(size_t count)
{
    return std::string(count, '\0');
}

/// One fault, put into a sound recording of two sessions with six frames each.
struct Case {
    const char* name;
    Change damage;
    Damage::Kind kind;
    size_t chunk;              ///< where it is found
    std::vector<size_t> lost;  ///< frames
};

std::ostream& operator<<(std::ostream& out, const Case& one)
{
    return out << one.name;
}

using Kind = Damage::Kind;
constexpr size_t kFront = 99;  ///< in a chunk's place: the file's begin
constexpr size_t kEnd = 12;
constexpr size_t kRest = std::string::npos;
constexpr long kBegin = -static_cast<long>(kHeader);  ///< from the first chunk

// NOLINTBEGIN(readability-magic-numbers): places and lengths of damage
const Case kCases[] = {
    {"TornInTheLastFrame", replaced(kEnd, -30, kRest), Kind::kTornTail, 11, {11}},
    {"TornInTheLastChunksHead", replaced(11, 5, kRest), Kind::kTornTail, 11, {11}},
    {"TornBeforeTheNextSession", replaced(6, -20, 20), Kind::kTornChunk, 5, {5}},
    {"OnlyAHeadBeforeTheNextSession", cutToItsHead, Kind::kTornChunk, 5, {5}},
    {"ZerosOverFrames", zeroTwoFrames, Kind::kZeros, 3, {3, 4}},
    {"ZerosInAFrame", replaced(3, 20, 40, zeros(40)), Kind::kContents, 3, {3}},
    {"ZerosToTheEndOfAFrame", replaced(4, -50, 50, zeros(50)), Kind::kContents, 3, {3}},
    {"ZerosOverAFramesBegin", replaced(3, 8, 10, zeros(10)), Kind::kContents, 3, {3}},
    {"ForbiddenBytesInAFrame", replaced(3, 20, 3, zeros(2) + "\2"), Kind::kContents, 3, {3}},
    {"ForeignBytesBetweenFrames", replaced(3, 0, 0, "neither here nor there"), Kind::kForeign, 3, {}},
    {"ASecondHeader", headerAgain(6, 0, kHeader), Kind::kForeign, 6, {}},
    {"AChunksTagOverwritten", replaced(3, 0, 1, "x"), Kind::kForeign, 3, {3}},
    {"AHugeSize", replaced(3, 4, 4, littleEndian(0xFFFFFFFF)), Kind::kForeign, 3, {3}},
    {"ASizeBeyondTheNextFrame", replaced(3, 4, 4, littleEndian(700)), Kind::kTornChunk, 3, {3}},
    {"ASizeOfNothing", replaced(3, 4, 4, littleEndian(0)), Kind::kForeign, 3, {3}},
    {"RestOfATornHeaderInFront", headerAgain(0, kBegin, 200), Kind::kFragment, kFront, {}},
    {"ForeignBytesInFront", replaced(0, kBegin, 0, std::string(300, 'x')), Kind::kForeign, kFront, {}},
    {"HeaderTornAndContinued", replaced(0, kBegin + 500, kHeader - 500), Kind::kHeader, kFront, {}},
    {"HeaderMissing", replaced(0, kBegin, kHeader), Kind::kHeader, kFront, {}},
    {"HeaderWithAWrongValue", replaced(0, kBegin + 400, 1, "\1"), Kind::kHeader, kFront, {}},
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

TEST_P(RecordingReaderDamage, IsMisnamedOrCostsAnotherFrameOrSurvivesARepair)
{
    const auto seen = walk(tape_.path());
    EXPECT_EQ(seen.fault, "");
    ASSERT_EQ(seen.damages.size(), 1U);
    EXPECT_EQ(seen.damages[0].kind, GetParam().kind);
    const size_t place = GetParam().chunk == kFront ? 0 : tape_.chunks.at(GetParam().chunk);
    EXPECT_EQ(static_cast<size_t>(seen.damages[0].offset), place);
    EXPECT_EQ(seen.frames, kept_);
    EXPECT_EQ(findings(tape_.path()).size(), 1U);

    const Folder folder;
    const std::string before = tape_.content();
    ASSERT_EQ(recording::runRepair({tape_.path(), folder.file("out.avi"), false}), 0);
    const auto repaired = walk(folder.file("out.avi"));
    EXPECT_EQ(repaired.fault, "");
    EXPECT_TRUE(repaired.damages.empty());
    EXPECT_EQ(repaired.frames, kept_);
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
    return "00db" + littleEndian(data.size()) + data;
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

TEST(RecordingReader, TakesMoreTimeForAHostileFileThanItsLengthAsksFor)
{
    // Heads that all claim the largest size, each of which has to be looked for an end.
    const std::string chunk("00db\x53\0\x40\0\0\0\0\1\x41zzz", 16);
    constexpr size_t kLength = 8388608;
    std::string content(kHeader, 'h');
    while (content.size() < kLength) {
        content += chunk;
    }
    const Folder folder;
    recordings::writeOld(folder.file("in.avi"), content);
    const auto seen = walk(folder.file("in.avi"));
    EXPECT_EQ(seen.fault, "");
    EXPECT_TRUE(seen.frames.empty());
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

TEST(Check, MiscountsTheFramesThatALostOneTakesWithIt)
{
    struct Lost {
        Change damage;
        const char* said;
    };
    const Lost cases[] = {{replaced(2, 0, 1, "x"), "; 3 frames behind it show remnants"},
                          {replaced(6, -20, 20),
                           "1 frame, and the next one with players that go by the sizes; 2 frames behind it "
                           "show remnants, up to "
                           "the end"}};
    for (const Lost& lost : cases) {
        Tape tape;
        tape.session(6);
        tape.session(3);
        std::string content = tape.content();
        lost.damage(content, tape);
        recordings::writeOld(tape.path(), content);
        const auto found = findings(tape.path());
        ASSERT_EQ(found.size(), 1U);
        EXPECT_NE(found[0].loss.find(lost.said), std::string::npos) << found[0].loss;
    }
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
