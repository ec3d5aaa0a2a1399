// Where a camera's pictures come from: a pipe, a clip, nothing.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "Camera.h"
#include "capture/PipeSource.h"
#include "support/Wait.h"

namespace {

using support::Camera;

class PipedCamera : public support::CaptureTest {
protected:
    void SetUp() override
    {
        support::CaptureTest::SetUp();
        ASSERT_EQ(::mkfifo(scratch_.file("camera1").c_str(), S_IRUSR | S_IWUSR), 0);
        end_ = ::open(scratch_.file("camera1").c_str(), O_RDWR | O_CLOEXEC);
        ASSERT_GE(end_, 0);
        counters(0).kind = board::SourceKind::kPipe;
    }
    void TearDown() override { ::close(end_); }

    void writeBytes(const std::vector<uint8_t>& bytes) const
    {
        for (size_t done = 0; done < bytes.size();) {
            const ssize_t written = ::write(end_, bytes.data() + done, bytes.size() - done);
            ASSERT_GT(written, 0);
            done += static_cast<size_t>(written);
        }
    }

    int end_ = -1;  // as the launcher holds it
};

TEST_F(PipedCamera, CutsOrShiftsPicturesThatArriveInPieces)
{
    Camera camera(scratch_, 0);
    start(camera);
    std::thread writer([this] {
        for (const uint8_t value : {uint8_t{50}, uint8_t{200}}) {
            writeBytes(std::vector<uint8_t>(board::kPictureBytes, value));
        }
    });
    for (const uint8_t value : {uint8_t{50}, uint8_t{200}}) {
        EXPECT_EQ(camera.dequeue(), 0);
        const uint8_t* picture =
            scratch_.memory().at(camera.address(camera.last().index), board::kPictureBytes);
        EXPECT_EQ(picture[0], value);
        EXPECT_EQ(picture[board::kPictureBytes - 1], value);
    }
    writer.join();
}

TEST_F(PipedCamera, FallsBehindItsFilmWhenFramesAreDropped)
{
    std::atomic<bool> enough{false};
    std::atomic<bool> ended{false};
    std::thread decoder([&] {
        for (uint8_t picture = 0; !enough; ++picture) {
            writeBytes(std::vector<uint8_t>(board::kPictureBytes, picture));
        }
        ended = true;
    });
    std::vector<uint8_t> shown(board::kPictureBytes);
    board::PipeSource source(scratch_.board(), 0);
    uint64_t frame = 1;
    ASSERT_TRUE(source.draw(frame, shown.data()));
    EXPECT_EQ(shown[0], 0);
    frame += 10;  // nine were dropped
    const auto caughtUp = [&] {
        EXPECT_TRUE(source.draw(frame, shown.data()));
        return shown[0] == static_cast<uint8_t>(frame++ - 1);
    };
    EXPECT_TRUE(support::waitUntil(caughtUp));
    for (int i = 0; i < 4; ++i) {
        EXPECT_TRUE(caughtUp()) << "it must not run ahead either";
    }
    enough = true;
    counters(0).sourceLost = 1;  // no draw waits any more
    while (!ended) {
        source.draw(frame++, shown.data());
    }
    decoder.join();
}

TEST_F(PipedCamera, HangsOrDeliversWhenItsSourceIsLost)
{
    Camera camera(scratch_, 0);
    start(camera);
    writeBytes(std::vector<uint8_t>(1000, 1));  // the beginning of a picture
    std::atomic<bool> entered{false};
    std::thread launcher([&] {
        while (!entered) {
            std::this_thread::yield();
        }
        counters(0).sourceLost = 1;
    });
    entered = true;
    EXPECT_EQ(camera.dequeue(), -EIO);
    EXPECT_EQ(camera.dequeue(), -EIO);
    EXPECT_EQ(counters(0).delivered, 0U);
    launcher.join();
}

class ClipCamera : public support::CaptureTest {
protected:
    void writeClip(const std::vector<uint8_t>& values, size_t extraBytes)
    {
        std::ofstream clip(scratch_.file("camera1.nv12"), std::ios::binary);
        for (const uint8_t value : values) {
            clip << std::string(board::kPictureBytes, static_cast<char>(value));
        }
        clip << std::string(extraBytes, 'x');
        counters(0).kind = board::SourceKind::kClip;
    }
};

TEST_F(ClipCamera, LosesAPictureOrItsPlaceWhenTheClipBeginsAgain)
{
    writeClip({50, 120, 200}, 1000);
    Camera camera(scratch_, 0);
    start(camera);
    for (const uint8_t value : std::vector<uint8_t>{50, 120, 200, 50, 120}) {
        camera.cycle();
        const uint8_t* picture =
            scratch_.memory().at(camera.address(camera.last().index), board::kPictureBytes);
        EXPECT_EQ(picture[0], value);
        EXPECT_EQ(picture[board::kPictureBytes - 1], value);
    }
}

TEST_F(ClipCamera, ReadsBeyondAClipThatHoldsNoWholePicture)
{
    writeClip({}, board::kPictureBytes - 1);
    Camera camera(scratch_, 0);
    start(camera);
    EXPECT_EQ(camera.dequeue(), -EIO);
}

class CameraSources : public support::CaptureTest {};

TEST_F(CameraSources, ShowsACameraWithoutASignalAsALivePicture)
{
    counters(0).kind = board::SourceKind::kNone;
    Camera camera(scratch_, 0);
    start(camera);
    camera.cycle();
    const uint32_t before = camera.address(camera.last().index);
    camera.cycle();
    const uint32_t after = camera.address(camera.last().index);
    EXPECT_EQ(std::memcmp(scratch_.memory().at(before, board::kPictureBytes),
                          scratch_.memory().at(after, board::kPictureBytes), board::kPictureBytes),
              0);
}

}  // namespace
