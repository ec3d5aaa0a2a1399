#include "Processes.h"

#include <filesystem>
#include <functional>
#include <sstream>

#include "Folder.h"

namespace processes {
namespace {

/// "ID (NAME) STATE PARENT ..."; a process that is gone meanwhile has no parent.
Process read(const std::string& folder)
{
    Process process;
    process.environment = '\0' + support::readFile(folder + "/environ");
    const std::string text = support::readFile(folder + "/stat");
    const size_t open = text.find('(');
    const size_t close = text.rfind(')');
    if (open != std::string::npos && close != std::string::npos) {
        process.id = static_cast<pid_t>(std::stol(text));
        process.name = text.substr(open + 1, close - open - 1);
        char state = 0;
        std::istringstream(text.substr(close + 1)) >> state >> process.parent;
        process.ended = state == 'Z' || state == 'X';
    }
    return process;
}

std::vector<Process> select(const std::function<bool(const Process&)>& wanted)
{
    std::vector<Process> found;
    for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
        Process process = read(entry.path());
        if (process.id != -1 && wanted(process)) {
            found.push_back(std::move(process));
        }
    }
    return found;
}

}  // namespace

std::vector<Process> childrenOf(pid_t parent)
{
    return select([=](const Process& process) { return process.parent == parent; });
}

std::vector<Process> withSetting(const std::string& setting)
{
    const std::string entry = '\0' + setting + '\0';
    return select(
        [&](const Process& process) { return process.environment.find(entry) != std::string::npos; });
}

}  // namespace processes
