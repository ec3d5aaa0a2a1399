#include "cli/Launcher.h"

#include <array>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <system_error>

#include "board/Board.h"
#include "cli/BoardFiles.h"
#include "panel/Panel.h"

namespace cli {
namespace {

namespace fs = std::filesystem;

constexpr const char* kLibrary = "libvboard.so";
constexpr const char* kPreload = "LD_PRELOAD";

/// Beside the library: what the player of stored videos gets from the board.
constexpr const char* kPlayersPart = "gstreamer";
constexpr const char* kPluginPath = "GST_PLUGIN_PATH_1_0";
constexpr const char* kPluginRegistry = "GST_REGISTRY_1_0";

/// The library beside this program, or where an installed one has it; empty when it is in neither place.
std::string findLibrary()
{
    std::error_code error;
    const fs::path here = fs::read_symlink("/proc/self/exe", error).parent_path();
    constexpr std::array kPlaces{".", "../lib"};
    for (const char* place : kPlaces) {
        fs::path library = (here / place / kLibrary).lexically_normal();
        if (fs::exists(library, error)) {
            return library.string();
        }
    }
    return {};
}

/// The value of a variable of this process, empty when it has none.
std::string inherited(const char* name)
{
    const char* value = ::getenv(name);  // NOLINT(concurrency-mt-unsafe): this process has one thread
    return value == nullptr ? std::string() : value;
}

/// Lets the player find the overlay's element, on this board only: what it knows of its plugins is the
/// board's.
void addPlayersPart(const std::string& folder, const std::string& library, Environment& environment)
{
    const fs::path plugins = fs::path(library).parent_path() / kPlayersPart;
    std::error_code error;
    if (!fs::is_directory(plugins, error)) {
        return;
    }
    const std::string others = inherited(kPluginPath);
    environment.emplace_back(kPluginPath, plugins.string() + (others.empty() ? "" : ":" + others));
    environment.emplace_back(kPluginRegistry, folder + "/plugins");
}

std::string noBoardIn(const std::string& folder)
{
    return "no board is up in " + folder + ": start one with 'vboard run --board " + folder + " PROGRAM'";
}

}  // namespace

std::string boardEnvironment(const std::string& folder, const Foreign& foreign, Environment& environment)
{
    const bool own = foreign.library.empty();
    std::error_code error;
    const std::string library = own ? findLibrary() : fs::canonical(foreign.library, error).string();
    if (library.empty()) {
        return own ? std::string(kLibrary) + " is not beside vboard: build or install it"
                   : "there is no library " + foreign.library +
                         ": build the board for the program's processor";
    }
    const std::string runtime = VELCAM_SANITIZER_RUNTIME;
    // The dynamic linker splits its list at both, and knows no way around it.
    if ((library + runtime).find_first_of(" :") != std::string::npos) {
        return "cannot preload " + library + ": move it to a path without spaces and colons";
    }
    std::string preload = (runtime.empty() ? "" : runtime + ":") + library;
    const std::string others = inherited(kPreload);
    if (!others.empty()) {
        preload += ":" + others;
    }
    environment.emplace_back(board::kFolderVariable, folder);
    environment.emplace_back(kPreload, preload);
    if (own) {
        addPlayersPart(folder, library, environment);
    }
    return {};
}

int statusOfFailedStart(int error)
{
    constexpr int kNotFound = 127;
    constexpr int kNotStarted = 126;
    return error == ENOENT ? kNotFound : kNotStarted;
}

int attach(const AttachRequest& request)
{
    const std::optional<std::string> folder = folderOfBoardThatIsUp(request.folder);
    if (!folder) {
        return complain(noBoardIn(request.folder));
    }
    Environment environment;
    const std::string wrong = boardEnvironment(*folder, request.foreign, environment);
    if (!wrong.empty()) {
        return complain(wrong);
    }
    const int error = replaceProcess(request.program, environment);
    complain("cannot run " + request.program.front() + ": " + std::generic_category().message(error));
    return statusOfFailedStart(error);
}

int snapshot(const SnapshotRequest& request)
{
    const std::optional<std::string> folder = folderOfBoardThatIsUp(request.folder);
    if (!folder) {
        return complain(noBoardIn(request.folder));
    }
    const board::Board board(*folder);
    if (!board.usable() || !board::writeSnapshot(board, request.picture)) {
        complain("cannot write the picture " + request.picture +
                 ": choose a file in a folder that can be written");
        return 1;
    }
    return 0;
}

}  // namespace cli
