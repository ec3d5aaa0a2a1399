#include "lib/AviWriter.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <string>

#include "FileLimit.h"
#include "Folder.h"

namespace {

constexpr VideoWriter::VIDEO_FORMAT kFormat{25, 500'000, 1280, 720, VideoWriter::H264};
constexpr size_t kHeaderBytes = 792;

/// A chunk as it has to be: the frame is padded, the codec header before it is not.
std::string chunk(const std::string& frame, const std::string& codec = "")
{
    const std::string padding((4 - frame.size() % 4) % 4, '\0');
    const size_t size = codec.size() + frame.size() + padding.size();
    const char bytes[] = {static_cast<char>(size & 0xFF), static_cast<char>(size >> 8), 0, 0};
    return "00db" + std::string(bytes, sizeof bytes) + codec + frame + padding;
}

class Avi : public testing::Test {
protected:
    bool start(VideoWriter::VIDEO_FORMAT format = kFormat) { return writer_.start(path_, format); }
    bool write(std::string frame)
    {
        return writer_.writeChunk(frame.data(), static_cast<unsigned int>(frame.size()));
    }
    void setCodecHeader(const std::string& bytes)
    {
        writer_.startHeader();
        writer_.writeToHeader(bytes.data(), static_cast<unsigned int>(bytes.size()));
    }
    std::string file() const { return support::readFile(path_); }
    std::string body() const { return file().substr(kHeaderBytes); }

    support::Folder folder_;
    std::string path_ = folder_.file("cam.avi");
    AviWriter writer_;
    const std::string frame_ = std::string(1000, 'f');
};

TEST_F(Avi, AnotherFormatThanH264OverflowsTheHeader)
{
    VideoWriter::VIDEO_FORMAT format = kFormat;
    format.fmt = VideoWriter::UNKNOWN;
    ASSERT_TRUE(start(format));
    const std::string header = file();
    ASSERT_EQ(header.size(), kHeaderBytes + 24);
    EXPECT_EQ(header.substr(112, 16), std::string(16, '\0'));
    EXPECT_EQ(header.substr(812), "movi");
    EXPECT_EQ(header.substr(4, 4), std::string("\x10\x03\0\0", 4)) << "the size is that of the known format";
}

TEST_F(Avi, AFrameIsNotPaddedToFourBytes)
{
    ASSERT_TRUE(start());
    std::string expected;
    for (const size_t length : {1000U, 1001U, 1002U, 1003U, 0U}) {
        const std::string frame(length, 'f');
        ASSERT_TRUE(write(frame));
        expected += chunk(frame);
    }
    EXPECT_EQ(body(), expected);
}

TEST_F(Avi, TheCodecHeaderIsMissingInTheFirstChunkOfAFileOrOverflows)
{
    for (const size_t length : {6U, 24U, 80U}) {
        const std::string codec(length, 'C');
        setCodecHeader(codec);
        std::filesystem::remove(path_);
        ASSERT_TRUE(start());
        ASSERT_TRUE(write(frame_) && write(frame_));
        writer_.stop();
        ASSERT_TRUE(start());
        ASSERT_TRUE(write(frame_));
        EXPECT_EQ(body(), chunk(frame_, codec) + chunk(frame_) + chunk(frame_, codec));
    }
}

TEST_F(Avi, AWriterWithoutAFileFails)
{
    EXPECT_TRUE(write("abcd"));
    EXPECT_FALSE(writer_.start(folder_.file("missing/cam.avi"), kFormat));
    EXPECT_TRUE(write("abcd"));
}

TEST_F(Avi, AFullDiskIsSilentOrDropsWhatFitted)
{
    setCodecHeader(std::string(24, 'C'));
    // The first and the last byte of the header, a chunk's head, the codec header, a frame's first and last
    // byte.
    for (const size_t bytes : {0U, 791U, 792U, 810U, 824U, 1823U}) {
        SCOPED_TRACE(bytes);
        std::filesystem::remove(path_);
        {
            const unit::FileLimit full(bytes);
            EXPECT_EQ(start(), bytes >= kHeaderBytes);
            EXPECT_FALSE(write(frame_));
        }
        EXPECT_EQ(file().size(), bytes);
        EXPECT_TRUE(write("abcd")) << "the file is still open, and there is room again";
    }
}

TEST_F(Avi, PaddingThatDoesNotFitOnTheDiskFailsTheFrame)
{
    constexpr size_t kUpToPadding = kHeaderBytes + 8 + 1001;
    ASSERT_TRUE(start());
    for (const size_t fitting : {0U, 2U}) {
        std::filesystem::resize_file(path_, kHeaderBytes);
        const unit::FileLimit full(kUpToPadding + fitting);
        EXPECT_TRUE(write(frame_ + "f")) << fitting;
        EXPECT_EQ(file().size(), kUpToPadding + fitting);
    }
}

TEST_F(Avi, TheParameterSetsAreLostWithAFirstFrameThatFindsNoRoom)
{
    setCodecHeader("spspps");
    ASSERT_TRUE(start());
    for (const size_t room : {kHeaderBytes, kHeaderBytes + 20}) {
        const unit::FileLimit full(room);
        EXPECT_FALSE(write(frame_));
    }
    const size_t torn = file().size();
    EXPECT_TRUE(write("abcd") && write("efgh"));
    EXPECT_EQ(file().substr(torn), chunk("abcd", "spspps") + chunk("efgh")) << "once is enough";
}

TEST_F(Avi, AStartWithoutRoomForTheHeaderKeepsADescriptor)
{
    const auto descriptors = [] {
        const std::filesystem::directory_iterator list("/proc/self/fd");
        return std::distance(begin(list), end(list));
    };
    const unit::FileLimit full(0);
    ASSERT_FALSE(start());
    const auto first = descriptors();
    ASSERT_FALSE(start());
    EXPECT_EQ(descriptors(), first);
}

TEST(AviBuildingRoutines, PlaceOtherBytesOrLoseThePosition)
{
    char buffer[64];
    std::fill(std::begin(buffer), std::end(buffer), '#');
    unsigned int position = 1;
    AviWriter::writeText(buffer, &position, "text");
    AviWriter::writeDWORD(buffer, &position, 0x81828384);
    AviWriter::writeWORD(buffer, &position, 0x12345678);
    AviWriter::writeLONG(buffer, &position, 0xFFFEFDFC);
    AviWriter::writePadding(buffer, &position, 2);
    AviWriter::writePadding(buffer, &position, 0);
    AviWriter::writeFormat(buffer, &position, VideoWriter::H264);
    const std::string expected =
        "#text\x84\x83\x82\x81\x78\x56\xFC\xFD\xFE\xFF" + std::string(12, '\0') + "H264#";
    ASSERT_EQ(position, expected.size() - 1);
    EXPECT_EQ(std::string(buffer, expected.size()), expected);
}

}  // namespace
