#include "Stated.h"

#include <fnmatch.h>

#include <algorithm>
#include <array>
#include <regex>

namespace faults {
namespace {

constexpr unsigned bit(When when)
{
    return 1U << static_cast<unsigned>(when);
}
constexpr unsigned bit(Effect effect)
{
    return 1U << static_cast<unsigned>(effect);
}

constexpr unsigned kFirst = bit(When::kFirst);
constexpr unsigned kMiddle = bit(When::kMiddle);
constexpr unsigned kOnce = kFirst | kMiddle;
constexpr unsigned kLasting = bit(When::kFromMiddle) | bit(When::kAlways);
constexpr unsigned kAlways = bit(When::kAlways);
constexpr unsigned kAny = kOnce | kLasting;

constexpr unsigned kGoesOn = bit(Effect::kGoesOn);
constexpr unsigned kWithout = bit(Effect::kWithoutCameras);
constexpr unsigned kEnds = bit(Effect::kEnds);
constexpr unsigned kRefuses = bit(Effect::kRefuses);

/// What cannot be asked of a run with this fault.
enum Waiver : unsigned {
    kNone = 0,
    kKeepsMemory = 1U << 0U,    ///< giving memory back is what fails
    kTearsFrame = 1U << 1U,     ///< a frame's write fails half-way
    kNoRecording = 1U << 2U,    ///< the file cannot be had, or may not be
    kMidFileHeader = 1U << 3U,  ///< an existing file is taken for a new one
    kDeaf = 1U << 4U            ///< requests do not arrive
};

/// What is stated for a failing call: the first row that matches holds.
struct Row {
    const char* call;
    const char* target;
    unsigned when;
    const char* error;
    unsigned effects;
    const char* message;  ///< one of these (a regular expression) is said; empty: nothing has to be
    unsigned waived = kNone;
    const char* refused = "";  ///< calls that the board refuses in consequence, as a regular expression
};

constexpr const char* kVpu = "Could not setup VPU";
constexpr const char* kFrame = "Could not process VPU";
constexpr const char* kChannel = "Could not start camera channel [1-4]";
constexpr const char* kOverlay = "Could not open overlay";
// A device that did not restart after a switch of inputs has its next calls refused.
constexpr const char* kStopped = "VIDIOC_(DQBUF|QBUF)";

constexpr std::array kRows{
    // A signal, or half a transfer, shows nowhere.
    Row{"*", "*", kAny, "EINTR", kGoesOn, ""},
    Row{"*", "*", kAny, "short", kGoesOn, ""},

    Row{"VIDIOC_CROPCAP", "*", kAny, "*", kWithout, "Could not setup /dev/video", kNone, "VIDIOC_S_CROP"},
    Row{"VIDIOC_S_CTRL", "*", kAny, "*", kGoesOn, ""},
    Row{"VIDIOC_QUERYBUF", "*", kAny, "*", kWithout, kChannel},
    Row{"VIDIOC_QBUF", "*", kFirst | kAlways, "*", kWithout, kChannel},
    Row{"VIDIOC_QBUF", "*", kMiddle, "*", kGoesOn | kEnds, "Could not queue buffer|VIDIOC_QBUF error", kNone,
        kStopped},
    Row{"VIDIOC_QBUF", "*", kAny, "*", kEnds, "Could not (de)?queue buffer", kNone, kStopped},
    Row{"VIDIOC_STREAMON", "*", kFirst | kAlways, "*", kWithout, kChannel},
    Row{"VIDIOC_STREAMON", "*", kAny, "*", kGoesOn | kEnds, "VIDIOC_STREAMON error", kNone, kStopped},
    Row{"VIDIOC_STREAMOFF", "*", kAny, "*", kGoesOn, "Stream off failed|VIDIOC_QBUF error|", kNone, kStopped},
    Row{"VIDIOC_DQBUF", "*", kOnce, "*", kGoesOn, "Could not dequeue buffer from camera channel #[1-4]"},
    Row{"VIDIOC_DQBUF", "*", kAny, "*", kEnds, "Could not dequeue buffer from camera channel #[1-4]"},
    Row{"VIDIOC_*", "*", kAny, "*", kWithout, "Could not setup /dev/video"},

    Row{"IPU_ALLOC", "*", kFirst | kAlways, "*", kWithout, "Could not allocate recording buffer"},
    Row{"IPU_ALLOC", "*", kAny, "*", kWithout, kChannel},
    Row{"IPU_QUEUE_TASK", "*", kOnce, "*", kGoesOn, "Could not copy"},
    Row{"IPU_QUEUE_TASK", "*", kAny, "*", kEnds, "Could not copy"},
    Row{"IPU_FREE", "*", kAny, "*", kGoesOn, "", kKeepsMemory},
    Row{"mmap", "/dev/mxc_ipu", kFirst | kAlways, "*", kWithout, "Could not allocate recording buffer"},
    Row{"mmap", "/dev/mxc_ipu", kAny, "*", kWithout, kChannel},

    // The first two openings only prime the driver.
    Row{"mmap", "/dev/fb1", kOnce, "*", kGoesOn, ""},
    Row{"mmap", "/dev/fb1", kAny, "*", kGoesOn, kOverlay},
    Row{"MXCFB_SET_GBL_ALPHA", "*", kAny, "*", kWithout, "Could not setup framebuffer"},
    Row{"FBIOGET_VSCREENINFO", "*", kFirst | kAlways, "*", kWithout, "Could not setup framebuffer"},
    Row{"FBIOGET_VSCREENINFO", "*", kAny, "*", kGoesOn, ""},
    Row{"FBIOBLANK", "*", kFirst, "*", kGoesOn, ""},
    Row{"FBIOBLANK", "*", kAny, "*", kGoesOn | kWithout,
        "Could not (close|open) overlay|Could not setup framebuffer"},
    Row{"FBIOPAN_DISPLAY", "*", kOnce, "*", kGoesOn, "Could not process framebuffer"},
    Row{"FBIOPAN_DISPLAY", "*", kAny, "*", kEnds, "Could not process framebuffer"},
    Row{"FBIO*", "*", kOnce, "*", kGoesOn, "cameraOverlay FBIO[A-Z_]* failed"},
    Row{"FBIO*", "*", kAny, "*", kGoesOn, kOverlay},
    Row{"MXCFB_*", "*", kOnce, "*", kGoesOn, "Overlay MXCFB_SET_OVERLAY_POS failed"},
    Row{"MXCFB_*", "*", kAny, "*", kGoesOn, kOverlay},

    Row{"vpu_Init", "*", kAny, "*", kWithout, "VPU Init Failure\\.[^]*Could not setup VPU"},
    Row{"vpu_GetVersionInfo", "*", kAny, "*", kWithout, "Cannot get version info[^]*Could not setup VPU"},
    Row{"IOGetPhyMem", "*", kFirst | kAlways, "*", kWithout, "Unable to obtain physical memory[^]*setup VPU"},
    Row{"IOGetVirtMem", "*", kFirst | kAlways, "*", kWithout, "Unable to map physical memory[^]*setup VPU"},
    Row{"IOGet*", "*", kAny, "*", kWithout, kVpu},
    Row{"IOFree*", "*", kAny, "*", kGoesOn, "", kKeepsMemory},
    Row{"vpu_EncOpen", "*", kAny, "*", kWithout, "Encoder open failed[^]*Could not setup VPU"},
    Row{"vpu_EncGetInitialInfo", "*", kAny, "*", kWithout, "Encoder GetInitialInfo failed[^]*setup VPU"},
    Row{"vpu_EncRegisterFrameBuffer", "*", kAny, "*", kWithout,
        "fbRegister frame buffer failed[^]*setup VPU"},
    Row{"vpu_EncGiveCommand", "*", kFirst, "*", kGoesOn, ""},  // a refinement
    Row{"vpu_EncGiveCommand", "*", kAny, "*", kWithout, kVpu},
    Row{"vpu_EncStartOneFrame", "*", kOnce, "*", kGoesOn, kFrame},
    Row{"vpu_IsBusy", "*", kOnce, "*", kGoesOn, ""},
    Row{"vpu_WaitForInt", "*", kOnce, "RETCODE_*", kGoesOn, ""},
    Row{"vpu_WaitForInt", "*", kOnce, "*", kGoesOn, kFrame},
    // The frame stays pending, and the next one cannot be started; a pass that encodes nothing may come
    // between.
    Row{"vpu_EncGetOutputInfo", "*", kAny, "*", kEnds | kGoesOn,
        "vpu_EncGetOutputInfo failed Err code: -[^]*process VPU", kNoRecording, "vpu_EncStartOneFrame"},
    Row{"vpu_EncClose", "*", kAny, "*", kGoesOn, "", kNone, "vpu_UnInit"},
    Row{"vpu_UnInit", "*", kAny, "*", kGoesOn, ""},
    // Two frames that hang take longer than the run.
    Row{"vpu_IsBusy", "*", kLasting, "*", kEnds | kGoesOn, "", kNoRecording},
    Row{"vpu_*", "*", kLasting, "hang", kEnds | kGoesOn, "", kNoRecording},
    Row{"vpu_*", "*", kLasting, "*", kEnds, kFrame},

    Row{"open", "/dev/fb?", kAny, "*", kWithout, "Could not setup framebuffer"},
    Row{"open", "/dev/mxc_ipu", kAny, "*", kWithout, "Could not setup IPU"},
    Row{"open", "/dev/video?", kAny, "*", kWithout, "Could not setup /dev/video"},
    Row{"open", "/usr/share/fonts/*", kAny, "*", kWithout, "Could not setup YUV image writer"},
    Row{"open", "/velmarine/config/VelMain.cfg", kAny, "*", kRefuses,
        "Could not parse Config File/velmarine/config/VelMain.cfg\n[^]*Could not init core"},
    // An empty configuration leaves the base directory empty, and there is no such place.
    Row{"read", "/velmarine/config/VelMain.cfg", kAny, "*", kGoesOn, "Could not start writer|", kNoRecording},
    Row{"*", "/proc/mounts", kAny, "*", kGoesOn, "", kNoRecording},
    Row{"open", "*/cam.avi", kLasting, "*", kGoesOn, "Could not start writer", kNoRecording},
    // The write-back opens it too.
    Row{"open", "*/cam.avi", kAny, "*", kGoesOn,
        "Could not start writer|Recording does not reach its medium"},
    Row{"write", "*/cam.avi", kFirst, "*", kGoesOn, "Could not start writer"},
    Row{"write", "*/cam.avi", kAlways, "*", kGoesOn, "Could not start writer", kNoRecording},
    // The bytes that fill a frame up are written without a look at the result.
    Row{"write", "*/cam.avi", kMiddle, "*", kGoesOn, "Could not process VPU|", kTearsFrame},
    Row{"write", "*/cam.avi", kAny, "*", kEnds, kFrame, kTearsFrame},
    Row{"stat", "*/cam.avi", kAny, "*", kGoesOn, "", kMidFileHeader},
    Row{"mq_open", "*", kAny, "*", kRefuses, "IPC Bus did not start![^]*Could not init core"},
    Row{"mq_receive", "*", kAny, "*", kGoesOn, "", kDeaf},
    Row{"fork", "*", kAny, "*", kGoesOn, "Unable to create process for video playback"},
    // The threads that take requests and follow them: it records by itself.
    Row{"pthread_create", "*", kAny, "*", kGoesOn, "", kDeaf},
    // The status files, the log, the bitrate, closing, the player: silently without.
    Row{"*", "*", kAny, "*", kGoesOn, ""},
};

bool matches(const char* pattern, const std::string& text)
{
    return ::fnmatch(pattern, text.c_str(), 0) == 0;
}

const Row& rowFor(const Fault& fault)
{
    return *std::find_if(kRows.begin(), kRows.end(), [&](const Row& row) {
        return (row.when & bit(fault.when)) != 0 && matches(row.call, fault.call) &&
               matches(row.target, fault.target) && matches(row.error, fault.error);
    });
}

bool says(const std::string& text, const std::string& expression)
{
    return std::regex_search(text, std::regex(expression, std::regex::ECMAScript));
}

bool contains(const std::string& text, const char* part)
{
    return text.find(part) != std::string::npos;
}

/// Collects what is wrong.
class Verdict {
public:
    void expect(bool holds, const std::string& otherwise)
    {
        if (!holds) {
            complaints_.push_back(otherwise);
        }
    }
    std::vector<std::string> take() { return std::move(complaints_); }

private:
    std::vector<std::string> complaints_;
};

void judgeEnd(const Row& row, const Result& result, Verdict& verdict)
{
    const bool sanitized = contains(result.errors, "Sanitizer") || contains(result.errors, "runtime error");
    verdict.expect(!sanitized, "a sanitizer reports: " + result.errors);
    const Effect effect = effectOf(result);
    verdict.expect((row.effects & bit(effect)) != 0, std::string("it ") + nameOf(effect));
    const bool starts = effect != Effect::kRefuses;
    verdict.expect(result.status == (starts ? 0 : 1), "exit status " + std::to_string(*result.status));
    const bool lives = effect == Effect::kGoesOn || effect == Effect::kWithoutCameras;
    verdict.expect(!lives || result.answered || (row.waived & kDeaf) != 0, "a request was not followed");
}

void judgeMessages(const Fault& fault, const Row& row, const Result& result, Verdict& verdict)
{
    verdict.expect(says(result.output, row.message), std::string("nobody says '") + row.message + "'");
    verdict.expect(!fault.isHarmless() || !says(result.output, "Could not|failed|Unable|[Ee]rror"),
                   "something complains");
}

void judgeReport(const Row& row, const support::Report& report, Verdict& verdict)
{
    verdict.expect(report.complete(), "the board has no report");
    for (const std::string& refused : report.refused()) {
        verdict.expect(*row.refused != '\0' && says(refused, row.refused), "refused: " + refused);
    }
    for (const std::string& live : report.live()) {
        verdict.expect((row.waived & kKeepsMemory) != 0, "still allocated: " + live);
    }
}

bool isWaived(const std::string& damage, const Row& row)
{
    const bool torn = contains(damage, "torn");
    return (torn && (row.waived & kTearsFrame) != 0) ||
           (damage == "foreign" && (row.waived & kMidFileHeader) != 0);
}

void judgeRecording(const Row& row, const Result& result, Verdict& verdict)
{
    const Kept& kept = result.recording;
    const Effect effect = effectOf(result);
    const bool due = effect == Effect::kGoesOn && (row.waived & kNoRecording) == 0;
    verdict.expect(!due || kept.frames > 0, "nothing is recorded");
    verdict.expect(kept.frames == 0 || kept.header, "the recording has no header");
    verdict.expect(kept.frames == 0 || kept.opens, "the recording's first frame cannot be decoded");
    for (const std::string& damage : kept.damage) {
        if (kept.frames == 0 && damage == "header") {
            continue;  // there was no room for it, and nothing is lost
        }
        verdict.expect(isWaived(damage, row), "damage in the recording: " + damage);
    }
}

}  // namespace

const char* nameOf(Effect effect)
{
    constexpr std::array kNames{"goes on", "goes on without cameras", "ends in order", "refuses to start"};
    return kNames.at(static_cast<size_t>(effect));
}

Effect effectOf(const Result& result)
{
    if (contains(result.output, "(main): Could not init core")) {
        return Effect::kRefuses;
    }
    if (!result.finished) {
        return Effect::kEnds;
    }
    return contains(result.output, "continuing without cameras") ? Effect::kWithoutCameras : Effect::kGoesOn;
}

std::vector<std::string> judge(const Fault& fault, const Result& result)
{
    Verdict verdict;
    if (!result.status) {
        return {"it hangs"};
    }
    const Row& row = rowFor(fault);
    judgeEnd(row, result, verdict);
    judgeMessages(fault, row, result, verdict);
    judgeReport(row, result.report, verdict);
    judgeRecording(row, result, verdict);
    return verdict.take();
}

}  // namespace faults
