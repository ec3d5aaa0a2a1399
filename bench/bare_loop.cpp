// The calls of a recording pass and nothing else, in a loop, on a virtual board: what velcamd's own pass is
// measured against. The devices are set up by velcamd's drivers; the loop itself uses none of its code.
//
//   bare_loop PANES SECONDS [FILE]     PANES: cameras displayed, 0 to 2
// prints the frames and the processor time of the loop in nanoseconds.

#include <fcntl.h>
#include <linux/videodev2.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/uio.h>
#include <unistd.h>
#include <vpu_lib.h>

#include <array>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <vector>

#include "drivers/cam_v4l.h"
#include "drivers/ipu.h"
#include "drivers/mx_fb.h"
#include "drivers/mx_ipu.h"
#include "drivers/mx_vpu.h"

extern "C" {
RetCode __real_vpu_EncOpen(EncHandle* handle, EncOpenParam* parameters);
RetCode __wrap_vpu_EncOpen(EncHandle* handle, EncOpenParam* parameters);
}

namespace {

constexpr int kWidth = 1440, kTileWidth = 720, kTileHeight = 480, kBand = 30;
constexpr int kQuadHeight = 990, kDualLiteHeight = 510;
constexpr int kOverlayWidth = 800, kOverlayHeight = 500;
constexpr unsigned kQuadRevision = 0x63;
constexpr unsigned kRevisionShift = 12;
constexpr size_t kBitstreamBytes = 0x400000;

EncHandle encoder = nullptr;
volatile std::sig_atomic_t ended = 0;

/// What the loop needs of the devices.
struct Devices {
    std::vector<int> cameras;
    int ipu = -1, overlay = -1, file = -1;
    ipu_task tile = {}, pane = {};
    fb_var_screeninfo mode = {};
    FrameBuffer source = {};
    EncParam picture = {};
    char* bitstream = nullptr;
};

[[noreturn]] void fail(const char* what)
{
    std::fprintf(stderr, "bare_loop: %s failed: run it with 'vboard run --devices idle --fps max'\n", what);
    std::exit(1);
}

void require(bool done, const char* what)
{
    if (!done) {
        fail(what);
    }
}

long nanoseconds(clockid_t clock)
{
    timespec now = {};
    clock_gettime(clock, &now);
    constexpr long kNanosecondsASecond = 1000000000;
    return now.tv_sec * kNanosecondsASecond + now.tv_nsec;
}

/// The drivers, which hold the devices in the state that a pass finds.
class Panel {
public:
    explicit Panel(const char* recording)
    {
        quad_ = system_rev >> kRevisionShift == kQuadRevision;
        require(ipu_.setup("/dev/mxc_ipu", true, 0, false), "the IPU");
        display_.main = {0, 0, kOverlayWidth, kOverlayHeight};
        display_.format = static_cast<int>(V4L2_PIX_FMT_NV12);
        require(overlay_.setup("/dev/fb1", "/dev/fb0", display_) && overlay_.cameraOverlay(0, 0),
                "the overlay");
        setUpEncoder();
        setUpCameras();
        describeTasks();
        devices_.file = open(recording, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666);
        require(devices_.file >= 0, "the recording");
    }

    ~Panel() { ipu_.free(frame_); }
    Panel(const Panel&) = delete;
    Panel& operator=(const Panel&) = delete;

    Devices& devices() { return devices_; }
    size_t channels() const { return quad_ ? cameras_.size() : cameras_.size() / 2; }

private:
    int height() const { return quad_ ? kQuadHeight : kDualLiteHeight; }

    void setUpEncoder()
    {
        mx_vpu::VPU_CFG config = {};
        config.width = kWidth;
        config.height = static_cast<unsigned>(height());
        config.bitrate = 2000;
        config.gop = 300;
        require(encoderDriver_.setup(config, nullptr), "the encoder");
        require(ipu_.alloc(frame_, kWidth * height() * 3 / 2), "the recording frame");
        devices_.source.strideY = kWidth;
        devices_.source.strideC = kWidth / 2;
        devices_.source.bufY = frame_.offset;
        devices_.source.bufCb = frame_.offset + static_cast<size_t>(kWidth) * static_cast<size_t>(height());
        devices_.source.bufCr = devices_.source.bufCb;
        devices_.picture.sourceFrame = &devices_.source;
        devices_.picture.enableAutoSkip = 1;
    }

    void setUpCameras()
    {
        static constexpr std::array kNodes{"/dev/video0", "/dev/video1", "/dev/video2", "/dev/video3"};
        info_.format = static_cast<int>(V4L2_PIX_FMT_NV12);
        info_.memType = V4L2_MEMORY_MMAP;
        info_.ipu = &ipu_;
        for (size_t i = 0; i < channels(); ++i) {
            require(cameras_[i].setup(kNodes[i], info_) && cameras_[i].start(), "a camera");
            devices_.cameras.push_back(open(kNodes[i], O_RDWR | O_CLOEXEC));
        }
        devices_.ipu = open("/dev/mxc_ipu", O_RDWR | O_CLOEXEC);
        devices_.overlay = open("/dev/fb1", O_RDWR | O_CLOEXEC);
        require(ioctl(devices_.overlay, FBIOGET_VSCREENINFO, &devices_.mode) == 0, "the overlay's mode");
    }

    void describeTasks()
    {
        mx_ipu::IPU_COPY copy = {};
        copy.src = {kTileWidth, kTileHeight, static_cast<int>(V4L2_PIX_FMT_NV12)};
        copy.dest.maxWidth = kWidth;
        copy.dest.maxHeight = height();
        copy.dest.width = kTileWidth;
        copy.dest.height = kTileHeight;
        copy.dest.format = static_cast<int>(V4L2_PIX_FMT_NV12);
        copy.dest.y = kBand;
        const size_t camera = cameras_[0].getBufferOffset();
        ipu_.setup_copy(devices_.tile, copy, camera, cameras_[0].getLastBufferOffset(), frame_.offset);
        copy.dest.maxWidth = kOverlayWidth;
        copy.dest.maxHeight = kOverlayHeight;
        copy.dest.width = kOverlayWidth / 2;
        copy.dest.height = kOverlayWidth / 3;
        ipu_.setup_copy(devices_.pane, copy, camera, cameras_[0].getLastBufferOffset(),
                        overlay_.getBufferOffset());
    }

    mx_fb::DISP_INFO display_ = {};
    cam_v4l::CAM_INFO info_ = {};
    mx_ipu ipu_;
    mx_fb overlay_;
    mx_vpu encoderDriver_;
    std::array<cam_v4l, 4> cameras_;
    buffer frame_;
    bool quad_ = false;
    Devices devices_;
};

void encodeAndWrite(Devices& devices)
{
    EncOutputInfo output = {};
    require(vpu_EncStartOneFrame(encoder, &devices.picture) == RETCODE_SUCCESS, "encoding");
    while (vpu_IsBusy() != 0) {
        vpu_WaitForInt(200);
    }
    require(vpu_EncGetOutputInfo(encoder, &output) == RETCODE_SUCCESS, "the encoder's output");
    usleep(0);
    if (devices.bitstream == nullptr) {
        void* const mapped = mmap(nullptr, kBitstreamBytes, PROT_READ, MAP_SHARED, devices.ipu,
                                  static_cast<off_t>(output.bitstreamBuffer));
        require(mapped != MAP_FAILED, "mapping the bitstream");
        devices.bitstream = static_cast<char*>(mapped);
    }
    char head[8] = {'0', '0', 'd', 'b', 0, 0x20, 0, 0};
    const std::array parts{iovec{head, sizeof(head)}, iovec{devices.bitstream, output.bitstreamSize}};
    require(writev(devices.file, parts.data(), static_cast<int>(parts.size())) > 0, "writing");
}

void pass(Devices& devices, int panes)
{
    std::array<v4l2_buffer, 4> records = {};
    for (size_t i = 0; i < devices.cameras.size(); ++i) {
        records[i].type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
        records[i].memory = V4L2_MEMORY_USERPTR;
        require(ioctl(devices.cameras[i], VIDIOC_DQBUF, &records[i]) == 0, "dequeueing");
    }
    for (size_t i = 0; i < devices.cameras.size(); ++i) {
        require(ioctl(devices.ipu, IPU_QUEUE_TASK, &devices.tile) == 0, "copying to a tile");
    }
    for (int i = 0; i < panes; ++i) {
        require(ioctl(devices.ipu, IPU_QUEUE_TASK, &devices.pane) == 0, "copying to a pane");
    }
    for (size_t i = 0; i < devices.cameras.size(); ++i) {
        require(ioctl(devices.cameras[i], VIDIOC_QBUF, &records[i]) == 0, "queueing");
    }
    if (panes > 0) {
        require(ioctl(devices.overlay, FBIOPAN_DISPLAY, &devices.mode) == 0, "the flip");
    }
    encodeAndWrite(devices);
}

void end(int /*signal*/)
{
    ended = 1;
}

}  // namespace

RetCode __wrap_vpu_EncOpen(EncHandle* handle, EncOpenParam* parameters)
{
    const RetCode result = __real_vpu_EncOpen(handle, parameters);
    encoder = *handle;
    return result;
}

int main(int argc, char** argv)
{
    if (argc < 3) {
        std::fprintf(stderr, "usage: bare_loop PANES SECONDS [FILE]\n");
        return 2;
    }
    std::signal(SIGINT, end);
    const int panes = std::atoi(argv[1]);
    Panel panel(argc > 3 ? argv[3] : "/velmarine/f/camrecord/cam.avi");
    constexpr int kWarmUp = 100;
    for (int i = 0; i < kWarmUp; ++i) {
        pass(panel.devices(), panes);
    }
    const long stop = nanoseconds(CLOCK_MONOTONIC) + static_cast<long>(std::atof(argv[2]) * 1e9);
    const long began = nanoseconds(CLOCK_THREAD_CPUTIME_ID);
    long frames = 0;
    while (ended == 0 && (frames % 64 != 0 || nanoseconds(CLOCK_MONOTONIC) < stop)) {
        pass(panel.devices(), panes);
        ++frames;
    }
    std::printf("%ld %ld\n", frames, nanoseconds(CLOCK_THREAD_CPUTIME_ID) - began);
    return 0;
}
