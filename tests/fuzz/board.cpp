// What the virtual board and its launcher understand.
#include <cstring>
#include <variant>

#include "Input.h"
#include "Targets.h"
#include "cli/CommandLine.h"
#include "cli/FaultRules.h"
#include "faults/FaultPlan.h"
#include "paths/Paths.h"
#include "support/ScratchBoard.h"

namespace {

/// Whether a rule that was taken means the same when it is written down and read again.
std::string readAgain(const board::FaultPlan& plan, board::State& state)
{
    const std::string text = board::FaultPlan::textOf(state.faults[0]);
    const std::string wrong = plan.add(text);
    if (!wrong.empty()) {
        return "its own text '" + text + "' was refused: " + wrong;
    }
    const board::Fault& first = state.faults[0];
    const board::Fault& second = state.faults[1];
    const bool same = std::strcmp(first.call, second.call) == 0 &&
                      std::strcmp(first.target, second.target) == 0 && first.from == second.from &&
                      first.to == second.to && first.error == second.error && first.kind == second.kind;
    return same ? "" : "its own text '" + text + "' means something else";
}

/// Not what would end the process that asks, or hold it up.
bool comesBack(const board::Fault& fault)
{
    const auto kind = static_cast<board::FaultKind>(fault.kind);
    return kind != board::FaultKind::kKill && kind != board::FaultKind::kTear &&
           kind != board::FaultKind::kSlow;
}

}  // namespace

std::string fuzz::faultRules(std::string_view input)
{
    static support::ScratchBoard scratch;
    if (!scratch.usable()) {
        return "no board";
    }
    const board::FaultPlan plan(scratch.board());
    scratch.state().faultCount = 0;
    const std::string rule(input);
    static_cast<void>(cli::checkFaultRule(rule));
    if (!plan.add(rule).empty()) {
        return scratch.state().faultCount == 0 ? "" : "a refused rule was kept";
    }
    const board::Fault& fault = scratch.state().faults[0];
    if (comesBack(fault)) {
        static_cast<void>(plan.check(fault.call, "/velmarine/f/camrecord/cam.avi"));
    }
    return readAgain(plan, scratch.state());
}

// Arguments between newlines.
std::string fuzz::commandLine(std::string_view input)
{
    constexpr size_t kMost = 32;  // arguments
    std::vector<std::string> arguments{"vboard"};
    for (Input rest(input); !rest.empty() && arguments.size() < kMost;) {
        arguments.emplace_back(rest.field('\n'));
    }
    std::vector<char*> pointers;
    for (std::string& argument : arguments) {
        argument = argument.c_str();  // as main() gets it
        pointers.push_back(argument.data());
    }
    const cli::Request request = cli::parseCommandLine(static_cast<int>(pointers.size()), pointers.data());
    if (const auto* run = std::get_if<cli::RunRequest>(&request)) {
        const bool sound = !run->program.empty() && run->board.frameRateMilli <= 1000000 &&
                           run->board.codecThreads >= 1 &&
                           run->board.codecPreset.size() < board::kPresetBytes;
        return sound ? "" : "a run that cannot be";
    }
    const auto* attach = std::get_if<cli::AttachRequest>(&request);
    return attach == nullptr || !attach->program.empty() ? "" : "nothing to run";
}

std::string fuzz::boardPaths(std::string_view input)
{
    const std::string folder = "/nowhere";
    const auto there = board::paths::file(folder, input);
    if (there && board::paths::nameOnBoard(folder, *there) != input) {
        return "a file with another name on the board";
    }
    const auto queue = board::paths::queue(folder, input);
    if (queue && board::paths::nameOnBoard(folder, *queue) != input) {
        return "a queue with another name on the board";
    }
    const auto node = board::paths::node(input);
    return node && board::paths::nodePath(*node) != input ? "a node with another name" : "";
}
