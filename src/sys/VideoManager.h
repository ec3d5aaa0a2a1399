#pragma once

#include <sys/types.h>

#include <array>
#include <cstddef>

#include "drivers/cam_v4l.h"
#include "drivers/mx_fb.h"
#include "drivers/mx_ipu.h"
#include "drivers/mx_vpu.h"
#include "lib/AviWriter.h"
#include "lib/YuvText.h"
#include "lib/buffer.h"
#include "sys/PlayerProcess.h"
#include "sys/SysData.h"
#include "types/SharedWord.h"

/// The picture path: cameras, overlay, recording frame, encoder, recording file and the player for stored
/// videos.
///
/// Threads:  construction, init(), run(), restartCameras() and destruction: the main thread.
///           reqWindowChange(), setCameraDisplay(), setRecordState(), playVideo(), videoPlaybackStatus() and
///           stopVideoPlayback(): the system manager's thread, at any time; what they ask for is done by the
///           next pass of run().
/// Lifetime: the devices that init() opened stay open until destruction, also after a failed init(), which is
///           not repeated. Destruction must not overlap a call of the other thread.
/// Errors:   false after one line in the log that says what could not be done.
/// Units:    pixels, bytes, physical addresses; cameras are numbered 1 to 4 outside and indexed 0 to 3
///           inside.
class VideoManager {
public:
    enum WINDOW_STATE : u_int8_t {
        WS_IDLE = 0,        ///< no request
        WS_CLOSED = 1,      ///< no overlay
        WS_LEFTTOP = 2,     ///< camera overlay, upper left
        WS_CENTER = 3,      ///< camera overlay, centred
        WS_CENTER_VID = 4,  ///< overlay for the player, centred
    };

    explicit VideoManager(SysData* sysData) : sys(sysData) {}
    VideoManager(const VideoManager&) = delete;
    VideoManager(VideoManager&&) = delete;
    VideoManager& operator=(const VideoManager&) = delete;
    VideoManager& operator=(VideoManager&&) = delete;

    /// Asks a running player to end and gives it a moment; one that takes longer is left to itself. Then the
    /// devices go.
    ~VideoManager();

    /// Builds the pipeline for the processor in `SysData`. A recording file that cannot be opened is no
    /// failure: the next start request tries again.
    bool init();

    /// One pass of the frame loop: requests first, then one frame of every camera. Blocks until the cameras
    /// have one. Before init() has succeeded a pass only discards record requests and pauses.
    bool run();

    /// The overlay to have from the next pass on. A later request before that replaces this one.
    void reqWindowChange(WINDOW_STATE window) { reqWindowState = window; }

    void setCameraDisplay(bool on) { canDisplay = on; }

    /// Starts or stops recording; does nothing while the recording directory is not mounted. A stop waits,
    /// for up to one pass, until the file is closed; that wait is a cancellation point and needs a running
    /// frame loop.
    void setRecordState(bool on);

    /// Stops and restarts the capture streams. Between two passes only.
    void restartCameras();

    /// Starts the player on the stored video that `SysData` names, unless one runs. A missing file shows as a
    /// player that ends at once.
    void playVideo();

    /// Notices the player's end: `playbackDone`, and a pending overlay request is dropped.
    void videoPlaybackStatus();

    /// Asks the player to end; videoPlaybackStatus() sees it happen.
    void stopVideoPlayback();

private:
    static constexpr std::size_t kMaxChannels = SysData::kChannels;

    /// What the controller wants to see, read once a pass so that all steps agree.
    struct Selection {
        std::array<u_int8_t, 2> shown{};     ///< cameras in the panes, 0 none; the second one means two panes
        std::array<u_int8_t, 2> captured{};  ///< cameras that a board with two capture devices delivers
    };

    // The steps of init().
    bool setupIpu();
    bool setupDisplay();
    bool setupChannels();
    bool setupClock();
    void openFirstRecording();
    bool setupEncoder();
    bool allocateRecordFrame();
    bool startChannels();
    void describeDisplayCopies();
    void describeRecordCopies();

    // The steps of run().
    void applyWindowRequest();
    bool idle();
    void applyRecordRequests();
    void readSelection();
    void followDisplayMode();
    void followChannels();
    void updateGeometry();
    bool dequeueAll();
    bool giveBackFrames();
    bool composeRecordFrame();
    bool composeDisplayPage();
    bool queueAll();
    bool finishPass();

    bool openRecordingFile();
    void dismissOverlay(bool close);
    void switchInputs();
    bool dualDisplay() const { return selection_.shown[1] != 0; }
    int paneHeight(int paneWidth) const;
    bool copyToRecordFrame(std::size_t channel);
    std::size_t deviceOf(std::size_t pane) const;
    bool hasCamera(std::size_t pane) const { return deviceOf(pane) < channelsInUse_; }
    bool copyToPane(std::size_t pane);
    bool flipPage();
    bool encodeFrame();

    /// Logs, and is false: the result of the step that failed.
    bool report(const char* text, logger::LOG_TYPE level = logger::LOG_WARNING) const;

    SysData* sys;
    mx_fb fb;
    mx_ipu ipu;
    std::array<cam_v4l, kMaxChannels> ch;
    mx_vpu vpu;
    AviWriter writer;
    YuvText yuv_writer;
    buffer recordBuffer;
    mx_fb::DISP_INFO fb_info = {};
    std::array<cam_v4l::CAM_INFO, kMaxChannels> ch_info = {};
    mx_ipu::IPU_COPY ipu_copy_main = {};
    mx_ipu::IPU_COPY ipu_copy_vpu = {};
    /// A tile for each camera, then the primary and the secondary pane.
    std::array<ipu_task, kMaxChannels + 2> task = {};
    PlayerProcess player;  ///< of the system manager's thread
    YuvText::YUV_TEXT ovly_clk = {};
    bool dualIPUs = false;   ///< two IPUs: every camera has a capture device of its own
    bool firstFrame = true;  ///< the next pass neither flips nor encodes
    SharedWord<WINDOW_STATE> reqWindowState{WS_IDLE};  ///< pending overlay request
    SharedWord<bool> canRecord{true};
    SharedWord<bool> canDisplay{false};
    bool camerasInited = false;
    std::array<u_int8_t, 2> cachedChannels = {};  ///< Selection::captured in effect
    bool dualDisplayMode = false;
    bool okToRecord = true;  ///< the writer has an open file
    SharedWord<bool> stopRecording{false};
    SharedWord<bool> startRecording{false};
    unsigned int loopCtr = 0;  ///< frames since the clock was drawn

    std::size_t channelsInUse_ = 0;
    VideoWriter::VIDEO_FORMAT recordFormat_ = {};
    Selection selection_;       ///< this pass's
    bool recordPass_ = false;   ///< this pass has handed a frame to the encoder
    bool displayPass_ = false;  ///< this pass shows a page
};
