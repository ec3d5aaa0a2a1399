#include "Processes.h"

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <sstream>

#include "Folder.h"

namespace processes {
namespace {

std::vector<pid_t> all()
{
    std::vector<pid_t> found;
    for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
        const std::string name = entry.path().filename().string();
        pid_t id = -1;
        const auto read = std::from_chars(name.data(), name.data() + name.size(), id);
        if (read.ec == std::errc() && read.ptr == name.data() + name.size()) {
            found.push_back(id);
        }
    }
    return found;
}

std::string readOf(pid_t process, const char* what)
{
    return support::readFile("/proc/" + std::to_string(process) + "/" + what);
}

/// "ID (NAME) STATE PARENT ..."; a process that is gone has no parent.
Process describe(pid_t id)
{
    Process process;
    process.id = id;
    const std::string text = readOf(id, "stat");
    const size_t open = text.find('(');
    const size_t close = text.rfind(')');
    if (open != std::string::npos && close != std::string::npos) {
        process.name = text.substr(open + 1, close - open - 1);
        char state = 0;
        std::istringstream(text.substr(close + 1)) >> state >> process.parent;
        process.ended = state == 'Z' || state == 'X';
    }
    return process;
}

}  // namespace

std::vector<Process> childrenOf(pid_t parent)
{
    std::vector<Process> found;
    for (const pid_t id : all()) {
        Process process = describe(id);
        if (process.parent == parent) {
            found.push_back(std::move(process));
        }
    }
    return found;
}

std::vector<pid_t> withSetting(const std::string& setting)
{
    const auto lacks = [&](pid_t id) {
        std::istringstream environment(readOf(id, "environ"));
        for (std::string entry; std::getline(environment, entry, '\0');) {
            if (entry == setting) {
                return false;
            }
        }
        return true;
    };
    std::vector<pid_t> found = all();
    found.erase(std::remove_if(found.begin(), found.end(), lacks), found.end());
    return found;
}

}  // namespace processes
