#include "lib/AviWriter.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "AllocationCount.h"
#include "FileLimit.h"
#include "Folder.h"

namespace {

constexpr VideoWriter::VIDEO_FORMAT kFormat{25, 500'000, 1280, 720, VideoWriter::H264};
constexpr size_t kHeaderBytes = 792;

unsigned long dwordAt(const std::string& bytes, size_t at)
{
    unsigned long value = 0;
    for (size_t i = 4; i-- > 0;) {
        value = value * 256 + static_cast<unsigned char>(bytes.at(at + i));
    }
    return value;
}

std::string dword(unsigned long value)
{
    std::string bytes;
    for (int i = 0; i < 4; ++i) {
        bytes += static_cast<char>(value & 0xFF);
        value >>= 8;
    }
    return bytes;
}

std::string frameBytes(size_t length, char seed)
{
    std::string frame(length, seed);
    for (size_t i = 0; i < length; ++i) {
        frame[i] = static_cast<char>(seed + static_cast<char>(i % 23));
    }
    return frame;
}

struct Chunk {
    std::string path;  // "RIFF:AVI /LIST:hdrl/avih"
    size_t start;      // of its data
    size_t size;
};

/// Reads the nesting by RIFF's own rules: a list is a chunk whose data are a type and further chunks.
void walk(const std::string& file, size_t from, size_t to, const std::string& parent,
          std::vector<Chunk>& found)
{
    while (from + 8 <= to) {
        const std::string tag = file.substr(from, 4);
        const size_t size = dwordAt(file, from + 4);
        const bool list = tag == "RIFF" || tag == "LIST";
        const std::string path = parent + tag + (list ? ":" + file.substr(from + 8, 4) : "");
        ASSERT_LE(from + 8 + size, to) << path;
        found.push_back({path, from + 8, size});
        if (list) {
            walk(file, from + 12, from + 8 + size, path + "/", found);
        }
        from += 8 + size;
    }
    EXPECT_EQ(from, to) << parent << " ends inside a chunk";
}

class Avi : public testing::Test {
protected:
    bool start(VideoWriter::VIDEO_FORMAT format = kFormat) { return writer_.start(path_, format); }
    bool write(std::string frame)
    {
        return writer_.writeChunk(frame.data(), static_cast<unsigned int>(frame.size()));
    }
    std::string file() const { return support::readFile(path_); }
    std::string body() const { return file().substr(kHeaderBytes); }

    support::Folder folder_;
    std::string path_ = folder_.file("cam.avi");
    AviWriter writer_;
};

TEST_F(Avi, AHeaderByteIsNotThatOfTheFormat)
{
    const std::vector<std::pair<size_t, std::string>> published = {
        {0, "RIFF"},           {8, "AVI "},         {12, "LIST"},         {20, "hdrl"},
        {24, "avih"},          {88, "LIST"},        {96, "strl"},         {100, "strh"},
        {108, "vids"},         {112, "H264"},       {164, "strf"},        {188, "H264"},
        {212, "JUNK"},         {228, "00db"},       {756, "LIST"},        {764, "odml"},
        {768, "dmlh"},         {780, "LIST"},       {788, "movi"},        {4, dword(784)},
        {16, dword(760)},      {28, dword(56)},     {92, dword(660)},     {104, dword(56)},
        {168, dword(40)},      {216, dword(536)},   {760, dword(16)},     {772, dword(4)},
        {784, dword(4)},       {32, dword(33'333)}, {36, dword(500'000)}, {56, dword(1)},
        {64, dword(1280)},     {68, dword(720)},    {128, dword(1)},      {132, dword(25)},
        {172, dword(40)},      {176, dword(1280)},  {180, dword(720)},    {184, dword(1 + 24 * 65'536)},
        {192, dword(921'600)}, {220, dword(4)},
    };
    std::string expected(kHeaderBytes, '\0');
    for (const auto& [at, bytes] : published) {
        expected.replace(at, bytes.size(), bytes);
    }
    ASSERT_TRUE(start());
    const std::string header = file();
    ASSERT_EQ(header.size(), kHeaderBytes);
    for (size_t i = 0; i < kHeaderBytes; ++i) {
        ASSERT_EQ(header[i], expected[i]) << "at " << i;
    }
}

TEST_F(Avi, TheListsDoNotNest)
{
    ASSERT_TRUE(start());
    std::vector<Chunk> chunks;
    walk(file(), 0, kHeaderBytes, "", chunks);
    std::string paths;
    for (const Chunk& chunk : chunks) {
        paths += chunk.path + " " + std::to_string(chunk.size) + "\n";
    }
    EXPECT_EQ(paths,
              "RIFF:AVI  784\n"
              "RIFF:AVI /LIST:hdrl 760\n"
              "RIFF:AVI /LIST:hdrl/avih 56\n"
              "RIFF:AVI /LIST:hdrl/LIST:strl 660\n"
              "RIFF:AVI /LIST:hdrl/LIST:strl/strh 56\n"
              "RIFF:AVI /LIST:hdrl/LIST:strl/strf 40\n"
              "RIFF:AVI /LIST:hdrl/LIST:strl/JUNK 536\n"
              "RIFF:AVI /LIST:hdrl/LIST:odml 16\n"
              "RIFF:AVI /LIST:hdrl/LIST:odml/dmlh 4\n"
              "RIFF:AVI /LIST:movi 4\n");
}

TEST_F(Avi, AnotherFormatThanH264OverflowsTheHeader)
{
    VideoWriter::VIDEO_FORMAT format = kFormat;
    format.fmt = VideoWriter::UNKNOWN;
    ASSERT_TRUE(start(format));
    const std::string header = file();
    ASSERT_EQ(header.size(), kHeaderBytes + 24);
    EXPECT_EQ(header.substr(112, 16), std::string(16, '\0'));
    EXPECT_EQ(header.substr(812), "movi");
    EXPECT_EQ(dwordAt(header, 4), 784U);
}

TEST_F(Avi, AFrameIsNotPaddedToFourBytes)
{
    ASSERT_TRUE(start());
    std::string expected;
    for (const size_t length : {1000U, 1001U, 1002U, 1003U, 0U}) {
        const std::string frame = frameBytes(length, 'a');
        const size_t padded = (length + 3) / 4 * 4;
        ASSERT_TRUE(write(frame));
        expected += "00db" + dword(padded) + frame + std::string(padded - length, '\0');
    }
    EXPECT_EQ(body(), expected);
}

TEST_F(Avi, TheCodecHeaderIsMissingInTheFirstChunkOfAFile)
{
    const std::string codec = frameBytes(24, 'C');
    const std::string frame = frameBytes(1000, 'f');
    writer_.writeToHeader(codec.data(), 24);
    ASSERT_TRUE(start());
    ASSERT_TRUE(write(frame) && write(frame));
    writer_.stop();
    ASSERT_TRUE(start());
    ASSERT_TRUE(write(frame));
    const std::string first = "00db" + dword(1024) + codec + frame;
    EXPECT_EQ(body(), first + "00db" + dword(1000) + frame + first);
}

TEST_F(Avi, TheLongestCodecHeaderOverflowsTheChunkHead)
{
    const std::string codec = frameBytes(80, 'C');
    writer_.writeToHeader(codec.data(), 80);
    ASSERT_TRUE(start());
    ASSERT_TRUE(write("abcd"));
    EXPECT_EQ(body(), "00db" + dword(84) + codec + "abcd");
}

TEST_F(Avi, AFileAbove200BytesGetsASecondHeader)
{
    const std::string former(201, 'x');
    ASSERT_TRUE(support::writeFile(path_, former));
    ASSERT_TRUE(start());
    EXPECT_EQ(file(), former);
    ASSERT_TRUE(write("abcd"));
    EXPECT_EQ(file(), former + "00db" + dword(4) + "abcd");
}

TEST_F(Avi, AFragmentIsTakenForARecording)
{
    const std::string former(200, 'x');
    ASSERT_TRUE(support::writeFile(path_, former));
    ASSERT_TRUE(start());
    EXPECT_EQ(file().size(), 200 + kHeaderBytes);
    EXPECT_EQ(file().substr(0, 208), former + "RIFF" + dword(784));
}

TEST_F(Avi, ContinuingAFileThatWasCutInsideAChunkTouchesWhatIsThere)
{
    ASSERT_TRUE(start());
    ASSERT_TRUE(write(frameBytes(1000, 'a')) && write(frameBytes(1000, 'b')));
    writer_.stop();
    std::filesystem::resize_file(path_, kHeaderBytes + 1008 + 500);
    const std::string cut = file();
    ASSERT_TRUE(start());
    ASSERT_TRUE(write("abcd"));
    EXPECT_EQ(file(), cut + "00db" + dword(4) + "abcd");
}

TEST_F(Avi, AWriterWithoutAFileFails)
{
    EXPECT_TRUE(write("abcd"));
    EXPECT_FALSE(writer_.start(folder_.file("missing/cam.avi"), kFormat));
    EXPECT_TRUE(write("abcd"));
}

/// The disk gets full after so many bytes of a recording of a header, a codec header of 24 and a frame of
/// 1000 bytes.
struct Full {
    const char* where;
    size_t bytes;
    bool started;
};
void PrintTo(const Full& full, std::ostream* out)
{
    *out << "full after " << full.bytes << " bytes";
}

class AviOnAFullDisk : public Avi, public testing::WithParamInterface<Full> {};

TEST_P(AviOnAFullDisk, IsSilent)
{
    const std::string codec = frameBytes(24, 'C');
    writer_.writeToHeader(codec.data(), 24);
    {
        const unit::FileLimit full(GetParam().bytes);
        EXPECT_EQ(start(), GetParam().started);
        EXPECT_FALSE(write(frameBytes(1000, 'a')));
    }
    EXPECT_EQ(file().size(), GetParam().bytes) << "what fitted stays";
    EXPECT_TRUE(write("abcd")) << "the file is still open, and there is room again";
}

INSTANTIATE_TEST_SUITE_P(At, AviOnAFullDisk,
                         testing::Values(Full{"FirstHeaderByte", 0, false},
                                         Full{"LastHeaderByte", 791, false}, Full{"ChunkHead", 792, true},
                                         Full{"CodecHeader", 810, true}, Full{"FirstFrameByte", 824, true},
                                         Full{"LastFrameByte", 1823, true}),
                         [](const auto& tested) { return tested.param.where; });

TEST_F(Avi, PaddingThatDoesNotFitOnTheDiskFailsTheFrame)
{
    constexpr size_t kUpToPadding = kHeaderBytes + 8 + 1001;
    ASSERT_TRUE(start());
    for (const size_t fitting : {0U, 2U}) {
        std::filesystem::resize_file(path_, kHeaderBytes);
        const unit::FileLimit full(kUpToPadding + fitting);
        EXPECT_TRUE(write(frameBytes(1001, 'a'))) << fitting;
        EXPECT_EQ(file().size(), kUpToPadding + fitting);
    }
}

TEST_F(Avi, TheParameterSetsAreLostWithAFirstFrameThatFindsNoRoom)
{
    writer_.writeToHeader("spspps", 6);
    ASSERT_TRUE(start());
    for (const size_t room : {kHeaderBytes, kHeaderBytes + 20}) {
        const unit::FileLimit full(room);
        EXPECT_FALSE(write(frameBytes(1000, 'a')));
    }
    const size_t torn = file().size();
    EXPECT_TRUE(write("abcd"));
    EXPECT_EQ(file().substr(torn), "00db" + dword(10) + "spspps" + "abcd");
    EXPECT_TRUE(write("efgh"));
    EXPECT_EQ(file().substr(torn + 18), "00db" + dword(4) + "efgh") << "once is enough";
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

TEST_F(Avi, AFrameCostsAnAllocation)
{
    writer_.writeToHeader("spspps", 6);
    ASSERT_TRUE(start());
    std::string frame = frameBytes(1001, 'a');
    const unsigned long before = unit::allocations();
    const bool written = writer_.writeChunk(frame.data(), 1001) && writer_.writeChunk(frame.data(), 1001);
    EXPECT_EQ(unit::allocations(), before);
    EXPECT_TRUE(written);
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
