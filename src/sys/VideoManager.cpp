#include "sys/VideoManager.h"

#include <linux/videodev2.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "types/CancelWindow.h"

namespace {

constexpr int kPixelFormat = static_cast<int>(V4L2_PIX_FMT_NV12);
constexpr unsigned char kBlackLuma = 0;
constexpr unsigned char kBlackChroma = 128;

constexpr int kOverlayWidth = 800;
constexpr int kOverlayHeight = 500;
constexpr int kPaneWidth = 400;  // of two panes side by side
constexpr int kInitialPosition = 50;

constexpr int kCameraWidth = 720;
constexpr int kCameraHeight = 480;
constexpr int kClockBand = 30;  // lines above the first row of tiles
constexpr int kRecordWidth = 2 * kCameraWidth;

constexpr unsigned int kFramesPerSecond = 30;
constexpr unsigned int kMaxBytesPerSecond = 10000000;
constexpr unsigned int kGroupOfPictures = 300;
constexpr unsigned int kQuantiser = 26;  // in use when the bitrate is 0

constexpr unsigned int kClockGlyph = 25;
constexpr unsigned int kClockCharacters = 20;
constexpr const char* kClockFont = "/usr/share/fonts/Ubuntu-C.ttf";
constexpr unsigned int kClockInterval = kFramesPerSecond;  // frames

constexpr useconds_t kIdlePauseUs = 200000;
constexpr useconds_t kSwitchPauseUs = 50000;  // the decoder settles on the new input
constexpr useconds_t kStopPollUs = 10000;

struct Channel {
    const char* device;
    int tileX, tileY;  // in the recording frame
    const char* setupFailure;
    const char* startFailure;
    const char* dequeueFailure;
    const char* copyFailure;
    const char* queueFailure;
};

constexpr std::array<Channel, SysData::kChannels> kChannels{{
    {"/dev/video0", 0, kClockBand, "(VideoManager): Could not setup /dev/video0",
     "(VideoManager): Could not start camera channel 1",
     "(VideoManager): Could not dequeue buffer from camera channel #1",
     "(VideoManager): Could not copy channel #1 to record buffer",
     "(VideoManager): Could not queue buffer from camera channel #1"},
    {"/dev/video1", kCameraWidth, kClockBand, "(VideoManager): Could not setup /dev/video1",
     "(VideoManager): Could not start camera channel 2",
     "(VideoManager): Could not dequeue buffer from camera channel #2",
     "(VideoManager): Could not copy channel #2 to record buffer",
     "(VideoManager): Could not queue buffer from camera channel #2"},
    {"/dev/video2", 0, kClockBand + kCameraHeight, "(VideoManager): Could not setup /dev/video2",
     "(VideoManager): Could not start camera channel 3",
     "(VideoManager): Could not dequeue buffer from camera channel #3",
     "(VideoManager): Could not copy channel #3 to record buffer",
     "(VideoManager): Could not queue buffer from camera channel #3"},
    {"/dev/video3", kCameraWidth, kClockBand + kCameraHeight, "(VideoManager): Could not setup /dev/video3",
     "(VideoManager): Could not start camera channel 4",
     "(VideoManager): Could not dequeue buffer from camera channel #4",
     "(VideoManager): Could not copy channel #4 to record buffer",
     "(VideoManager): Could not queue buffer from camera channel #4"},
}};

constexpr std::size_t kSingleIpuChannels = 2;
/// Index of the primary pane's task; the secondary's follows.
constexpr std::size_t kPaneTask = SysData::kChannels;

enum class Overlay { None, Camera, Player };

struct WindowPlan {
    bool closeFirst;  // else the overlay is opened anew over its old mapping
    Overlay open;
    int x, y;
};

/// By VideoManager::WINDOW_STATE.
constexpr std::array<WindowPlan, 5> kWindowPlans{{
    {false, Overlay::None, 0, 0},       // WS_IDLE
    {true, Overlay::None, 0, 0},        // WS_CLOSED
    {false, Overlay::Camera, 15, 75},   // WS_LEFTTOP
    {false, Overlay::Camera, 115, 40},  // WS_CENTER
    {true, Overlay::Player, 115, 40},   // WS_CENTER_VID
}};

bool openOverlay(mx_fb& fb, const WindowPlan& plan)
{
    switch (plan.open) {
        case Overlay::Camera:
            return fb.cameraOverlay(plan.x, plan.y);
        case Overlay::Player:
            return fb.simpleOverlay(plan.x, plan.y);
        case Overlay::None:
            break;
    }
    return true;
}

}  // namespace

VideoManager::~VideoManager()
{
    player.end();
    if (recordBuffer.start != nullptr) {
        ipu.free(recordBuffer);  // nothing to be done about a failure: the device is closed next
    }
}

bool VideoManager::init()
{
    dualIPUs = sys->core.cpu_type == SysData::IMX6_DUAL_QUAD;
    channelsInUse_ = dualIPUs ? kMaxChannels : kSingleIpuChannels;

    const int tileRows = static_cast<int>(channelsInUse_) / 2;
    recordFormat_.fps = kFramesPerSecond;
    recordFormat_.maxBps = kMaxBytesPerSecond;
    recordFormat_.width = kRecordWidth;
    recordFormat_.height = static_cast<unsigned int>(kClockBand + tileRows * kCameraHeight);
    recordFormat_.fmt = VideoWriter::H264;

    if (!setupIpu() || !setupDisplay() || !setupChannels() || !setupClock()) {
        return false;
    }
    openFirstRecording();
    if (!setupEncoder() || !allocateRecordFrame() || !startChannels()) {
        return false;
    }
    describeDisplayCopies();
    describeRecordCopies();
    camerasInited = true;
    return true;
}

bool VideoManager::setupIpu()
{
    constexpr u_int8_t kLowMotion = 0;  // de-interlaces from this frame and the one before
    return ipu.setup("/dev/mxc_ipu", true, kLowMotion, false) ||
           report("(VideoManager): Could not setup IPU", logger::LOG_ERROR);
}

bool VideoManager::setupDisplay()
{
    fb_info.main.x = kInitialPosition;
    fb_info.main.y = kInitialPosition;
    fb_info.main.width = kOverlayWidth;
    fb_info.main.height = kOverlayHeight;
    fb_info.format = kPixelFormat;
    return fb.setup("/dev/fb1", "/dev/fb0", fb_info) ||
           report("(VideoManager): Could not setup framebuffer", logger::LOG_ERROR);
}

bool VideoManager::setupChannels()
{
    for (std::size_t i = 0; i < channelsInUse_; ++i) {
        ch_info[i].format = kPixelFormat;
        ch_info[i].memType = V4L2_MEMORY_MMAP;  // the channel decides for itself
        ch_info[i].ipu = &ipu;
        ch_info[i].width = kCameraWidth;
        ch_info[i].height = kCameraHeight;
        if (!ch[i].setup(kChannels[i].device, ch_info[i])) {
            return report(kChannels[i].setupFailure, logger::LOG_ERROR);
        }
    }
    return true;
}

bool VideoManager::setupClock()
{
    return yuv_writer.setup(kClockGlyph, kClockFont) ||
           report("(VideoManager:): Could not setup YUV image writer", logger::LOG_WARNING);
}

void VideoManager::openFirstRecording()
{
    if (sys->media.cam.canRecord && !openRecordingFile()) {
        okToRecord = false;
    }
}

bool VideoManager::openRecordingFile()
{
    return writer.start(sys->core.cfg.recordingFile(), recordFormat_) ||
           report("(VideoManager): Could not start writer", logger::LOG_WARNING);
}

bool VideoManager::setupEncoder()
{
    mx_vpu::VPU_CFG config = {};
    config.width = recordFormat_.width;
    config.height = recordFormat_.height;
    config.mapType = 0;  // linear
    config.gop = kGroupOfPictures;
    config.bitrate = sys->media.cam.cfgBitrate;
    config.quality = kQuantiser;
    std::printf("VPU BITRATE %d\n", static_cast<int>(config.bitrate));
    return vpu.setup(config, &writer) || report("(VideoManager): Could not setup VPU", logger::LOG_ERROR);
}

bool VideoManager::allocateRecordFrame()
{
    const std::size_t lumaBytes = std::size_t{recordFormat_.width} * recordFormat_.height;
    const std::size_t chromaBytes = lumaBytes / 2;
    if (!ipu.alloc(recordBuffer, static_cast<int>(lumaBytes + chromaBytes))) {
        return report("(VideoManager): Could not allocate recording buffer", logger::LOG_ERROR);
    }
    auto* const picture = static_cast<unsigned char*>(recordBuffer.start);
    std::memset(picture, kBlackLuma, lumaBytes);
    std::memset(picture + lumaBytes, kBlackChroma, chromaBytes);

    ovly_clk.dest.buffer = picture;
    ovly_clk.dest.width = recordFormat_.width;
    ovly_clk.dest.height = recordFormat_.height;
    ovly_clk.characters = kClockCharacters;
    ovly_clk.type = YuvText::CLOCKOVERLAY;
    yuv_writer.init(ovly_clk);
    return true;
}

bool VideoManager::startChannels()
{
    for (std::size_t i = 0; i < channelsInUse_; ++i) {
        if (!ch[i].start()) {
            return report(kChannels[i].startFailure, logger::LOG_ERROR);
        }
    }
    return true;
}

void VideoManager::describeDisplayCopies()
{
    ipu_copy_main.src.width = ch_info[0].width;
    ipu_copy_main.src.height = ch_info[0].height;
    ipu_copy_main.src.format = ch_info[0].format;
    ipu_copy_main.dest.maxWidth = fb_info.main.width;
    ipu_copy_main.dest.maxHeight = fb_info.main.height;
    ipu_copy_main.dest.width = kPaneWidth;
    ipu_copy_main.dest.height = kPaneWidth;  // until updateGeometry() knows better
    ipu_copy_main.dest.format = fb_info.format;
    ipu_copy_main.dest.y = 0;
    for (const int pane : {0, 1}) {
        ipu_copy_main.dest.x = pane * kPaneWidth;
        ipu.setup_copy(task[kPaneTask + static_cast<std::size_t>(pane)], ipu_copy_main, 0, 0, 0);
    }
}

void VideoManager::describeRecordCopies()
{
    ipu_copy_vpu.src = ipu_copy_main.src;
    ipu_copy_vpu.dest.maxWidth = static_cast<int>(recordFormat_.width);
    ipu_copy_vpu.dest.maxHeight = static_cast<int>(recordFormat_.height);
    ipu_copy_vpu.dest.width = kCameraWidth;
    ipu_copy_vpu.dest.height = kCameraHeight;
    ipu_copy_vpu.dest.format = fb_info.format;
    for (std::size_t i = 0; i < channelsInUse_; ++i) {
        ipu_copy_vpu.dest.x = kChannels[i].tileX;
        ipu_copy_vpu.dest.y = kChannels[i].tileY;
        ipu.setup_copy(task[i], ipu_copy_vpu, ch[i].getBufferOffset(), ch[i].getLastBufferOffset(),
                       recordBuffer.offset);
    }
}

bool VideoManager::run()
{
    applyWindowRequest();
    if (!camerasInited) {
        return idle();
    }
    applyRecordRequests();
    readSelection();
    followDisplayMode();
    followChannels();
    updateGeometry();
    return dequeueAll() && composeRecordFrame() && composeDisplayPage() && queueAll() && finishPass();
}

void VideoManager::applyWindowRequest()
{
    // Taken before it is carried out: a request that comes meanwhile is the next pass's, not lost.
    const WINDOW_STATE request = reqWindowState.exchange(WS_IDLE);
    if (request == WS_IDLE) {
        return;
    }
    const WindowPlan& plan = kWindowPlans[request];
    if (fb.isOverlayOpen()) {
        dismissOverlay(plan.closeFirst);
    }
    if (!openOverlay(fb, plan)) {
        report("(VideoManager): Could not open overlay");
    }
}

void VideoManager::dismissOverlay(bool close)
{
    if (!fb.hideOverlay()) {
        report("(VideoManager): Could not close overlay");
    }
    fb.clearBuffers();
    if (close) {
        fb.closeOverlay();  // a mapping that stays is the driver's to keep; the overlay is hidden either way
    }
}

bool VideoManager::idle()
{
    stopRecording = false;  // releases a caller that waits in setRecordState()
    startRecording = false;
    usleep(kIdlePauseUs);
    return true;
}

void VideoManager::applyRecordRequests()
{
    if (stopRecording) {
        writer.stop();
        okToRecord = false;
        stopRecording = false;
    }
    if (startRecording) {
        if (!okToRecord) {
            vpu.restart();
            okToRecord = openRecordingFile();
        }
        startRecording = false;
    }
}

void VideoManager::readSelection()
{
    const auto& channels = sys->media.cam.channels;
    for (std::size_t pane = 0; pane < selection_.shown.size(); ++pane) {
        const u_int8_t shown = channels[pane];
        selection_.shown[pane] = shown;
        selection_.captured[pane] = shown != 0 ? shown : channels[pane + selection_.shown.size()].load();
    }
}

void VideoManager::followDisplayMode()
{
    if (dualDisplay() != dualDisplayMode) {
        fb.clearBuffers();
        firstFrame = true;
    }
    dualDisplayMode = dualDisplay();
}

void VideoManager::followChannels()
{
    if (selection_.captured == cachedChannels) {
        return;
    }
    if (!dualIPUs) {
        switchInputs();
    }
    cachedChannels = selection_.captured;
}

void VideoManager::switchInputs()
{
    // Results are not looked at: a stream that did not restart shows in this pass's dequeue, and an input
    // that the driver refuses leaves the one before.
    ch[0].off();
    ch[1].off();
    usleep(kSwitchPauseUs);
    ch[0].changeChannels(selection_.captured[0], selection_.captured[1]);
    usleep(kSwitchPauseUs);
    ch[0].on();
    ch[1].on();
    firstFrame = true;
}

void VideoManager::updateGeometry()
{
    auto& pane = ipu_copy_main.dest;
    pane.width = dualDisplay() ? kPaneWidth : kOverlayWidth;
    pane.height = paneHeight(pane.width);
    pane.x = 0;
    pane.y = (fb_info.main.height - pane.height) / 2;
    ipu.change_copy(task[kPaneTask], ipu_copy_main);
    if (dualDisplay()) {
        pane.x += kPaneWidth;
        ipu.change_copy(task[kPaneTask + 1], ipu_copy_main);
    }
}

/// The camera's height at this width, but no more than the overlay has.
int VideoManager::paneHeight(int paneWidth) const
{
    const int limit = ipu_copy_main.dest.maxHeight;
    const float height = static_cast<float>(paneWidth) / static_cast<float>(ch_info[0].width) *
                         static_cast<float>(ch_info[0].height);
    // Compared before the conversion, and so that a camera without a size takes the limit too.
    return height < static_cast<float>(limit) ? static_cast<int>(height) : limit;
}

bool VideoManager::dequeueAll()
{
    if (!giveBackFrames()) {
        return false;
    }
    for (std::size_t i = 0; i < channelsInUse_; ++i) {
        if (!ch[i].dequeue_buffer()) {
            return report(kChannels[i].dequeueFailure);
        }
    }
    return true;
}

/// A pass that failed between dequeue and queue has left frames with us. Kept, they would be missing until a
/// camera has no buffer left to deliver into; so a pass that does not get rid of one takes no other.
bool VideoManager::giveBackFrames()
{
    for (std::size_t i = 0; i < channelsInUse_; ++i) {
        if (ch[i].holdsFrame() && !ch[i].queue_buffer()) {
            return report(kChannels[i].queueFailure);
        }
    }
    return true;
}

bool VideoManager::composeRecordFrame()
{
    recordPass_ = sys->media.cam.canRecord && canRecord;
    if (!recordPass_) {
        return true;
    }
    for (std::size_t i = 0; i < channelsInUse_; ++i) {
        // With a device of its own, a faulty camera's tile keeps its last picture.
        const bool faulty = dualIPUs && sys->media.cam.channelStatus[i] != 0;
        if (!faulty && !copyToRecordFrame(i)) {
            return report(kChannels[i].copyFailure);
        }
    }
    if (loopCtr == 0) {
        yuv_writer.draw(ovly_clk);  // a frame with half a clock is still worth recording
    }
    loopCtr = (loopCtr + 1) % kClockInterval;
    vpu.write_buffer(0, static_cast<int>(recordBuffer.offset));
    return true;
}

bool VideoManager::copyToRecordFrame(std::size_t channel)
{
    ipu.change_buffers(task[channel], ch[channel].getBufferOffset(), ch[channel].getLastBufferOffset(),
                       recordBuffer.offset);
    return ipu.run(task[channel]);
}

bool VideoManager::composeDisplayPage()
{
    // The player's overlay stays when a transfer follows a playback: its surface is not the cameras'.
    // An overlay that could not be opened has no pages to copy to.
    displayPass_ = selection_.shown[0] != 0 && hasCamera(0) && canDisplay && !fb.isLentOut() &&
                   fb.getBufferOffset() != 0;
    if (!displayPass_ || firstFrame) {
        return true;
    }
    return (copyToPane(0) && (!dualDisplay() || copyToPane(1))) ||
           report("(VideoManager): Could not copy camera channel to display buffer");
}

/// With two IPUs every camera has its device; else the first two devices deliver what was selected.
std::size_t VideoManager::deviceOf(std::size_t pane) const
{
    return dualIPUs ? selection_.shown[pane] - std::size_t{1} : pane;
}

bool VideoManager::copyToPane(std::size_t pane)
{
    if (!hasCamera(pane)) {
        return true;  // the pages keep in it what they had
    }
    const std::size_t source = deviceOf(pane);
    ipu_task& copy = task[kPaneTask + pane];
    ipu.change_buffers(copy, ch[source].getBufferOffset(), ch[source].getLastBufferOffset(),
                       fb.getBufferOffset());
    return ipu.run(copy);
}

bool VideoManager::queueAll()
{
    for (std::size_t i = 0; i < channelsInUse_; ++i) {
        if (!ch[i].queue_buffer()) {
            return report(kChannels[i].queueFailure);
        }
    }
    return true;
}

bool VideoManager::finishPass()
{
    if (firstFrame) {
        firstFrame = false;
        return true;
    }
    return flipPage() && encodeFrame();
}

bool VideoManager::flipPage()
{
    return !displayPass_ || fb.process() || report("(VideoManager): Could not process framebuffer");
}

bool VideoManager::encodeFrame()
{
    const bool recording = recordPass_ && okToRecord;
    sys->media.cam.isRecording = recording;
    if (recording && !vpu.process()) {
        std::puts("Could not encode VPU buffer");
        vpu.restart();  // the frames that build on the lost one are of no use: go on with one that needs none
        return report("(VideoManager): Could not process VPU");
    }
    return true;
}

bool VideoManager::report(const char* text, logger::LOG_TYPE level) const
{
    sys->log_item(text, level);
    return false;
}

void VideoManager::setRecordState(bool on)
{
    if (!sys->media.cam.canRecord) {
        return;
    }
    if (on) {
        startRecording = true;
        canRecord = true;
        return;
    }
    stopRecording = true;
    while (stopRecording) {
        const CancelWindow window;  // the frame loop may have ended
        usleep(kStopPollUs);
    }
    canRecord = false;
}

void VideoManager::restartCameras()
{
    for (std::size_t i = 0; i < channelsInUse_; ++i) {
        ch[i].off();
    }
    usleep(kSwitchPauseUs);
    for (std::size_t i = 0; i < channelsInUse_; ++i) {
        ch[i].on();
    }
    firstFrame = true;
}

void VideoManager::playVideo()
{
    canDisplay = false;
    if (!player.isThere() && !player.start(sys->core.cfg.playbackPath + sys->media.video.playback)) {
        report("(VideoManager): Unable to create process for video playback", logger::LOG_ERROR);
    }
}

void VideoManager::videoPlaybackStatus()
{
    if (player.collect()) {
        sys->media.video.playbackDone = true;
        reqWindowState = WS_IDLE;
    }
}

void VideoManager::stopVideoPlayback()
{
    player.interrupt();
}
