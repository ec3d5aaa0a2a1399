// Where a camera's pictures come from: a pipe, a clip, nothing.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
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

class CameraSources : public support::CaptureTest {
protected:
    const uint8_t* picture(const Camera& camera)
    {
        return scratch_.memory().at(camera.address(camera.last().index), board::kPictureBytes);
    }

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

TEST_F(CameraSources, APipeFallsBehindItsFilmWhenFramesAreDropped)
{
    ASSERT_EQ(::mkfifo(scratch_.file("camera1").c_str(), S_IRUSR | S_IWUSR), 0);
    const int end = ::open(scratch_.file("camera1").c_str(), O_RDWR | O_CLOEXEC);  // as the launcher holds it
    std::atomic<bool> enough{false};
    std::atomic<bool> ended{false};
    std::thread decoder([&] {
        for (uint8_t value = 0; !enough; ++value) {
            const std::vector<uint8_t> bytes(board::kPictureBytes, value);
            for (size_t done = 0; done < bytes.size();) {
                const ssize_t written = ::write(end, bytes.data() + done, bytes.size() - done);
                done += static_cast<size_t>(std::max<ssize_t>(written, 0));
            }
        }
        ended = true;
    });
    std::vector<uint8_t> shown(board::kPictureBytes);
    board::PipeSource source(scratch_.board(), 0);
    uint64_t frame = 1;
    EXPECT_TRUE(source.draw(frame, shown.data()));
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
    ::close(end);
}

TEST_F(CameraSources, AClipLosesAPictureOrItsPlaceWhenItBeginsAgain)
{
    writeClip({50, 120, 200}, 1000);
    Camera camera(scratch_, 0);
    start(camera);
    for (const uint8_t value : std::vector<uint8_t>{50, 120, 200, 50, 120}) {
        camera.cycle();
        EXPECT_EQ(std::count(picture(camera), picture(camera) + board::kPictureBytes, value),
                  ptrdiff_t{board::kPictureBytes});
    }
}

TEST_F(CameraSources, AClipThatHoldsNoWholePictureIsReadBeyondItsEnd)
{
    writeClip({}, board::kPictureBytes - 1);
    Camera camera(scratch_, 0);
    start(camera);
    EXPECT_EQ(camera.dequeue(), -EIO);
}

TEST_F(CameraSources, ACameraWithoutASignalIsShownAsALivePicture)
{
    counters(0).kind = board::SourceKind::kNone;
    Camera camera(scratch_, 0);
    start(camera);
    camera.cycle();
    const uint8_t* const before = picture(camera);
    camera.cycle();
    EXPECT_EQ(std::memcmp(before, picture(camera), board::kPictureBytes), 0);
}

}  // namespace
