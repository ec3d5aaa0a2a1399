#include "lib/H264Writer.h"

#include <gtest/gtest.h>

#include <string>

#include "FileLimit.h"
#include "Folder.h"

namespace {

constexpr VideoWriter::VIDEO_FORMAT kFormat{30, 0, 1440, 960, VideoWriter::H264};

TEST(H264Writer, TheStreamIsFramedOrLosesItsHeaderOrHidesThatItCannotBeWritten)
{
    const support::Folder folder;
    const std::string path = folder.file("stream.h264");
    const std::string former(300, 'o');
    ASSERT_TRUE(support::writeFile(path, former));
    char frame[] = "frame";
    H264Writer writer;
    writer.writeToHeader("spspps", 6);
    ASSERT_TRUE(writer.start(path, kFormat));
    EXPECT_TRUE(writer.writeChunk(frame, 5));
    EXPECT_TRUE(writer.writeChunk(frame, 3));
    EXPECT_EQ(support::readFile(path), former + "spsppsframefra")
        << "the header also where a file is continued";

    EXPECT_FALSE(writer.start(folder.file("missing/stream"), kFormat));
    const unit::FileLimit full(4);
    EXPECT_FALSE(writer.start(folder.file("stream"), kFormat));
}

}  // namespace
