#include "sys/VideoManager.h"

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <atomic>
#include <thread>

#include "Wait.h"

namespace {

/// A video manager whose pipeline was never built: what it does without cameras, and the player.
class WithoutCameras : public testing::Test {
protected:
    WithoutCameras() { sys_.core.cfg.playbackPath = "/nonexistent/"; }

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
    EXPECT_TRUE(support::waitUntil([&] {
        EXPECT_TRUE(vmgr_.run());
        return released.load();
    }));
    caller.join();
}

TEST_F(WithoutCameras, WaitsForAFileThatIsNeverOpenWithoutAMount)
{
    vmgr_.setRecordState(false);  // nobody runs the loop: this would not return
    EXPECT_FALSE(sys_.media.cam.isRecording);
}

TEST_F(WithoutCameras, ReportsAnEndWithoutAPlayerOrTwiceOrNever)
{
    vmgr_.stopVideoPlayback();
    vmgr_.videoPlaybackStatus();
    EXPECT_FALSE(sys_.media.video.playbackDone);

    sys_.media.video.playback = "missing.avi";
    vmgr_.playVideo();
    EXPECT_TRUE(support::waitUntil([&] {
        vmgr_.videoPlaybackStatus();
        return sys_.media.video.playbackDone.load();
    }));
    sys_.media.video.playbackDone = false;
    vmgr_.videoPlaybackStatus();
    EXPECT_FALSE(sys_.media.video.playbackDone);
}

TEST_F(WithoutCameras, WaitsForEverForAPlayerThatSomeoneElseReaped)
{
    vmgr_.playVideo();
    ASSERT_GT(::waitpid(-1, nullptr, 0), 0);
    vmgr_.videoPlaybackStatus();
    EXPECT_TRUE(sys_.media.video.playbackDone);
}

}  // namespace
