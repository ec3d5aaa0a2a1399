#include "cli/BoardFiles.h"

#include <fcntl.h>
#include <mqueue.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <new>
#include <system_error>

#include "board/Real.h"
#include "cli/JournalBegin.h"
#include "faults/FaultPlan.h"
#include "framebuffer/FramebufferDevice.h"
#include "paths/Paths.h"

namespace cli {
namespace {

namespace fs = std::filesystem;
using board::State;

constexpr mode_t kFileMode = 0666;

constexpr std::array kFolders{"/velmarine/config",
                              "/velmarine/f/camrecord",
                              "/velmarine/f/video",
                              "/velmarine/f/logs",
                              "/velmarine/dev-csi",
                              "/velmarine/dev-fpd",
                              "/proc",
                              "/tmp",
                              "/usr/share/fonts"};

struct InitialFile {
    const char* path;
    const char* content;
};
constexpr std::array kInitialFiles{
    InitialFile{"/velmarine/config/VelMain.cfg", "dir=/velmarine\nlog_level=0\n"},
    InitialFile{"/velmarine/config/bitrate", "2000\n"},
    InitialFile{"/velmarine/dev-fpd/fpd_status", "1,1\n"}};

constexpr const char* kRecordingMount = "/dev/mmcblk0p3 /velmarine/f/camrecord ext4 rw 0 0\n";
constexpr const char* kCameraStatus = "/velmarine/dev-csi/cam_status";

/// What may stand in for the panel's font, the best first.
constexpr const char* kFont = "/usr/share/fonts/Ubuntu-C.ttf";
constexpr std::array kFontsOfThisMachine{
    "/usr/share/fonts/truetype/ubuntu/Ubuntu-C.ttf",
    "/usr/share/fonts/truetype/dejavu/DejaVuSansCondensed.ttf",
    "/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf",
    "/usr/share/fonts/truetype/liberation/LiberationSansNarrow-Regular.ttf",
    "/usr/share/fonts/truetype/liberation/LiberationSans-Regular.ttf",
    "/usr/share/fonts/truetype/freefont/FreeSans.ttf"};

std::string systemText(int error)
{
    return std::generic_category().message(error);
}

bool writeText(const std::string& path, const std::string& content)
{
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file << content;
    return file.flush().good();
}

/// "0x00" for a camera that has a signal, "0x01" for one that has none.
std::string cameraStatus(const BoardOptions& options)
{
    std::string line;
    for (const CameraSource& camera : options.cameras) {
        line += line.empty() ? "" : ",";
        line += camera.kind == CameraSource::Kind::kNone ? "0x01" : "0x00";
    }
    return line + "\n";
}

/// Without any font the board is left without: what needs one says so.
void provideFont(const std::string& root)
{
    const std::string place = root + kFont;
    std::error_code ignored;
    if (fs::exists(place, ignored)) {
        return;
    }
    fs::remove(place, ignored);  // a link that leads nowhere
    const auto* found = std::find_if(kFontsOfThisMachine.begin(), kFontsOfThisMachine.end(),
                                     [&](const char* font) { return fs::exists(font, ignored); });
    if (found != kFontsOfThisMachine.end()) {
        fs::create_symlink(*found, place, ignored);
    }
}

/// What of a board's files could not be made, and the errno that says why; no path when all is there.
struct Unmade {
    std::string path;
    int error = 0;
};

/// Makes what the root lacks.
Unmade provideRoot(const std::string& root, const BoardOptions& options)
{
    std::error_code error;
    for (const char* folder : kFolders) {
        fs::create_directories(root + folder, error);
        if (error) {
            return {root + folder, error.value()};
        }
    }
    for (const InitialFile& file : kInitialFiles) {
        if (!fs::exists(root + file.path, error) && !writeText(root + file.path, file.content)) {
            return {root + file.path, errno};
        }
    }
    const bool followsOptions = options.camerasGiven || !fs::exists(root + kCameraStatus, error);
    if (followsOptions && !writeText(root + kCameraStatus, cameraStatus(options))) {
        return {root + kCameraStatus, errno};
    }
    if (!writeText(root + "/proc/mounts", options.mounted ? kRecordingMount : "")) {
        return {root + "/proc/mounts", errno};
    }
    provideFont(root);
    return {};
}

/// A new, empty (sparse) file of a size. The old one, if any, stays what it is to those who still have it. It
/// gets its name when it has its size: who maps a file that is too short is killed at the first look at it.
/// 0, or the errno of what failed.
int makeFile(const std::string& path, off_t bytes)
{
    const std::string unfinished = path + ".new";
    real::unlink(unfinished.c_str());
    const int opened = real::open(unfinished.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, kFileMode);
    if (opened < 0) {
        return -opened;
    }
    const Descriptor file(opened);
    const int sized = real::truncate(file.get(), bytes);
    if (sized < 0) {
        return -sized;
    }
    return std::rename(unfinished.c_str(), path.c_str()) == 0 ? 0 : errno;
}

Unmade makeFreshFiles(const std::string& folder)
{
    struct Sized {
        const char* name;
        off_t bytes;
    };
    constexpr std::array kFiles{
        Sized{"/state", sizeof(State)}, Sized{"/memory", off_t{board::kMemoryBase} + board::kMemoryBytes},
        Sized{"/fb0", board::kFramebufferFileBytes}, Sized{"/fb1", board::kFramebufferFileBytes}};
    for (const Sized& file : kFiles) {
        const std::string path = folder + file.name;
        if (const int error = makeFile(path, file.bytes); error != 0) {
            return {path, error};
        }
    }
    return {};
}

void removeQueues(const std::string& folder)
{
    for (const char* name : board::paths::kQueues) {
        ::mq_unlink(board::paths::queue(folder, name)->c_str());  // most often there is none
    }
}

board::SourceKind kindOf(const CameraSource& source)
{
    switch (source.kind) {
        case CameraSource::Kind::kPattern:
            return board::SourceKind::kPattern;
        case CameraSource::Kind::kClip:
            return board::SourceKind::kClip;
        case CameraSource::Kind::kNone:
            return board::SourceKind::kNone;
        default:
            return board::SourceKind::kPipe;
    }
}

/// Fills the state; what is wrong with the options, empty when nothing is.
std::string describe(const BoardOptions& options, board::Board& made)
{
    State& state = *new (&made.state()) State{};  // the file is zero: begins the members' lives
    state.cpu = options.cpu;
    state.frameRateMilli = options.frameRateMilli;
    state.frameLimit = options.frameLimit;
    state.keepsFields = options.keepsFields ? 1 : 0;
    state.codecThreads = options.codecThreads;
    state.devices = options.devices;
    const size_t length = std::min(options.codecPreset.size(), sizeof(state.codecPreset) - 1);
    options.codecPreset.copy(state.codecPreset, length);
    for (size_t i = 0; i < board::kCameras; ++i) {
        state.cameras[i].kind = kindOf(options.cameras[i]);
    }
    state.listsCalls = options.listsCalls ? 1 : 0;
    state.inputPair[0] = 0;
    state.inputPair[1] = 1;
    for (const std::string& rule : options.faults) {
        std::string wrong = board::FaultPlan(made).add(rule);
        if (!wrong.empty()) {
            return wrong;
        }
    }
    board::initFramebuffers(made);
    state.epochUs = real::monotonicUs();
    state.version = board::kStateVersion;
    state.magic = board::kStateMagic;  // last: from now on processes may attach
    return {};
}

/// The lock's record for fcntl: the whole file, held by the open file rather than by the process.
struct flock wholeFile(short type)
{
    struct flock record = {};
    record.l_type = type;
    record.l_whence = SEEK_SET;
    return record;
}

/// Takes the folder's lock; a descriptor that is not open, with `errno`, when that cannot be done.
Descriptor takeLock(const std::string& folder)
{
    Descriptor file(::open((folder + "/lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, kFileMode));
    struct flock record = wholeFile(F_WRLCK);
    if (!file.isOpen() || ::fcntl(file.get(), F_OFD_SETLK, &record) == -1) {
        return Descriptor();
    }
    return file;
}

}  // namespace

LiveBoard::LiveBoard(const std::string& folder, Descriptor lock) : lock_(std::move(lock)), board_(folder)
{
}

std::unique_ptr<LiveBoard> LiveBoard::make(const BoardOptions& options, std::string& wrong)
{
    std::error_code error;
    fs::create_directories(options.folder, error);
    const std::string folder = fs::canonical(options.folder, error).string();
    if (error) {
        wrong = "cannot make the board's folder " + options.folder + ": " + error.message();
        return nullptr;
    }
    Descriptor lock = takeLock(folder);
    if (!lock.isOpen()) {
        const bool held = errno == EAGAIN || errno == EACCES;
        wrong = held ? "a board is up in " + folder + ": use 'vboard attach', or another --board"
                     : "cannot lock " + folder + ": " + systemText(errno);
        return nullptr;
    }
    Unmade unmade = provideRoot(folder + "/root", options);
    if (unmade.path.empty()) {
        unmade = makeFreshFiles(folder);
    }
    if (!unmade.path.empty()) {
        wrong = "cannot write " + unmade.path + ": " + systemText(unmade.error);
        return nullptr;
    }
    removeQueues(folder);
    std::unique_ptr<LiveBoard> made(new LiveBoard(folder, std::move(lock)));
    if (!made->board().isMapped()) {
        wrong = "cannot map the memory of the board in " + folder + ": free some address space";
        return nullptr;
    }
    wrong = describe(options, made->board());
    if (wrong.empty() && options.journal) {
        wrong = beginJournal(made->board());
    }
    return wrong.empty() ? std::move(made) : nullptr;
}

LiveBoard::~LiveBoard()
{
    if (board_.isMapped()) {
        board_.state().magic = 0;
    }
    removeQueues(board_.folder());
}

std::optional<std::string> folderOfBoardThatIsUp(const std::string& folder)
{
    std::error_code error;
    const std::string real = fs::canonical(folder, error).string();
    if (error) {
        return std::nullopt;
    }
    const Descriptor file(::open((real + "/lock").c_str(), O_RDWR | O_CLOEXEC));
    struct flock record = wholeFile(F_WRLCK);
    const bool asked = file.isOpen() && ::fcntl(file.get(), F_OFD_GETLK, &record) == 0;
    return asked && record.l_type != F_UNLCK && board::Board(real).usable() ? std::optional(real)
                                                                            : std::nullopt;
}

}  // namespace cli
