#include "cli/CommandLine.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <iterator>
#include <optional>
#include <sstream>

#include "cli/FaultRules.h"

namespace cli {
namespace {

constexpr std::array kPresets{"ultrafast", "superfast", "veryfast", "faster",  "fast",
                              "medium",    "slow",      "slower",   "veryslow"};
constexpr double kMilli = 1000;
constexpr double kFastest = 1000;  // frames a second

std::optional<CameraSource> parseSource(const std::string& text)
{
    struct Form {
        const char* prefix;
        CameraSource::Kind kind;
    };
    constexpr std::array kForms{Form{"clip:", CameraSource::Kind::kClip},
                                Form{"file:", CameraSource::Kind::kFile},
                                Form{"v4l2:", CameraSource::Kind::kV4l2}};
    if (text == "pattern") {
        return CameraSource{CameraSource::Kind::kPattern, {}};
    }
    if (text == "none") {
        return CameraSource{CameraSource::Kind::kNone, {}};
    }
    for (const Form& form : kForms) {
        const std::string prefix = form.prefix;
        if (text.compare(0, prefix.size(), prefix) == 0 && text.size() > prefix.size()) {
            return CameraSource{form.kind, text.substr(prefix.size())};
        }
    }
    return std::nullopt;
}

/// Takes "N=SOURCE"; what is wrong with it, empty when it was taken.
std::string takeCamera(const std::string& text, BoardOptions& board)
{
    const size_t equals = text.find('=');
    const std::string number = text.substr(0, equals);
    const bool known = number.size() == 1 && number[0] >= '1' && number[0] <= '4';
    const auto source = equals == std::string::npos ? std::nullopt : parseSource(text.substr(equals + 1));
    if (!known || !source) {
        return "--camera takes N=SOURCE with N from 1 to 4 and pattern, clip:PATH, file:PATH, "
               "v4l2:/dev/videoX or none, not '" +
               text + "'";
    }
    board.cameras[static_cast<size_t>(number[0] - '1')] = *source;
    board.camerasGiven = true;
    return {};
}

std::string takeFrameRate(const std::string& text, BoardOptions& board)
{
    if (text == "max") {
        board.frameRateMilli = 0;
        return {};
    }
    double rate = 0;
    const auto result = std::from_chars(text.data(), text.data() + text.size(), rate);
    const bool whole = result.ec == std::errc() && result.ptr == text.data() + text.size();
    if (!whole || !(rate * kMilli >= 1) || rate > kFastest) {
        return "--fps takes a number of frames a second up to 1000, or max, not '" + text + "'";
    }
    board.frameRateMilli = static_cast<uint32_t>(std::lround(rate * kMilli));
    return {};
}

/// What the options say as text, before it is understood.
struct Texts {
    std::string cpu = "quad";
    std::vector<std::string> cameras;
    std::string frameRate = "30";
    std::string devices = "working";
    std::string console;
    bool notMounted = false;
};

std::string takeConsole(const std::string& text, RunRequest& request)
{
    request.console = console::parseAddress(text);
    return text.empty() || request.console
               ? std::string()
               : "--console takes a port, or ADDRESS:PORT with an address in numbers, not '" + text + "'";
}

/// What is wrong with a request to run, empty when all is well.
std::string understand(const Texts& texts, RunRequest& request)
{
    BoardOptions& board = request.board;
    board.cpu = texts.cpu == "quad" ? board::Cpu::kQuad : board::Cpu::kDualLite;
    board.mounted = !texts.notMounted;
    board.devices = texts.devices == "idle" ? board::Devices::kIdle : board::Devices::kWorking;
    for (const std::string& camera : texts.cameras) {
        std::string wrong = takeCamera(camera, board);
        if (!wrong.empty()) {
            return wrong;
        }
    }
    for (const std::string& fault : board.faults) {
        std::string wrong = checkFaultRule(fault);
        if (!wrong.empty()) {
            return wrong;
        }
    }
    std::string wrong = takeConsole(texts.console, request);
    return wrong.empty() ? takeFrameRate(texts.frameRate, board) : wrong;
}

/// The program and its arguments are what follows the options, or the "--" that may end these. `afterDashes`
/// is what stands behind the first "--", with it. A later one is the program's own.
std::string takeProgram(const CLI::App& app, const Command& afterDashes, Command& program)
{
    program = app.remaining();
    const auto first = afterDashes.begin() + (program.empty() && !afterDashes.empty() ? 1 : 0);
    program.insert(program.end(), first, afterDashes.end());
    if (program.empty()) {
        return "name the program to run: vboard " + app.get_name() + " [options] -- PROGRAM [ARG...]";
    }
    return app.remaining_size() != 0 && program.front()[0] == '-'
               ? "'" + program.front() + "' is no option of vboard " + app.get_name() + "; see 'vboard " +
                     app.get_name() + " --help'"
               : std::string();
}

/// Puts the emulator before the program that it is to run.
void putBefore(const std::string& emulator, Command& program)
{
    std::istringstream words(emulator);
    Command command{std::istream_iterator<std::string>(words), std::istream_iterator<std::string>()};
    program.insert(program.begin(), command.begin(), command.end());
}

void addForeign(CLI::App& verb, Foreign& foreign)
{
    verb.add_option("--emulator", foreign.emulator,
                    "Command that runs PROGRAM of another processor, as 'qemu-arm-static -L DIR'");
    verb.add_option("--library", foreign.library,
                    "The board's library (libvboard.so) of PROGRAM's processor");
}

/// The launcher's grammar with the places its values go to.
struct Grammar {
    Grammar();
    Grammar(const Grammar&) = delete;
    Grammar& operator=(const Grammar&) = delete;
    ~Grammar() = default;

    void describeRun();
    Request request(const Command& afterDashes);

    CLI::App app{"Virtual board: runs a program for the panel computer on this machine.", "vboard"};
    CLI::App& run;
    CLI::App& attach;
    CLI::App& snapshot;
    CLI::App& cut;
    Texts texts;
    RunRequest toRun;
    AttachRequest toAttach;
    SnapshotRequest toSnapshot;
    CutRequest toCut;
};

Grammar::Grammar()
    : run(*app.add_subcommand("run", "Bring a board up, run PROGRAM on it, and end with its exit status")),
      attach(*app.add_subcommand("attach", "Run another PROGRAM on a board that is up")),
      snapshot(*app.add_subcommand("snapshot", "Write what the panel of a board that is up shows, as PNG")),
      cut(*app.add_subcommand("cut",
                              "Write what a power cut would have left of a board's files, by its journal"))
{
    app.set_version_flag("--version", std::string("vboard ") + VELCAM_VERSION);
    app.require_subcommand(1);
    describeRun();
    attach.prefix_command();
    attach.footer("vboard attach --board DIR -- PROGRAM [ARG...]");
    attach.add_option("--board", toAttach.folder, "The board's folder")->required();
    addForeign(attach, toAttach.foreign);
    snapshot.add_option("--board", toSnapshot.folder, "The board's folder")->required();
    snapshot.add_option("FILE", toSnapshot.picture, "The picture to write")->required();
    cut.add_option("--board", toCut.folder, "The board's folder")->required();
    cut.add_option("--at", toCut.seconds, "Seconds after the board came up; else by chance")
        ->check(CLI::NonNegativeNumber);
    cut.add_option("--seed", toCut.seed, "What chance begins with, to repeat a cut");
    cut.add_option("FOLDER", toCut.into, "Where the files are written, as below DIR/root")->required();
}

void Grammar::describeRun()
{
    BoardOptions& board = toRun.board;
    addForeign(run, toRun.foreign);
    run.prefix_command();
    run.footer("vboard run [options] [--] PROGRAM [ARG...]");
    run.add_option("--board", board.folder, "The board's folder, made when missing")->capture_default_str();
    run.add_option("--cpu", texts.cpu, "Processor: quad or dual-lite")
        ->check(CLI::IsMember({"quad", "dual-lite"}))
        ->capture_default_str();
    run.add_option("--camera", texts.cameras,
                   "N=SOURCE: camera 1 to 4 shows pattern, clip:PATH (raw NV12 pictures), file:PATH, "
                   "v4l2:/dev/videoX or none (no signal)")
        ->allow_extra_args(false);
    run.add_option("--fps", texts.frameRate, "Frames a second of the cameras, or max for no pacing")
        ->capture_default_str();
    run.add_option("--frames", board.frameLimit, "SIGINT to the program after so many frames of camera 1")
        ->check(CLI::PositiveNumber);
    run.add_option(
           "--fault", board.faults,
           "CALL@TARGET#N=ERROR: the Nth matching call fails (N+: from the Nth on, N/M: the Nth and "
           "each Mth after it, *: always). ERROR: an errno or codec result by name or number, short, hang, "
           "slow:MS, kill (the program, before the call), tear (the same within a read or write); with "
           "VIDIOC_DQBUF also bad (marked as damaged), lost, wrap (numbers and times), nosignal, gone (the "
           "node); with vpu_EncStartOneFrame also skip (the picture is not encoded)")
        ->allow_extra_args(false);
    run.add_option("--codec-preset", board.codecPreset, "Speed preset of the encoder")
        ->check(CLI::IsMember(std::vector<std::string>(kPresets.begin(), kPresets.end())))
        ->capture_default_str();
    run.add_option("--codec-threads", board.codecThreads, "Threads of the encoder")
        ->check(CLI::Range(1, 64))
        ->capture_default_str();
    run.add_option("--devices", texts.devices,
                   "working, or idle: every call is checked and answered at once, no pixels are moved")
        ->check(CLI::IsMember({"working", "idle"}))
        ->capture_default_str();
    run.add_flag("--no-mount", texts.notMounted, "The recording directory is not mounted");
    run.add_flag(
        "--journal", board.journal,
        "Note in DIR/journal what happens to files, for 'vboard cut' to cut the power at any moment");
    run.add_flag("--keep-fields", board.keepsFields, "The image processing unit never de-interlaces");
    run.add_option("--report", toRun.report, "Write a report of the run as JSON");
    run.add_flag("--list-calls", board.listsCalls, "Have the report list every call on every target");
    run.add_option(
        "--console", texts.console,
        "[ADDR:]PORT: serve a console for the browser, on this machine alone unless ADDR says else; "
        "port 0: any");
}

Request Grammar::request(const Command& afterDashes)
{
    std::string wrong;
    Request result = Finished{0};
    if (run.parsed()) {
        wrong = understand(texts, toRun);
        wrong = wrong.empty() ? takeProgram(run, afterDashes, toRun.program) : wrong;
        putBefore(toRun.foreign.emulator, toRun.program);
        result = toRun;
    } else if (attach.parsed()) {
        wrong = takeProgram(attach, afterDashes, toAttach.program);
        putBefore(toAttach.foreign.emulator, toAttach.program);
        result = toAttach;
    } else if (cut.parsed()) {
        result = toCut;
    } else {
        result = toSnapshot;
    }
    return wrong.empty() ? result : Finished{complain(wrong)};
}

}  // namespace

Request parseCommandLine(int argc, char** argv)
{
    Command options(argv + 1, argv + argc);
    const auto dashes = std::find(options.begin(), options.end(), "--");
    const Command afterDashes(dashes, options.end());
    options.erase(dashes, options.end());
    std::reverse(options.begin(), options.end());  // the parser takes its arguments from the end

    Grammar grammar;
    try {
        grammar.app.parse(options);
    } catch (const CLI::Success& answered) {  // --help, --version
        return Finished{grammar.app.exit(answered)};
    } catch (const CLI::ParseError& error) {
        return Finished{complain(std::string(error.what()) + "; see 'vboard --help'")};
    }
    return grammar.request(afterDashes);
}

int complain(const std::string& text)
{
    std::string line = text;
    std::replace(line.begin(), line.end(), '\n', ' ');
    std::fprintf(stderr, "vboard: %s\n", line.c_str());
    return kBadUsage;
}

}  // namespace cli
