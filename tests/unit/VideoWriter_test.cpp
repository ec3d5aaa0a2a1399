#include "lib/VideoWriter.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <filesystem>
#include <functional>
#include <string>
#include <thread>

#include "Folder.h"
#include "Stdout.h"
#include "Wait.h"

namespace {

/// The base with its routines in reach.
class Writer final : public VideoWriter {
public:
    using VideoWriter::append;
    using VideoWriter::fd;
    using VideoWriter::header;
    using VideoWriter::headerLength;
    using VideoWriter::open_file;
    using VideoWriter::outputBuffer;
    using VideoWriter::outputChunk;

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
    EXPECT_EQ(std::filesystem::status(path_).permissions(), std::filesystem::perms{0755});
    EXPECT_NE(::fcntl(writer_.fd, F_GETFD) & FD_CLOEXEC, 0) << "a player child inherits it";
}

TEST_F(WriterFile, TheLimitOfAContinuedRecordingIsOff)
{
    for (const auto size : {uintmax_t{201}, uintmax_t{200}, uintmax_t{3} << 30}) {
        ASSERT_TRUE(support::writeFile(path_, ""));
        std::filesystem::resize_file(path_, size);
        EXPECT_TRUE(open(path_));
        EXPECT_EQ(writer_.append, size > 200) << size;
        EXPECT_EQ(printed_,
                  "File Size: " + std::to_string(size) + "\nAppend: " + (size > 200 ? "1\n" : "0\n"));
        EXPECT_TRUE(writer_.outputBuffer("b", 1, 0));
        EXPECT_EQ(std::filesystem::file_size(path_), size + 1);
    }
    ASSERT_TRUE(open(folder_.file("new")));
    EXPECT_FALSE(writer_.append) << "left from the file before";
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

/// A pipe stands for a slow disk: once it is full, a write waits.
TEST_F(WriterFile, ASignalDuringAWriteCutsTheFrameOrItsPadding)
{
    struct sigaction action = {};
    action.sa_handler = [](int) {};  // without SA_RESTART: the write ends with EINTR
    ASSERT_EQ(::sigaction(SIGUSR1, &action, nullptr), 0);
    ASSERT_EQ(::mkfifo(path_.c_str(), 0600), 0);
    const int reader = ::open(path_.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    ASSERT_TRUE(open(path_));
    const std::string fill(static_cast<size_t>(::fcntl(reader, F_GETPIPE_SZ)), 'f');

    const std::function<bool()> writes[] = {[&] { return writer_.outputBuffer("frame", 5, 3); },
                                            [&] { return writer_.outputChunk("fr", 2, "ame", 3, 3); }};
    for (const auto& write : writes) {
        ASSERT_TRUE(writer_.outputBuffer(fill.data(), static_cast<unsigned int>(fill.size()), 0));
        std::atomic<bool> done{false};
        bool written = false;
        std::thread writing([&] {
            written = write();
            done = true;
        });
        int signalsLeft = 16;  // the first ones may come before the call
        EXPECT_TRUE(support::waitUntil([&] {
            ::pthread_kill(writing.native_handle(), SIGUSR1);
            return --signalsLeft == 0 || done;
        }));
        std::string received;
        EXPECT_TRUE(support::waitUntil([&] {
            char bytes[4096];
            for (ssize_t n = 1; n > 0; received.append(bytes, n > 0 ? static_cast<size_t>(n) : 0)) {
                n = ::read(reader, bytes, sizeof bytes);
            }
            return done && (!written || received.size() >= fill.size() + 8);
        }));
        writing.join();
        EXPECT_TRUE(written);
        EXPECT_EQ(received, fill + std::string("frame\0\0\0", 8));
    }
    ::close(reader);
}

TEST(VideoWriter, TheCodecHeaderIsNotCollectedInOrderOrOverwritesMemory)
{
    Writer writer;
    writer.writeToHeader("old", 3);
    writer.startHeader();
    const std::string sps(74, 's');
    writer.writeToHeader(sps.data(), 74);
    writer.writeToHeader("abcde", 5);
    writer.writeToHeader("", 0);
    const unit::Stdout output;
    writer.writeToHeader("pp", 2);
    EXPECT_EQ(writer.headerLength, 79U);
    EXPECT_EQ(output.text(), "Codec header of 81 bytes is above the limit of 80\n");
    writer.writeToHeader("p", 1);
    EXPECT_EQ(std::string(writer.header, writer.headerLength), sps + "abcdep");
    EXPECT_EQ(writer.fd, -1);
}

}  // namespace
