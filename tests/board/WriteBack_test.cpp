// What reaches the medium, by the board's journal, and what would be lost in a power cut.

#include "lib/WriteBack.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <memory>
#include <optional>
#include <string>

#include "Driver.h"
#include "medium/Medium.h"

namespace {

const char* const kFolder = "/velmarine/f/camrecord/";
const std::string kRecording = std::string(kFolder) + "cam.avi";

const support::Command kJournal{"--journal"};

/// The recording as its writer has it.
class Growing {
public:
    Growing() : fd_(::open(kRecording.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0777)) {}
    ~Growing() { ::close(fd_); }
    Growing(const Growing&) = delete;
    Growing& operator=(const Growing&) = delete;

    void grow() const
    {
        const std::string frame(10'000, 'f');
        ASSERT_EQ(::write(fd_, frame.data(), frame.size()), static_cast<ssize_t>(frame.size()));
    }

private:
    int fd_;
};

/// Whether a power cut now could take something of the recordings.
bool atRisk()
{
    const medium::Journal journal = medium::readJournal(board::Board::current()->file("journal"));
    const size_t now = journal.entries.size();
    return medium::Medium(journal).firstAtRisk(now, kFolder) != now;
}

void rotate()
{
    ASSERT_EQ(std::rename(kRecording.c_str(), (kRecording + ".00.avi").c_str()), 0);
}

BOARD_TEST(WriteBack, APassLeavesAFrameOrANameUnsaved, kJournal)
{
    WriteBack writeBack(kFolder, "cam.avi");
    for (const bool nextBegins : {false, true}) {
        {
            const Growing file;
            for (const char* what : {"a new file", "more of it"}) {
                file.grow();
                ASSERT_TRUE(atRisk());
                writeBack.pass();
                EXPECT_FALSE(atRisk()) << what;
            }
            file.grow();
        }
        rotate();
        std::optional<Growing> next;
        if (nextBegins) {
            next.emplace().grow();
        }
        writeBack.pass();
        EXPECT_FALSE(atRisk()) << "a rotation";
        EXPECT_FALSE(writeBack.failing());
    }
}

BOARD_TEST(WriteBack, AFileThatDoesNotGrowIsHeldOpen, kJournal)
{
    WriteBack writeBack(kFolder, "cam.avi");
    {
        const Growing file;
        file.grow();
        writeBack.pass();
    }
    const long held = driver::openDescriptors();
    writeBack.pass();
    EXPECT_EQ(driver::openDescriptors(), held - 1);

    // The same place may be a new file's.
    ASSERT_EQ(std::remove(kRecording.c_str()), 0);
    const Growing again;
    again.grow();
    again.grow();
    writeBack.pass();
    EXPECT_FALSE(atRisk());
}

BOARD_TEST(WriteBack, ARefusalIsForgotten, (support::Command{"--journal", "--fault", "fsync@*cam.avi#1=EIO"}))
{
    WriteBack writeBack(kFolder, "cam.avi");
    const Growing file;
    file.grow();
    writeBack.pass();
    EXPECT_TRUE(writeBack.failing());
    EXPECT_TRUE(atRisk());
    writeBack.pass();
    EXPECT_FALSE(writeBack.failing());
    EXPECT_FALSE(atRisk()) << "not tried again";
}

BOARD_TEST(WriteBack, TheLastFramesAreUnsavedOrADescriptorIsOpenAtItsEnd, kJournal)
{
    const Growing file;
    file.grow();
    const long before = driver::openDescriptors();
    auto writeBack = std::make_unique<WriteBack>(kFolder, "cam.avi");
    writeBack->pass();
    writeBack = nullptr;
    EXPECT_EQ(driver::openDescriptors(), before);

    writeBack = std::make_unique<WriteBack>(kFolder, "cam.avi");
    writeBack->start();
    file.grow();
    WriteBack::retire(std::move(writeBack));
    // On a busy machine it may have been left to itself.
    EXPECT_TRUE(support::waitUntil([] { return !atRisk(); }));
}

}  // namespace
