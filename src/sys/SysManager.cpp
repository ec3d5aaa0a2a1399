#include "sys/SysManager.h"

#include <unistd.h>
#include <vpu_lib.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <utility>

#include "lib/ConfigFile.h"
#include "lib/interrupted.h"
#include "lib/strfnts.h"
#include "types/CancelWindow.h"

namespace {

constexpr const char* kConfigFile = "/velmarine/config/VelMain.cfg";
constexpr const char* kMountTable = "/proc/mounts";
constexpr const char* kRecordingMount = "/velmarine/f/camrecord";

constexpr u_int32_t kLogLimit = 5000000;     // bytes
constexpr long kRecordingLimit = 599999999;  // bytes
constexpr unsigned char kRecordingGenerations = 30;

constexpr const char* kNotSaved = "(core): Recording does not reach its medium";

constexpr useconds_t kTickUs = 100000;
constexpr u_int32_t kSecondTicks = 10;
constexpr u_int32_t kCheckTicks = 60;
constexpr u_int8_t kFailedPassesToGiveUp = 2;

struct Processor {
    unsigned int revision;
    SysData::CPU_TYPE type;
    const char* message;
};

constexpr unsigned int kRevisionShift = 12;
constexpr std::array<Processor, 2> kProcessors{{
    {0x61, SysData::IMX6_SOLO_DUALLIGHT, "(core): CPU Type IMX6 SOLO/DUALLIGHT"},
    {0x63, SysData::IMX6_DUAL_QUAD, "(core): CPU Type IMX6 DUAL/QUAD"},
}};
constexpr Processor kUnknownProcessor{0, SysData::UNSUPPORTED, "(core): CPU Type unsupported"};

}  // namespace

SysManager::SysManager()
{
    threadId = "SystemManager";
    findRecordingMount();
    sys.checkCamera();
}

SysManager::~SysManager()
{
    // The threads first, so that none touches a part that is gone: this one uses all of them.
    reap();
    ipcq.reset();  // ends its own
    proc_ipc.reset();
    vmgr.reset();
    WriteBack::retire(std::move(writeBack_));  // here its last pass has had the longest time
    sys.core.log = nullptr;
    log_.reset();
}

void SysManager::findRecordingMount()
{
    std::ifstream mounts;
    openInterrupted(mounts, kMountTable);
    for (std::string line; std::getline(mounts, line);) {
        if (line.find(kRecordingMount) != std::string::npos) {
            sys.media.cam.canRecord = true;
            return;
        }
    }
}

bool SysManager::init()
{
    if (!readSettings()) {
        return false;
    }
    readBitrate();
    openLog();
    if (!connectBus()) {
        return false;
    }
    proc_ipc = std::make_unique<IPCBus>(&sys, ipcq.get());
    vmgr = std::make_unique<VideoManager>(&sys);
    writeBack_ = std::make_unique<WriteBack>(sys.core.cfg.recordPath, SysData::Settings::kRecordingName);
    identifyProcessor();
    if (!vmgr->init()) {
        log_item("(main): Could not setup cameras, continuing without cameras", logger::LOG_NOTICE);
    }
    return true;
}

bool SysManager::readSettings()
{
    ConfigFile config;
    if (!config.parse(kConfigFile)) {
        sys.log_item(std::string("(core): Could not parse Config File") + kConfigFile, logger::LOG_ERROR);
        return false;
    }
    config.findKey(sys.core.cfg.path, "dir");
    config.findKey(sys.core.cfg.logLevel, "log_level");
    sys.core.cfg.recordPath = sys.core.cfg.path + "/f/camrecord/";
    sys.core.cfg.playbackPath = sys.core.cfg.path + "/f/video/";
    return true;
}

void SysManager::readBitrate()
{
    std::string text;
    dfn.getFileContents(bitrateFile(), text);  // a missing file is an empty one
    strfnts::trim(text);
    sys.media.cam.cfgBitrate = SysData::kDefaultBitrateKbps;
    // A single digit is deliberately not taken for a bitrate.
    if (text.size() > 1 && text.find_first_not_of("0123456789") == std::string::npos) {
        // A number beyond the range of int ends the process, by an exception that nobody handles.
        sys.media.cam.cfgBitrate = static_cast<u_int32_t>(std::stoi(text));
    }
}

void SysManager::openLog()
{
    log_ = std::make_unique<logger>("/tmp/", sys.core.cfg.path + "/f/logs/", "VelCam.log", kLogLimit, false);
    log_->setLevel(sys.core.cfg.logLevel);
    sys.core.log = log_.get();

    sys.reportCameraStatus();  // of what was found before there was a log
}

bool SysManager::connectBus()
{
    ipcq = std::make_unique<ipc_queue>("/zentcam", "/zentipc", false, ipc_rx);
    if (!ipcq->isConnected()) {
        log_item("(core): IPC Bus did not start!", logger::LOG_ERROR);
        return false;
    }
    return true;
}

void SysManager::identifyProcessor()
{
    // The codec library has filled the word when the video manager's encoder was constructed.
    const unsigned int revision = system_rev >> kRevisionShift;
    const auto* const known = std::find_if(kProcessors.begin(), kProcessors.end(),
                                           [&](const Processor& row) { return row.revision == revision; });
    const Processor& processor = known != kProcessors.end() ? *known : kUnknownProcessor;
    log_item(processor.message, logger::LOG_DEBUG);
    sys.core.cpu_type = processor.type;
}

void SysManager::start()
{
    log_item("(core): Starting all threads", logger::LOG_DEBUG);
    ipcq->start();
    AThread::start();
    if (sys.media.cam.canRecord && writeBack_ != nullptr) {
        writeBack_->start();
        if (!writeBack_->isInit()) {
            log_item(kNotSaved, logger::LOG_WARNING);
        }
    }
}

void SysManager::stop()
{
    log_item("(core): Stopping all threads", logger::LOG_DEBUG);
    ipcq->sendHalt();
    sendHalt();
    if (writeBack_ != nullptr) {
        writeBack_->finish();  // every frame is written by now
    }
    usleep(kTickUs);  // for the bodies to notice
    ipcq->stop();
    AThread::stop();
}

void SysManager::runVmgr()
{
    using Clock = std::chrono::steady_clock;  // real time that nobody sets back
    const Clock::time_point begin = Clock::now();
    unsigned long long passes = 0;  // an int has room for little more than two years of them
    while (!sys.core.exitApplication) {
        ++passes;
        if (!framePass()) {
            sys.core.exitApplication = true;
        }
    }
    const auto elapsed = std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - begin);
    constexpr float kMicrosecondsPerSecond = 1000000.0F;
    const float seconds = static_cast<float>(elapsed.count()) / kMicrosecondsPerSecond;
    std::printf("Encoded %llu Frames in %0.4f Seconds\n", passes, static_cast<double>(seconds));
    const float rate = seconds > 0 ? static_cast<float>(passes) / seconds : 0;
    std::printf("FPS %.2f\n", static_cast<double>(rate));
}

/// False when the frame loop has failed too often in a row.
bool SysManager::framePass()
{
    if (vmgr->run()) {
        vmgrErrCts = 0;
        return true;
    }
    ++vmgrErrCts;
    return vmgrErrCts < kFailedPassesToGiveUp;
}

void SysManager::run()
{
    const CancelShield shield;
    log_item("(core): Started core thread", logger::LOG_DEBUG);
    proc_ipc->tx(IPCBus::MSG_STARTED);
    while (!haltThread) {
        controlPass();
        const CancelWindow window;
        usleep(kTickUs);
    }
    log_item("(core): Stopped core thread", logger::LOG_DEBUG);
}

void SysManager::controlPass()
{
    applyPackets();
    proc_ipc->tx(IPCBus::MSG_STATUS);
    followState();
    watchWriteBack();  // at each tick: a failure may last no longer than from one pass of it to the next
    if (ctr % kSecondTicks == 0) {
        saveBitrate();
        vmgr->videoPlaybackStatus();
        followTimeZone();
    }
    ++ctr;
    if (ctr >= kCheckTicks) {
        sys.checkCamera();
        limitRecordingFile();
        ctr = 0;
    }
}

void SysManager::applyPackets()
{
    IPCQ_PACKET packet = {};
    while (ipc_rx.pop(packet)) {
        proc_ipc->rx(packet);
    }
}

void SysManager::followState()
{
    struct Transition {
        SysData::MM_STATE state;
        const char* printed;
        void (SysManager::*enter)();
    };
    static constexpr std::array<Transition, 5> kTransitions{{
        {SysData::MMS_IDLE, "Req State Idle", &SysManager::enterIdle},
        {SysData::MMS_VIDEOPLAY, "Req State VideoPlayback", &SysManager::enterVideoPlay},
        {SysData::MMS_CAMERA, "Req State Camera", &SysManager::enterCamera},
        {SysData::MMS_BACKUPCAM, "Req State BackupCam", &SysManager::enterBackupCamera},
        {SysData::MMS_TRANSFER, "Req State Transfer", &SysManager::enterTransfer},
    }};

    const SysData::MM_STATE requested = sys.media.reqState;
    if (sys.media.state == requested) {
        return;
    }
    sys.media.state = requested;
    const auto* const transition =
        std::find_if(kTransitions.begin(), kTransitions.end(),
                     [&](const Transition& row) { return row.state == requested; });
    if (transition != kTransitions.end()) {  // a state that nobody knows is kept, and does nothing
        std::puts(transition->printed);
        (this->*transition->enter)();
    }
}

void SysManager::enterIdle()
{
    clearSelection();
    vmgr->setRecordState(true);
    vmgr->setCameraDisplay(false);
    vmgr->stopVideoPlayback();
    vmgr->reqWindowChange(VideoManager::WS_CLOSED);
}

void SysManager::enterVideoPlay()
{
    clearSelection();
    vmgr->setRecordState(false);
    vmgr->setCameraDisplay(false);
    vmgr->reqWindowChange(VideoManager::WS_CENTER_VID);
    vmgr->playVideo();
}

void SysManager::enterCamera()
{
    vmgr->setRecordState(true);
    vmgr->setCameraDisplay(true);
    vmgr->reqWindowChange(VideoManager::WS_LEFTTOP);
}

void SysManager::enterBackupCamera()
{
    vmgr->setRecordState(true);
    vmgr->setCameraDisplay(true);
    vmgr->reqWindowChange(VideoManager::WS_CENTER);
}

void SysManager::enterTransfer()
{
    vmgr->setRecordState(false);
    vmgr->setCameraDisplay(true);
}

/// The panes only: the inputs captured in their place stay.
void SysManager::clearSelection()
{
    sys.media.cam.channels[0] = 0;
    sys.media.cam.channels[1] = 0;
}

void SysManager::saveBitrate()
{
    if (!sys.media.cfgChanged) {
        return;
    }
    const std::string text = std::to_string(sys.media.cam.cfgBitrate);
    sys.media.cfgChanged = false;
    dfn.writeFileContents(bitrateFile(), text, false);  // if it fails, the next selection tries again
}

/// localtime_r, by which clock and log go, stays with the zone that it found first. Looked at here, so that
/// the frame loop neither asks the file system nor allocates for its clock.
void SysManager::followTimeZone()
{
    tzset();  // NOLINT(concurrency-mt-unsafe): it locks; nobody here changes the environment
}

void SysManager::limitRecordingFile()
{
    if (!sys.media.cam.canRecord || sys.media.state == SysData::MMS_VIDEOPLAY ||
        dfn.fileSize(sys.core.cfg.recordingFile()) <= kRecordingLimit) {
        return;
    }
    vmgr->setRecordState(false);
    rotate_file(sys.core.cfg.recordingFile(), kRecordingGenerations);
    vmgr->setRecordState(true);
}

void SysManager::watchWriteBack()
{
    const bool fails = writeBack_ != nullptr && writeBack_->failing();  // null before init()
    if (fails && !writeBackFails_) {
        log_item(kNotSaved, logger::LOG_WARNING);
    }
    writeBackFails_ = fails;
}

void SysManager::int_to_char(unsigned char value, char* out)
{
    constexpr unsigned int kBase = 10;
    out[0] = static_cast<char>('0' + value / kBase);
    out[1] = static_cast<char>('0' + value % kBase);
    out[2] = 0;
}

void SysManager::rotate_file(std::string path, unsigned char count)
{
    const auto generation = [&](unsigned char number) {
        std::array<char, 3> digits = {};
        int_to_char(number, digits.data());
        return path + "." + digits.data() + ".avi";
    };
    // From the oldest down, so that no rename lands on a file.
    if (dfn.isFile(generation(count))) {
        dfn.removeFile(generation(count));
    }
    for (unsigned char number = count; number > 0; --number) {
        const std::string from = generation(static_cast<unsigned char>(number - 1));
        if (dfn.isFile(from)) {
            dfn.renameFile(from, generation(number));
        }
    }
    dfn.renameFile(path, generation(0));
}
