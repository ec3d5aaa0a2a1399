#pragma once

#include <sys/types.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

#include "lib/logger.h"
#include "types/SharedWord.h"

/// The one record of what the system is asked to do and what it is doing.
///
/// The system manager owns it; `IPCBus` and `VideoManager` hold a pointer to it.
///
/// Threads: a `SharedWord` may be read and written by any thread. The other fields belong to the system
///          manager's thread once the threads run; the directories, `core.cpu_type` and `core.log` are set
///          before that and only read afterwards, by every thread.
class SysData {
public:
    static constexpr std::size_t kChannels = 4;
    static constexpr std::uint8_t kNotChecked = 0xFF;  ///< channel status before the first check
    static constexpr std::uint32_t kDefaultBitrateKbps = 2000;

    /// The numbers travel on the message queues. A request may carry any byte, so every byte is a value of
    /// the type.
    enum MM_STATE : std::uint8_t {
        MMS_IDLE = 0,
        MMS_VIDEOPLAY = 1,
        MMS_CAMERA = 2,
        MMS_BACKUPCAM = 4,
        MMS_TRANSFER = 15,
    };

    enum CPU_TYPE : std::uint8_t {
        UNSUPPORTED = 0,
        IMX6_SOLO_DUALLIGHT = 1,
        IMX6_DUAL_QUAD = 2,
    };

    struct Camera {
        /// 0 good, any other value a fault code of the capture driver
        std::array<SharedWord<u_int8_t>, kChannels> channelStatus{kNotChecked, kNotChecked, kNotChecked,
                                                                  kNotChecked};
        SharedWord<bool> isVMMAttached{false};
        SharedWord<bool> canRecord{false};    ///< the recording directory is mounted; fixed at start-up
        SharedWord<bool> isRecording{false};  ///< the video manager's report
        /// 1-based camera numbers, 0 none: primary and secondary picture, then the inputs to capture in their
        /// place
        std::array<SharedWord<u_int8_t>, kChannels> channels{};
        SharedWord<u_int8_t> viewMode{0};
        SharedWord<u_int32_t> cfgBitrate{kDefaultBitrateKbps};  ///< kbit/s
    };

    struct Video {
        std::string playback;  ///< file name, of the system manager's thread alone
        SharedWord<bool> playbackDone{false};
    };

    struct Media {
        SharedWord<MM_STATE> reqState{MMS_IDLE};  ///< asked for by the controller
        SharedWord<MM_STATE> state{MMS_IDLE};     ///< last applied
        SharedWord<bool> changeState{false};
        SharedWord<bool> changeChannels{false};
        SharedWord<bool> cfgChanged{false};  ///< a bitrate waits to be saved
        Camera cam;
        Video video;
    };

    struct Settings {
        std::string path;          ///< base directory
        std::string recordPath;    ///< with its trailing separator, like the next
        std::string playbackPath;  ///< stored videos
        u_int8_t logLevel = 0;

        static constexpr const char* kRecordingName = "cam.avi";
        std::string recordingFile() const { return recordPath + kRecordingName; }
    };

    struct Core {
        CPU_TYPE cpu_type = UNSUPPORTED;
        logger* log = nullptr;  ///< owned by the system manager; null until start-up has made it
        SharedWord<bool> exitApplication{false};
        Settings cfg;
    };

    Media media;
    Core core;

    /// Whether the camera of a 0-based `channel` has no fault. False for a channel that does not exist.
    bool camChannelOk(u_int8_t channel) const;

    /// Reads the camera and display status files into `channelStatus` and `isVMMAttached`. Other threads see
    /// the old values or the new ones, never a value in between.
    ///
    /// A malformed camera status is reported as reportCameraStatus() does.
    ///
    /// Threads: the one that owns the record: before start-up the main thread, then the system manager's.
    void checkCamera();

    /// Logs a camera status that holds a field without a number, once for each such text, until the status is
    /// good again. Before the logger exists nothing is reported; the report then waits for the next call.
    void reportCameraStatus();

    /// One line to the log, or to standard output while there is no logger. Text is text: never a format.
    void log_item(const char* text, logger::LOG_TYPE level) const;
    void log_item(const std::string& text, logger::LOG_TYPE level) const;

private:
    std::string malformedStatus_;  // the status line last found malformed
    bool statusMalformed_ = false;
    bool statusReported_ = false;
};

/// Channel statuses as the capture driver writes them: fields like 0x0A between commas, two characters of
/// prefix that nobody examines and hexadecimal digits. The low 8 bits count. A field with another character
/// than a digit is left out, and the next field takes its place. Channels without a field are good (0);
/// fields beyond the fourth are ignored.
struct CameraStatus {
    std::array<u_int8_t, SysData::kChannels> channels{};
    /// A field had no digits at all, or a number beyond the range of int; it was left out.
    bool malformed = false;
};

CameraStatus parseCameraStatus(const std::string& line);
