#include "sys/VideoManager.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <string>
#include <thread>

namespace {

/// A video manager whose pipeline was never built: what it does without cameras, and the player.
class WithoutCameras : public testing::Test {
protected:
    /// Whether `condition` came true, asked again after each of `step`.
    static bool until(const std::function<bool()>& condition, const std::function<void()>& step)
    {
        const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        while (!condition()) {
            if (std::chrono::steady_clock::now() > limit) {
                return false;
            }
            step();
        }
        return true;
    }

    bool playerEnds()
    {
        return until([&] { return sys_.media.video.playbackDone.load(); },
                     [&] {
                         std::this_thread::yield();
                         vmgr_.videoPlaybackStatus();
                     });
    }

    SysData sys_;
    VideoManager vmgr_{&sys_};
};

TEST_F(WithoutCameras, LeavesACallerWaitingForAFileToBeClosed)
{
    sys_.media.cam.canRecord = true;
    std::atomic<bool> released{false};
    std::thread caller([&] {
        vmgr_.setRecordState(false);
        released = true;
    });
    EXPECT_TRUE(until([&] { return released.load(); }, [&] { EXPECT_TRUE(vmgr_.run()); }));
    caller.join();
}

TEST_F(WithoutCameras, WaitsForAFileThatIsNeverOpenWithoutAMount)
{
    vmgr_.setRecordState(false);  // nobody runs the loop: this would not return
    EXPECT_FALSE(sys_.media.cam.isRecording);
}

TEST_F(WithoutCameras, NeverReportsTheEndOfAPlayerThatCannotPlay)
{
    sys_.core.cfg.playbackPath = "/nonexistent/";
    sys_.media.video.playback = "missing.avi";
    vmgr_.playVideo();
    EXPECT_TRUE(playerEnds());

    sys_.media.video.playbackDone = false;
    vmgr_.videoPlaybackStatus();
    EXPECT_FALSE(sys_.media.video.playbackDone) << "one end was reported twice";
}

TEST_F(WithoutCameras, WaitsForEverForAPlayerThatSomeoneElseReaped)
{
    sys_.core.cfg.playbackPath = "/nonexistent/";
    vmgr_.playVideo();
    ASSERT_GT(waitpid(-1, nullptr, 0), 0);
    vmgr_.videoPlaybackStatus();
    EXPECT_TRUE(sys_.media.video.playbackDone);
}

TEST_F(WithoutCameras, TakesNoPlayerForOneThatEnded)
{
    vmgr_.stopVideoPlayback();
    vmgr_.videoPlaybackStatus();
    EXPECT_FALSE(sys_.media.video.playbackDone);
}

}  // namespace
