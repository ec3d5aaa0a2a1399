#pragma once

#include <sys/types.h>

#include <memory>
#include <string>

#include "drivers/ipc_queue.h"
#include "lib/SharedQueue.h"
#include "lib/WriteBack.h"
#include "lib/diskfnts.h"
#include "lib/logger.h"
#include "sys/IPCBus.h"
#include "sys/SysData.h"
#include "sys/VideoManager.h"
#include "types/AThread.h"

/// The program: it owns every part, and its thread turns what the controller asks for into calls on them.
///
/// Threads:  construction, init(), start(), runVmgr(), stop() and destruction: the main thread, in this
///           order. exitApplication(): any thread, or a signal handler. run(): its own thread.
/// Lifetime: one object for the process. Destruction waits for its threads, ends everything, and carries the
///           log over. The message queues stay as they are.
/// Errors:   init() has logged the reason when it is false; the object can then only be destroyed.
class SysManager : public AThread {
public:
    /// Looks whether the recording directory is mounted (a mount that comes later does not count) and reads
    /// the camera status. Reads files only: it runs before main().
    SysManager();
    SysManager(const SysManager&) = delete;
    SysManager(SysManager&&) = delete;
    SysManager& operator=(const SysManager&) = delete;
    SysManager& operator=(SysManager&&) = delete;
    ~SysManager() override;

    /// Reads the settings and builds the parts. A video manager without cameras is no failure.
    bool init();

    /// Starts the endpoint's thread and this one, and the one that saves the recording when there is any;
    /// of the three only a missing last one is spoken of. After a true init().
    void start();

    /// Halts the threads, gives them a moment, and cancels what still blocks.
    void stop();

    /// Runs the frame loop until the program is told to exit or two passes in a row have failed; then prints
    /// how many passes there were, and how many a second.
    void runVmgr();

    void exitApplication() { sys.core.exitApplication = true; }

    void log_item(const char* text, logger::LOG_TYPE level) { sys.log_item(text, level); }

    /// The control loop, every 100 ms: packets, report, state, bitrate file and player, camera status and
    /// file size.
    void run() override;

private:
    void findRecordingMount();
    bool readSettings();
    void readBitrate();
    void openLog();
    bool connectBus();
    void identifyProcessor();

    bool framePass();

    void controlPass();
    void applyPackets();
    void followState();
    void enterIdle();
    void enterVideoPlay();
    void enterCamera();
    void enterBackupCamera();
    void enterTransfer();
    void clearSelection();
    void saveBitrate();
    void followTimeZone();
    void limitRecordingFile();
    void watchWriteBack();

    /// Renames `path` to `path` + ".00.avi" after moving each older generation up by one and removing number
    /// `count`. Failures are not reported: a generation that cannot be moved is left.
    void rotate_file(std::string path, unsigned char count);

    /// Two decimal digits and a terminator into `out`, for values below 100.
    void int_to_char(unsigned char value, char* out);

    std::string bitrateFile() const { return sys.core.cfg.path + "/config/bitrate"; }

    diskfnts dfn;
    SysData sys;
    // Of the main thread's making; released in the destructor, in its order.
    std::unique_ptr<ipc_queue> ipcq;
    std::unique_ptr<VideoManager> vmgr;
    std::unique_ptr<IPCBus> proc_ipc;
    SharedQueue<IPCQ_PACKET> ipc_rx;
    u_int32_t ctr = 0;        ///< ticks since the last camera check
    u_int8_t vmgrErrCts = 0;  ///< failed passes in a row

    std::unique_ptr<WriteBack> writeBack_;  // the main thread's; this object's thread asks how it fares
    bool writeBackFails_ = false;           // as last logged
    std::unique_ptr<logger> log_;
};
