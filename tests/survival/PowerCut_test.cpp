// The power is cut at many moments of a run: what was older than a pass of the daemon's write-back is there,
// the next run goes on, and the file plays.

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <random>

#include "Ledger.h"
#include "Sample.h"
#include "lib/AviWriter.h"
#include "medium/Medium.h"
#include "support/Panel.h"
#include "support/Pictures.h"

namespace {

using board::journal::Kind;
using control::MediaState;
using medium::Journal;
using medium::Medium;
using support::Panel;
using survival::missingIn;
using survival::Place;

const std::string kFolder = "/velmarine/f/camrecord/";
const std::string kRecording = kFolder + "cam.avi";
const std::vector<Place> kNothing;

/// One pass of the write-back in a journal: from its first call to the end of its last.
struct Pass {
    size_t begin, end;
};

/// A run of the daemon with the journal of what it did to its files.
class JournaledRun {
public:
    explicit JournaledRun(Panel& panel)
        : file_(panel.board() + "/journal"), journal_(medium::readJournal(file_))
    {
    }

    const Journal& journal() const { return journal_; }
    size_t entries() const { return journal_.entries.size(); }
    double seconds(size_t from, size_t to) const
    {
        constexpr double kUsPerSecond = 1e6;
        const auto time = [&](size_t entry) {
            return journal_.entries[std::min(entry, entries() - 1)].record.timeUs;
        };
        return static_cast<double>(time(to) - time(from)) / kUsPerSecond;
    }

    /// What the board had before the program came.
    size_t settled() const
    {
        const auto entry = std::find_if(journal_.entries.begin(), journal_.entries.end(),
                                        [](const auto& each) { return each.record.kind == Kind::kSettled; });
        return static_cast<size_t>(entry - journal_.entries.begin()) + 1;
    }

    std::vector<Pass> passes() const
    {
        constexpr double kApart = 0.9;  // seconds: a little less than the pause
        std::vector<Pass> found;
        for (size_t entry = settled(); entry < entries(); ++entry) {
            const Kind kind = journal_.entries[entry].record.kind;
            const bool begins = kind == Kind::kSyncs || kind == Kind::kSyncsNames;
            if (begins && (found.empty() || seconds(found.back().end, entry) > kApart)) {
                found.push_back({entry, entry});
            } else if (kind == Kind::kSynced || kind == Kind::kSyncedNames) {
                found.back().end = entry;
            }
        }
        return found;
    }

    /// All that happened before this entry must be there after a cut: what came before a pass when the one
    /// after it has ended. (The names of a rotation that begins together with a pass are the next one's.)
    size_t safeBefore(size_t cut) const
    {
        const auto found = passes();
        size_t safe = 0;
        for (size_t pass = 1; pass < found.size() && found[pass].end < cut; ++pass) {
            safe = found[pass - 1].begin;
        }
        return safe;
    }

    /// Bytes of the live file that were written before an entry.
    off_t bytesBefore(size_t end) const
    {
        uint64_t inode = 0;
        uint64_t bytes = 0;
        for (size_t entry = 0; entry < end; ++entry) {
            const auto& record = journal_.entries[entry].record;
            if (record.kind == Kind::kCreate && journal_.textOf(journal_.entries[entry]) == kRecording) {
                inode = record.inode;
                bytes = 0;
            } else if (record.kind == Kind::kWrite && record.inode == inode) {
                bytes = std::max(bytes, record.offset + record.bytes);
            } else if (record.kind == Kind::kTruncate && record.inode == inode) {
                bytes = record.offset;
            }
        }
        return static_cast<off_t>(bytes);
    }

private:
    std::string file_;
    Journal journal_;
};

/// The frames that a run after the cut writes.
class NextRun {
public:
    NextRun()
    {
        const std::string sample = support::readFile(recordings::sample().path);
        const auto chunks = support::readRecording(recordings::sample().path).chunks;
        constexpr size_t kFrames = 10;
        constexpr size_t kHeadBytes = 8;
        for (size_t i = 0; i < std::min(kFrames, chunks.size()); ++i) {
            frames_.push_back(sample.substr(chunks[i].offset + kHeadBytes, chunks[i].bytes));
        }
    }

    /// Continues a recording as the daemon does; where its chunks are.
    std::vector<Place> appendTo(const std::string& file) const
    {
        AviWriter writer;
        std::vector<Place> places;
        EXPECT_TRUE(writer.start(file, {30, 10'000'000, 1440, 990, VideoWriter::H264}));
        for (std::string frame : frames_) {
            const auto at = static_cast<off_t>(std::filesystem::file_size(file));
            EXPECT_TRUE(writer.writeChunk(frame.data(), static_cast<unsigned>(frame.size())));
            places.push_back({at, static_cast<uint32_t>(frame.size())});
        }
        return places;
    }

    /// The same, and what was written up to `safe` is there before and after it, and what is new.
    std::vector<Place> continueAfter(const std::string& file, const std::vector<Place>& written,
                                     off_t safe) const
    {
        EXPECT_EQ(missingIn(survival::chunksFound(file), written, safe), kNothing);
        const auto appended = appendTo(file);
        const auto found = survival::chunksFound(file);
        EXPECT_EQ(missingIn(found, written, safe), kNothing) << "after the next run";
        EXPECT_EQ(missingIn(found, appended), kNothing) << "of the next run";
        return appended;
    }

private:
    std::vector<std::string> frames_;  // the first one with its codec header
};

class PowerCut : public testing::Test {
protected:
    void bringUp()
    {
        panel_.start({"--cpu", "quad", "--journal"});
        ASSERT_TRUE(panel_.awaitUp()) << panel_.output() << panel_.errors();
    }

    /// Cuts the power at many moments of the run that is over, and has `judge` look at what is left.
    template <typename Judge>
    void cutAtManyMoments(const char* what, size_t cuts, Judge judge)
    {
        const JournaledRun run(panel_);
        const Medium medium(run.journal());
        EXPECT_EQ(medium.firstAtRisk(run.entries(), kFolder), run.entries()) << "not all is saved at the end";
        const unsigned seed = std::random_device()();
        std::mt19937 chance(seed);
        double oldest = 0;
        for (size_t number = 0; number < cuts; ++number) {
            const size_t cut = std::uniform_int_distribution<size_t>(run.settled(), run.entries())(chance);
            SCOPED_TRACE("cut " + std::to_string(cut) + " of seed " + std::to_string(seed));
            const size_t risk = medium.firstAtRisk(cut, kFolder);
            oldest = std::max(oldest, run.seconds(risk, cut));
            EXPECT_GE(risk, run.safeBefore(cut)) << "not saved";
            const support::Folder image;
            ASSERT_TRUE(medium.cut(cut, static_cast<uint32_t>(chance()), image.path()));
            std::filesystem::create_directories(image.path() + kFolder);
            judge(run, risk, image.path());
        }
        constexpr double kMsPerSecond = 1000;
        survival::report("powerCut",
                         {{what, cuts}, {"oldestAtRiskMs", static_cast<size_t>(oldest * kMsPerSecond)}});
    }

    Panel panel_;
};

/// As long as the short form's runs last, so many passes must come at least.
constexpr size_t kLeastPasses = 3;
constexpr int kSeveralSeconds = 45;  // reports

TEST_F(PowerCut, TakesNothingOlderThanAPassAndTheNextRunGoesOn)
{
    ASSERT_NE(recordings::sample().path, "") << recordings::sample().fault;
    ASSERT_TRUE(panel_.layOut());
    std::filesystem::copy_file(recordings::sample().path, panel_.recording());
    constexpr size_t kFormerFrames = 60;
    const auto former = support::readRecording(panel_.recording()).chunks;
    std::filesystem::resize_file(panel_.recording(), former.at(kFormerFrames).offset);
    bringUp();
    ASSERT_TRUE(panel_.awaitReports(kSeveralSeconds / 3));
    ASSERT_TRUE(panel_.enter(MediaState::kTransfer));  // closes the recording
    ASSERT_TRUE(panel_.awaitReports(kSeveralSeconds / 3));
    ASSERT_TRUE(panel_.enter(MediaState::kCamera, {1}));
    ASSERT_TRUE(panel_.awaitReports(kSeveralSeconds / 3));
    ASSERT_EQ(panel_.end(), 0) << panel_.errors();
    EXPECT_GE(JournaledRun(panel_).passes().size(), kLeastPasses);

    const auto written = survival::chunksFound(panel_.recording());
    const NextRun next;
    size_t judged = 0;
    cutAtManyMoments("recording", support::isLong() ? 1000 : 60,
                     [&](const auto& run, size_t risk, const auto& image) {
                         const std::string file = image + kRecording;
                         const auto appended = next.continueAfter(file, written, run.bytesBefore(risk));
                         if (judged++ % 12 == 0) {
                             EXPECT_GE(survival::playRepaired(file).readableAtEnd, appended.size());
                         }
                     });
}

TEST_F(PowerCut, TakesAFileThatIsNewOrItsHeader)
{
    bringUp();
    ASSERT_TRUE(panel_.awaitReports(kSeveralSeconds / 3));
    ASSERT_EQ(panel_.end(), 0) << panel_.errors();
    const auto written = survival::chunksFound(panel_.recording());
    const NextRun next;
    cutAtManyMoments("newFile", support::isLong() ? 1000 : 60,
                     [&](const auto& run, size_t risk, const auto& image) {
                         next.continueAfter(image + kRecording, written, run.bytesBefore(risk));
                     });
}

TEST_F(PowerCut, TakesARecordingOrAGenerationThatIsBeingRotated)
{
    constexpr uintmax_t kDue = 600'000'000;  // bytes
    panel_.start({"--cpu", "quad", "--fps", "max", "--frames", "10"});
    ASSERT_EQ(panel_.awaitEnd(), 0) << panel_.errors();
    std::filesystem::resize_file(panel_.recording(), kDue);
    ASSERT_TRUE(support::writeFile(panel_.recording() + ".00.avi", "was 0"));
    ASSERT_TRUE(support::writeFile(panel_.recording() + ".07.avi", "was 7"));
    bringUp();
    ASSERT_TRUE(support::waitUntil([&] { return std::filesystem::exists(panel_.recording() + ".01.avi"); }));
    ASSERT_TRUE(panel_.awaitReports(kSeveralSeconds / 3));
    ASSERT_EQ(panel_.end(), 0) << panel_.errors();

    const auto written = survival::chunksFound(panel_.recording());
    cutAtManyMoments(
        "rotation", support::isLong() ? 300 : 60, [&](const auto& run, size_t risk, const auto& image) {
            std::map<std::string, int> contents;
            int due = 0;
            for (const auto& entry : std::filesystem::directory_iterator(image + kFolder)) {
                due += entry.file_size() >= kDue ? 1 : 0;
                contents[entry.file_size() >= kDue ? "" : support::readFile(entry.path())] += 1;
            }
            EXPECT_EQ(due, 1);
            EXPECT_EQ(contents["was 0"], 1);
            EXPECT_EQ(contents["was 7"], 1);
            const off_t safe = run.bytesBefore(risk);
            if (safe < static_cast<off_t>(kDue)) {  // of the file after the rotation
                EXPECT_EQ(missingIn(survival::chunksFound(image + kRecording), written, safe), kNothing);
            }
        });
}

TEST_F(PowerCut, IsFollowedByARunOfTheDaemonThatRecordsOn)
{
    bringUp();
    ASSERT_TRUE(panel_.awaitReports(kSeveralSeconds / 2));
    ASSERT_EQ(panel_.end(), 0) << panel_.errors();
    const auto written = survival::chunksFound(panel_.recording());
    cutAtManyMoments("daemon", support::isLong() ? 30 : 3,
                     [&](const auto& run, size_t risk, const auto& image) {
                         Panel after;
                         ASSERT_TRUE(after.layOut());
                         std::filesystem::copy(image + kFolder, after.file(kFolder),
                                               std::filesystem::copy_options::recursive);
                         after.start({"--cpu", "quad", "--fps", "max", "--frames", "30"});
                         ASSERT_EQ(after.awaitEnd(), 0) << after.errors();
                         const auto found = survival::chunksFound(after.recording());
                         EXPECT_EQ(missingIn(found, written, run.bytesBefore(risk)), kNothing);
                         constexpr size_t kLeastFrames = 25;
                         EXPECT_GE(survival::playRepaired(after.recording()).readableAtEnd, kLeastFrames);
                     });
}

}  // namespace
