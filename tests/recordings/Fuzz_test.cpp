#include <gtest/gtest.h>
#include <sys/resource.h>

#include <random>

#include "Recordings.h"
#include "Verbs.h"

namespace {

using recordings::Tape;
using recordings::walk;

/// Damages a recording as the seed says, from a flipped bit to blocks that moved.
class Mutator {
public:
    explicit Mutator(unsigned seed) : random_(seed) {}

    std::string mutate(std::string content, const std::vector<size_t>& chunks)
    {
        for (size_t times = 1 + below(4); times > 0; --times) {
            mutateOnce(content, chunks);
        }
        return content;
    }

private:
    size_t below(size_t limit) { return random_() % std::max<size_t>(limit, 1); }

    void mutateOnce(std::string& content, const std::vector<size_t>& chunks)
    {
        const size_t at =
            std::min(content.size(), below(2) == 0 ? below(content.size()) : chunks[below(chunks.size())]);
        const size_t length = below(below(2) == 0 ? 12 : 900);
        switch (below(7)) {
            case 0:
                return content.resize(at);
            case 1:
                content.erase(at, length);
                return;
            case 2:
                content.insert(at, std::string(length, below(2) == 0 ? '\0' : 'x'));
                return;
            case 3:
                content.replace(at, length, content.substr(below(content.size()), length));
                return;
            case 4:
                content.insert(at, content.substr(below(content.size()), length));
                return;
            case 5:
                return flip(content, at);
            default:
                return setSize(content, at);
        }
    }

    void flip(std::string& content, size_t at)
    {
        if (at < content.size()) {
            content[at] = static_cast<char>(content[at] ^ (1 << below(8)));
        }
    }

    void setSize(std::string& content, size_t chunk)
    {
        constexpr uint32_t kHostile[] = {
            0,       1,          7, 8, 0x7FFFFFFF, 0x80000000, 0xFFFFFFF8, 0xFFFFFFFF, 4194304 + 83,
            4194388, 0x00FFFFFF, 64};
        const uint32_t size = kHostile[below(std::size(kHostile))];
        for (size_t i = 0; i < sizeof(size) && chunk + 4 + i < content.size(); ++i) {
            content[chunk + 4 + i] = static_cast<char>(size >> (8 * i));
        }
    }

    std::mt19937 random_;
};

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr long kMostGrowth = 524288;  // kB: they hold freed memory back
#else
constexpr long kMostGrowth = 4096;  // kB
#endif

long peakKilobytes()
{
    rusage usage = {};
    ::getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
}

TEST(Fuzz, NoFileBreaksTheWalkAndEveryRepairedOneIsSound)
{
    constexpr unsigned kFiles = 3000;
    Tape tape;
    tape.session(7);
    tape.session(6);
    const std::string content = tape.content();
    const support::Folder folder;
    const std::string in = folder.file("in.avi");
    const std::string out = folder.file("out.avi");
    long peakBefore = 0;
    for (unsigned seed = 0; seed < kFiles; ++seed) {
        recordings::writeOld(in, Mutator(seed).mutate(content, tape.chunks));
        const auto seen = walk(in);
        ASSERT_EQ(seen.fault, "") << "seed " << seed;
        ASSERT_EQ(walk(in, recording::Depth::kHeads).fault, "") << "seed " << seed;
        std::filesystem::remove(out);
        if (recording::runRepair({in, out, false}) == 0) {
            const auto repaired = walk(out);
            ASSERT_EQ(repaired.frames, seen.frames) << "seed " << seed;
            ASSERT_TRUE(repaired.damages.empty()) << "seed " << seed;
        } else {
            ASSERT_TRUE(seen.frames.empty()) << "seed " << seed;
        }
        if (seed == kFiles / 3) {
            peakBefore = peakKilobytes();
        }
    }
    EXPECT_LT(peakKilobytes() - peakBefore, kMostGrowth);
}

TEST(Fuzz, AHostileFileIsReadInTimeProportionalToItsLength)
{
    // Heads that all claim the largest size, each of which has to be looked for an end.
    std::string chunk("00db\x53\0\x40\0\0\0\0\1\x41zzz", 16);
    constexpr size_t kLength = 8388608;
    std::string content(recording::kHeaderBytes, 'h');
    while (content.size() < kLength) {
        content += chunk;
    }
    const support::Folder folder;
    recordings::writeOld(folder.file("in.avi"), content);
    const auto seen = walk(folder.file("in.avi"));
    EXPECT_EQ(seen.fault, "");
    EXPECT_TRUE(seen.frames.empty());
}

}  // namespace
