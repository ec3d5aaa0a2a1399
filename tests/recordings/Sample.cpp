#include "Sample.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <filesystem>

#include "support/Child.h"
#include "support/Folder.h"

namespace recordings {
namespace {

/// Of what the sample depends on; one made by an older daemon is not used.
std::string version()
{
    std::string text;
    for (const char* name : {"velcamd", "vboard", "libvpu.so", "libvboard.so"}) {
        const std::filesystem::path path = support::program(name);
        const auto changed = std::filesystem::last_write_time(path).time_since_epoch().count();
        text += std::string(name) + " " + std::to_string(changed) + "\n";
    }
    return text;
}

std::string record(const std::string& board)
{
    constexpr support::Duration kLimit{240'000};
    const support::Command command{
        support::program("vboard"), "run", "--board", board, "--fps", "max", "--frames", "330", "--",
        support::program("velcamd")};
    const auto outcome = support::runToEnd(command, kLimit);
    return outcome.status == 0 ? "" : "the daemon ended badly:\n" + outcome.output + outcome.error;
}

Sample make(const std::string& folder)
{
    Sample made{folder + "/cam.avi", ""};
    if (support::readFile(folder + "/version") == version()) {
        return made;
    }
    const support::Folder scratch;
    for (int run = 0; run < 2; ++run) {
        const std::string fault = record(scratch.file("board"));
        if (!fault.empty()) {
            return {"", fault};
        }
    }
    const std::string recorded = scratch.file("board/root/velmarine/f/camrecord/cam.avi");
    if (!support::writeFile(made.path, support::readFile(recorded)) ||
        !support::writeFile(folder + "/version", version())) {
        return {"", "the sample cannot be kept in " + folder};
    }
    return made;
}

Sample makeAlone()
{
    const std::string folder = RECORDINGS_SAMPLE;
    std::filesystem::create_directories(folder);
    constexpr mode_t kMode = 0644;
    const int lock = ::open((folder + "/lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, kMode);
    if (lock == -1 || ::flock(lock, LOCK_EX) != 0) {
        return {"", "no lock in " + folder};
    }
    Sample made = make(folder);
    ::close(lock);
    return made;
}

}  // namespace

const Sample& sample()
{
    static const Sample made = makeAlone();
    return made;
}

}  // namespace recordings
