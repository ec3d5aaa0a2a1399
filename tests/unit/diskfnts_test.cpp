#include "lib/diskfnts.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <filesystem>
#include <iterator>
#include <string>

#include "FileLimit.h"
#include "Folder.h"

namespace {

class Disk : public testing::Test {
protected:
    void TearDown() override
    {
        ::umask(formerMask_);
        EXPECT_EQ(openDescriptors(), openBefore_) << "a descriptor is left open";
    }

    static std::ptrdiff_t openDescriptors()
    {
        const std::filesystem::directory_iterator all("/proc/self/fd");
        return std::distance(begin(all), end(all));
    }

    std::string make(const std::string& name, const std::string& content)
    {
        EXPECT_TRUE(support::writeFile(folder_.file(name), content));
        return folder_.file(name);
    }
    std::filesystem::perms modeOf(const std::string& name) const
    {
        return std::filesystem::status(folder_.file(name)).permissions();
    }
    std::string content(const std::string& name) const { return support::readFile(folder_.file(name)); }
    bool exists(const std::string& name) const { return std::filesystem::exists(folder_.file(name)); }

    const mode_t formerMask_ = ::umask(0);
    const std::ptrdiff_t openBefore_ = openDescriptors();
    support::Folder folder_;
    std::string missing_ = folder_.file("missing");
    diskfnts dfn_;
};

TEST_F(Disk, AKindOfFileIsTakenForAnother)
{
    const std::string file = make("file", "x");
    const std::string link = folder_.file("link");
    ASSERT_TRUE(dfn_.linkFile(file, link));
    EXPECT_TRUE(dfn_.isFile(file) && dfn_.isFile(link));
    EXPECT_TRUE(dfn_.isDirectory(folder_.path()));
    EXPECT_TRUE(dfn_.isDevNode("/dev/null"));
    EXPECT_TRUE(dfn_.isLink(link, nullptr));
    EXPECT_FALSE(dfn_.isFile(folder_.path()) || dfn_.isFile("/dev/null") || dfn_.isFile(missing_));
    EXPECT_FALSE(dfn_.isDirectory(file) || dfn_.isDirectory(missing_));
    EXPECT_FALSE(dfn_.isDevNode(file) || dfn_.isDevNode(folder_.path()) || dfn_.isDevNode(missing_));
    EXPECT_FALSE(dfn_.isLink(file, nullptr) || dfn_.isLink(missing_, nullptr));
}

TEST_F(Disk, ALinksTextIsWrong)
{
    const std::string link = folder_.file("link");
    const std::string far(300, 'f');
    ASSERT_TRUE(dfn_.linkFile(far, link)) << "leads nowhere, and still is a link";
    std::string text = "before";
    EXPECT_TRUE(dfn_.isLink(link, &text));
    EXPECT_EQ(text, far);
    EXPECT_FALSE(dfn_.linkFile("other", link));
    EXPECT_FALSE(dfn_.isLink(missing_, &text));
    EXPECT_EQ(text, far);
}

TEST_F(Disk, MakeDirMakesParentsOrAcceptsOneThatIsThere)
{
    const std::string folder = folder_.file("made");
    EXPECT_TRUE(dfn_.makeDir(folder));
    EXPECT_EQ(modeOf("made"), std::filesystem::perms{0755});
    EXPECT_FALSE(dfn_.makeDir(folder));
    EXPECT_FALSE(dfn_.makeDir(folder_.file("a/b")));
    EXPECT_FALSE(exists("a"));
}

TEST_F(Disk, SizeOrTimeOfAMissingFileIsNotZeroOrThatOfALargeOneNegative)
{
    EXPECT_EQ(dfn_.fileSize(missing_), 0);
    EXPECT_EQ(dfn_.fileMTime(missing_), 0);
    constexpr uintmax_t kThreeGiB = uintmax_t{3} << 30;
    const std::string file = make("file", "");
    std::filesystem::resize_file(file, kThreeGiB);
    EXPECT_EQ(static_cast<uintmax_t>(dfn_.fileSize(file)), std::min<uintmax_t>(kThreeGiB, LONG_MAX));
    const timespec times[2] = {{1, 0}, {1'234'567'890, 999'999'999}};
    ASSERT_EQ(::utimensat(AT_FDCWD, file.c_str(), times, 0), 0);
    EXPECT_EQ(dfn_.fileMTime(file), 1'234'567'890);
}

TEST_F(Disk, ReadingChangesBytesOrAnOutputThatItShouldLeave)
{
    const std::string bytes("a\0b\r\n\xFF", 6);
    std::string out = "before";
    EXPECT_FALSE(dfn_.getFileContents(missing_, out));
    EXPECT_EQ(out, "before");
    EXPECT_TRUE(dfn_.getFileContents(make("file", bytes), out));
    EXPECT_EQ(out, bytes);
    EXPECT_TRUE(dfn_.getFileContents(make("empty", ""), out));
    EXPECT_EQ(out, "");
    out = "before";
    EXPECT_TRUE(dfn_.getFileContents(folder_.path(), out)) << "opens, and has no length";
    EXPECT_EQ(out, "");
}

TEST_F(Disk, WritingKeepsAnOldTailOrReplacesInsteadOfAppending)
{
    const std::string file = folder_.file("file");
    EXPECT_TRUE(dfn_.writeFileContents(file, "long contents", true));
    EXPECT_TRUE(dfn_.writeFileContents(file, "ab", false));
    EXPECT_EQ(content("file"), "ab");
    EXPECT_TRUE(dfn_.writeFileContents(file, std::string("c\0\n", 3), true));
    EXPECT_EQ(content("file"), std::string("abc\0\n", 5));
    EXPECT_TRUE(dfn_.writeFileContents(file, "new"));
    EXPECT_EQ(content("file"), "new");
    EXPECT_FALSE(dfn_.writeFileContents(folder_.file("missing/file"), "x", true));
    const unit::FileLimit full(5);
    EXPECT_TRUE(dfn_.writeFileContents(file, "1234", true)) << "only opening counts";
    EXPECT_EQ(content("file"), "new12");
}

TEST_F(Disk, RenamingOrRemovingReportsWrong)
{
    EXPECT_TRUE(dfn_.renameFile(make("from", "f"), make("to", "t")));
    EXPECT_EQ(content("to"), "f");
    EXPECT_FALSE(exists("from"));
    EXPECT_FALSE(dfn_.renameFile(missing_, folder_.file("x")));
    make("folder/inside", "i");
    EXPECT_FALSE(dfn_.removeFile(folder_.file("folder")));
    EXPECT_TRUE(dfn_.removeFile(folder_.file("folder/inside")));
    EXPECT_TRUE(dfn_.removeFile(folder_.file("folder")));
    EXPECT_FALSE(dfn_.removeFile(missing_));
}

TEST_F(Disk, ACopyDiffersOrCountsWrong)
{
    for (const size_t length : {0U, 1U, 4096U, 4097U, 12'289U}) {
        std::string bytes(length, '\0');
        for (size_t i = 0; i < length; ++i) {
            bytes[i] = static_cast<char>(i % 251);
        }
        make("to", std::string(20'000, 'o'));
        unsigned int ticks = 0;
        EXPECT_TRUE(dfn_.copyFile(make("from", bytes), folder_.file("to"), false, &ticks, nullptr));
        EXPECT_EQ(content("to"), bytes);
        EXPECT_EQ(ticks, (length + 4095) / 4096);
    }
}

TEST_F(Disk, AnAppendingCopyReplacesOrNeedsAFile)
{
    const std::string from = make("from", "new");
    EXPECT_TRUE(dfn_.copyFile(from, make("to", "old"), true, nullptr, nullptr));
    EXPECT_EQ(content("to"), "oldnew");
    EXPECT_TRUE(dfn_.copyFile(from, folder_.file("made"), true, nullptr, nullptr));
    EXPECT_EQ(modeOf("made"), std::filesystem::perms{0774});
    EXPECT_EQ(content("made"), "new");
    EXPECT_TRUE(dfn_.copyFile(from, folder_.file("made")));
    EXPECT_EQ(content("made"), "new");
}

TEST_F(Disk, ACancelledCopyWritesOrSucceeds)
{
    const std::string from = make("from", "new");
    const std::string to = make("to", "old");
    const bool cancel = true;
    unsigned int ticks = 0;
    EXPECT_FALSE(dfn_.copyFile(from, to, true, &ticks, &cancel));
    EXPECT_EQ(content("to"), "old");
    EXPECT_FALSE(dfn_.copyFile(from, to, false, &ticks, &cancel));
    EXPECT_EQ(content("to"), "") << "emptied before the first block";
    EXPECT_EQ(ticks, 0U);
    EXPECT_TRUE(dfn_.copyFile(make("empty", ""), to, false, nullptr, &cancel)) << "asked after a block only";
}

TEST_F(Disk, AFailedCopySucceedsOrTakesTheSourceOrAReadErrorFailsIt)
{
    const std::string from = make("from", std::string(9000, 'x'));
    const std::string to = folder_.file("to");
    EXPECT_FALSE(dfn_.copyFile(missing_, to));
    EXPECT_FALSE(dfn_.moveFile(missing_, to));
    EXPECT_FALSE(exists("to"));
    EXPECT_FALSE(dfn_.copyFile(from, folder_.file("missing/to")));
    EXPECT_FALSE(dfn_.copyFile(from, "/dev/full"));
    EXPECT_TRUE(dfn_.copyFile(folder_.path(), to)) << "a folder opens and cannot be read";
    EXPECT_EQ(content("to"), "");
    const unit::FileLimit full(5000);
    unsigned int ticks = 0;
    EXPECT_FALSE(dfn_.moveFile(from, to, &ticks));
    EXPECT_EQ(ticks, 1U);
    EXPECT_EQ(content("to").size(), 5000U) << "a block that is cut short is continued";
    EXPECT_TRUE(exists("from"));
}

TEST_F(Disk, AMoveLeavesTheSourceOrAnOldTail)
{
    unsigned int ticks = 0;
    EXPECT_TRUE(dfn_.moveFile(make("from", "new"), make("to", "older"), &ticks));
    EXPECT_EQ(content("to"), "new");
    EXPECT_EQ(ticks, 1U);
    EXPECT_FALSE(exists("from"));
}

TEST_F(Disk, AChecksumIsAddedOrSplitWhereItCannotBe)
{
    const std::string path = make("X.tgz", "payload");
    std::string checksum(40, 'c');
    EXPECT_FALSE(dfn_.addTGZChecksum(missing_, checksum));
    EXPECT_FALSE(exists("missings"));
    std::filesystem::create_directory(path + "s");
    EXPECT_FALSE(dfn_.addTGZChecksum(path, checksum));

    EXPECT_FALSE(dfn_.splitTGZChecksum(missing_, checksum));
    EXPECT_FALSE(dfn_.splitTGZChecksum(make("Y", std::string(39, 'y')), checksum));
    EXPECT_FALSE(exists("Y.tgz"));
    EXPECT_EQ(checksum, std::string(40, 'c'));
    std::filesystem::create_directory(folder_.file("Z.tgz"));
    EXPECT_FALSE(dfn_.splitTGZChecksum(make("Z", std::string(41, 'z')), checksum));
    EXPECT_EQ(checksum, std::string(40, 'z')) << "set before the payload is written";
}

}  // namespace
