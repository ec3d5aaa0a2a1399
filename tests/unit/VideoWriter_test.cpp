#include "lib/VideoWriter.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <fstream>
#include <string>
#include <thread>

#include "FileLimit.h"
#include "Folder.h"
#include "Stdout.h"
#include "Wait.h"

namespace {

/// The base with its routines in reach.
class Writer final : public VideoWriter {
public:
    using VideoWriter::append;
    using VideoWriter::fd;
    using VideoWriter::firstFrame;
    using VideoWriter::header;
    using VideoWriter::headerLength;
    using VideoWriter::open_file;
    using VideoWriter::outputBuffer;

    ~Writer() { stop(); }
    bool start(std::string path, const VIDEO_FORMAT& /*format*/) override { return open_file(path.c_str()); }
    bool writeChunk(void* data, unsigned int length) override
    {
        return outputBuffer(static_cast<const char*>(data), length, 0);
    }
};

class WriterFile : public testing::Test {
protected:
    bool open(const std::string& path)
    {
        const unit::Stdout output;
        const bool opened = writer_.open_file(path.c_str());
        printed_ = output.text();
        return opened;
    }

    support::Folder folder_;
    std::string path_ = folder_.file("file");
    Writer writer_;
    std::string printed_;
};

TEST_F(WriterFile, ANewFileIsContinuedOrHasAnotherMode)
{
    const mode_t former = ::umask(0022);
    EXPECT_TRUE(open(path_));
    ::umask(former);
    EXPECT_EQ(printed_, "File Size: 0\nAppend: 0\n");
    EXPECT_FALSE(writer_.append);
    struct stat status = {};
    ASSERT_EQ(::stat(path_.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 0755U);
}

TEST_F(WriterFile, TheLimitOfAContinuedRecordingIsOff)
{
    ASSERT_TRUE(support::writeFile(path_, std::string(200, 'a')));
    EXPECT_TRUE(open(path_));
    EXPECT_EQ(printed_, "File Size: 200\nAppend: 0\n");
    EXPECT_FALSE(writer_.append);
    writer_.stop();
    ASSERT_TRUE(support::writeFile(path_, std::string(201, 'a')));
    EXPECT_TRUE(open(path_));
    EXPECT_EQ(printed_, "File Size: 201\nAppend: 1\n");
    EXPECT_TRUE(writer_.append);
    EXPECT_TRUE(writer_.outputBuffer("b", 1, 0));
    EXPECT_EQ(support::readFile(path_), std::string(201, 'a') + "b");

    ASSERT_TRUE(open(folder_.file("new")));
    EXPECT_FALSE(writer_.append) << "left from the file before";
}

TEST_F(WriterFile, ARecordingBeyondTwoGiBIsTakenForANewOneOrNotWritten)
{
    constexpr off_t kThreeGiB = off_t{3} << 30;  // sparse
    ASSERT_TRUE(support::writeFile(path_, ""));
    ASSERT_EQ(::truncate(path_.c_str(), kThreeGiB), 0);
    EXPECT_TRUE(open(path_));
    EXPECT_EQ(printed_, "File Size: 3221225472\nAppend: 1\n");
    EXPECT_TRUE(writer_.outputBuffer("b", 1, 0));
    struct stat status = {};
    ASSERT_EQ(::stat(path_.c_str(), &status), 0);
    EXPECT_EQ(status.st_size, kThreeGiB + 1);
}

TEST_F(WriterFile, SomethingElseThanAFileIsContinued)
{
    EXPECT_FALSE(open(folder_.path()));
    EXPECT_FALSE(writer_.append) << "a folder's own size is above the limit";
    EXPECT_EQ(writer_.fd, -1);
    char frame[] = "frame";
    EXPECT_TRUE(writer_.writeChunk(frame, sizeof frame))
        << "nothing is written to a closed writer, with success";
}

TEST_F(WriterFile, APlayerChildInheritsTheRecording)
{
    ASSERT_TRUE(open(path_));
    EXPECT_NE(::fcntl(writer_.fd, F_GETFD) & FD_CLOEXEC, 0);
}

TEST_F(WriterFile, PaddingNeedsData)
{
    ASSERT_TRUE(open(path_));
    EXPECT_TRUE(writer_.outputBuffer(nullptr, 0, 3));
    EXPECT_EQ(support::readFile(path_), std::string(3, '\0'));
}

TEST_F(WriterFile, AFullDiskIsSuccessOrDropsWhatStillFitted)
{
    ASSERT_TRUE(open(path_));
    {
        const unit::FileLimit full(10);
        EXPECT_TRUE(writer_.outputBuffer("12345678", 8, 0));
        EXPECT_FALSE(writer_.outputBuffer("abcd", 4, 0));
    }
    EXPECT_NE(writer_.fd, -1) << "the caller decides what becomes of the file";
    EXPECT_EQ(support::readFile(path_), "12345678ab");
}

TEST_F(WriterFile, StopLeavesTheFileOpenOrForgetsTheHeader)
{
    ASSERT_TRUE(open(path_));
    writer_.writeToHeader("sps", 3);
    const int former = writer_.fd;
    writer_.stop();
    EXPECT_EQ(::fcntl(former, F_GETFD), -1);
    EXPECT_EQ(writer_.fd, -1);
    EXPECT_EQ(writer_.headerLength, 3U);
    writer_.stop();
}

std::atomic<int> signals{0};

void countSignal(int /*number*/)
{
    ++signals;
}

/// The state letter that the kernel gives a thread of this process.
char stateOf(long thread)
{
    std::ifstream file("/proc/self/task/" + std::to_string(thread) + "/stat");
    std::string line;
    std::getline(file, line);
    const size_t end = line.rfind(')');
    return end == std::string::npos ? '?' : line[end + 2];
}

TEST_F(WriterFile, ASignalDuringAWriteCutsTheFrame)
{
    struct sigaction action = {};
    action.sa_handler = countSignal;  // without SA_RESTART: the write ends with EINTR
    ASSERT_EQ(::sigaction(SIGUSR1, &action, nullptr), 0);
    ASSERT_EQ(::mkfifo(path_.c_str(), 0600), 0);
    const int reader = ::open(path_.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    ASSERT_TRUE(open(path_));
    const std::string fill(static_cast<size_t>(::fcntl(reader, F_GETPIPE_SZ)), 'f');
    ASSERT_TRUE(writer_.outputBuffer(fill.data(), static_cast<unsigned int>(fill.size()), 0));

    signals = 0;
    std::atomic<long> id{0};
    std::atomic<bool> done{false};
    bool written = false;
    std::thread writing([&] {
        id = ::syscall(SYS_gettid);
        written = writer_.outputBuffer("frame", 5, 0);
        done = true;
    });
    EXPECT_TRUE(support::waitUntil([&] { return id != 0 && stateOf(id) == 'S'; }));
    ::pthread_kill(writing.native_handle(), SIGUSR1);
    EXPECT_TRUE(support::waitUntil([] { return signals == 1; }));

    std::string received;
    EXPECT_TRUE(support::waitUntil([&] {
        char bytes[4096];
        for (ssize_t n = ::read(reader, bytes, sizeof bytes); n > 0;
             n = ::read(reader, bytes, sizeof bytes)) {
            received.append(bytes, static_cast<size_t>(n));
        }
        return done && received.size() >= fill.size() + 5;
    }));
    writing.join();
    ::close(reader);
    EXPECT_TRUE(written);
    EXPECT_EQ(received, fill + "frame");
}

TEST(VideoWriter, TheCodecHeaderIsNotCollectedInOrder)
{
    Writer writer;
    writer.writeToHeader("old", 3);
    writer.startHeader();
    writer.writeToHeader("0123456789", 10);
    writer.writeToHeader("abcde", 5);
    writer.writeToHeader("", 0);
    EXPECT_EQ(std::string(writer.header, writer.headerLength), "0123456789abcde");
}

TEST(VideoWriter, AHeaderAboveItsRoomOverwritesMemory)
{
    Writer writer;
    const std::string sps(79, 's');
    writer.writeToHeader(sps.data(), 79);
    const unit::Stdout output;
    writer.writeToHeader("pp", 2);
    EXPECT_EQ(writer.headerLength, 79U);
    EXPECT_EQ(output.text(), "Codec header of 81 bytes is above the limit of 80\n");
    writer.writeToHeader("p", 1);
    EXPECT_EQ(std::string(writer.header, writer.headerLength), sps + "p");
    EXPECT_EQ(writer.fd, -1);
}

}  // namespace
