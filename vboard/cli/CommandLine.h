#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "board/State.h"
#include "console/Address.h"

namespace cli {

using Command = std::vector<std::string>;

/// What a camera of the board shows.
struct CameraSource {
    enum class Kind { kPattern, kClip, kFile, kV4l2, kNone };
    Kind kind = Kind::kPattern;
    std::string path;  ///< of a file, a clip or a V4L2 device
};

constexpr uint32_t kUsualFrameRateMilli = 30000;

/// A board as `vboard run` is asked to make it.
struct BoardOptions {
    std::string folder = "./board";
    board::Cpu cpu = board::Cpu::kQuad;
    std::array<CameraSource, board::kCameras> cameras;
    bool camerasGiven = false;                       ///< by --camera, so that the status file has to follow
    uint32_t frameRateMilli = kUsualFrameRateMilli;  ///< frames per 1000 s, 0: no pacing
    uint64_t frameLimit = 0;                         ///< 0: none
    std::vector<std::string> faults;
    std::string codecPreset = "superfast";
    uint32_t codecThreads = 1;
    board::Devices devices = board::Devices::kWorking;
    bool mounted = true;
    bool journal = false;      ///< keep a journal of what programs do to files
    bool listsCalls = false;   ///< for the report: which calls could fail
    bool keepsFields = false;  ///< the image processing unit never de-interlaces
};

/// A program that another kind of processor runs: what runs it here, and the board's library of its kind.
struct Foreign {
    std::string emulator;  ///< command whose words are split at spaces; empty: none
    std::string library;   ///< empty: the one that belongs to this launcher
};

struct RunRequest {
    BoardOptions board;
    std::string report;  ///< empty: none
    std::optional<console::Address> console;
    Foreign foreign;
    Command program;  ///< with the emulator before it
};
struct AttachRequest {
    std::string folder;
    Foreign foreign;
    Command program;  ///< with the emulator before it
};
struct SnapshotRequest {
    std::string folder;
    std::string picture;
};
/// What a power cut leaves of a board's files.
struct CutRequest {
    std::string folder;
    std::optional<double> seconds;  ///< after the board came up; chance picks when there are none
    std::optional<uint32_t> seed;
    std::string into;
};
/// Nothing is left to do (help, version, bad usage); all has been said.
struct Finished {
    int status;
};
using Request = std::variant<Finished, RunRequest, AttachRequest, SnapshotRequest, CutRequest>;

/// Exit status after bad usage, with one line on standard error that says what to do.
constexpr int kBadUsage = 2;

/// Understands the command line, or answers it.
Request parseCommandLine(int argc, char** argv);

/// Says in one line on standard error what is wrong; the exit status for it.
int complain(const std::string& text);

}  // namespace cli
