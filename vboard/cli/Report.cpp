#include "cli/Report.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "faults/FaultPlan.h"

namespace cli {
namespace {

using board::State;
using nlohmann::json;

std::string hexadecimal(uint32_t value)
{
    char text[16];
    std::snprintf(text, sizeof(text), "0x%08X", value);
    return text;
}

size_t listedRefusals(const State& state)
{
    return std::min<size_t>(state.refusalCount, state.refusals.size());
}

json calls(const State& state)
{
    json devices = json::object();
    for (size_t i = 0; i < state.callCountUsed; ++i) {
        const board::CallCount& entry = state.callCounts[i];
        devices[entry.device][entry.call] = entry.count.load();
    }
    return devices;
}

json callTargets(const State& state)
{
    json list = json::array();
    for (size_t i = 0; i < state.callTargetUsed; ++i) {
        const board::CallTarget& entry = state.callTargets[i];
        list.push_back({{"call", entry.call}, {"target", entry.target}, {"count", entry.count.load()}});
    }
    return list;
}

json cameras(const State& state)
{
    json list = json::array();
    for (const board::Camera& camera : state.cameras) {
        list.push_back({{"delivered", camera.delivered.load()}, {"dropped", camera.dropped.load()}});
    }
    return list;
}

json liveAllocations(const State& state)
{
    json list = json::array();
    for (const board::Allocation& held : state.allocations) {
        if (held.bytes != 0) {
            list.push_back(
                {{"owner", held.owner}, {"address", hexadecimal(held.base)}, {"bytes", held.bytes}});
        }
    }
    return list;
}

json faults(const State& state)
{
    json list = json::array();
    for (size_t i = 0; i < state.faultCount; ++i) {
        const board::Fault& fault = state.faults[i];
        list.push_back({{"rule", board::FaultPlan::textOf(fault)},
                        {"seen", fault.seen.load()},
                        {"fired", fault.fired.load()}});
    }
    return list;
}

json refusedCalls(const State& state)
{
    json list = json::array();
    for (size_t i = 0; i < listedRefusals(state); ++i) {
        const board::Refusal& entry = state.refusals[i];
        list.push_back({{"device", entry.device}, {"call", entry.call}, {"reason", entry.reason}});
    }
    return {{"count", state.refusalCount}, {"list", list}};
}

}  // namespace

void listLeftovers(const board::Board& board, std::FILE* stream)
{
    const State& state = board.state();
    for (const board::Allocation& held : state.allocations) {
        if (held.bytes != 0) {
            std::fprintf(stream, "vboard: still allocated by %s: %u bytes at %s\n", held.owner, held.bytes,
                         hexadecimal(held.base).c_str());
        }
    }
    for (size_t i = 0; i < listedRefusals(state); ++i) {
        const board::Refusal& entry = state.refusals[i];
        std::fprintf(stream, "vboard: %s refused %s: %s\n", entry.device, entry.call, entry.reason);
    }
    if (state.refusalCount > state.refusals.size()) {
        std::fprintf(stream, "vboard: %zu more calls were refused\n",
                     state.refusalCount - state.refusals.size());
    }
}

bool writeReport(const board::Board& board, int exitStatus, std::ofstream& file)
{
    const State& state = board.state();
    const json report{{"calls", calls(state)},
                      {"callTargets", callTargets(state)},
                      {"cameras", cameras(state)},
                      {"framesEncoded", state.framesEncoded.load()},
                      {"bytesEncoded", state.bytesEncoded.load()},
                      {"liveAllocations", liveAllocations(state)},
                      {"faults", faults(state)},
                      {"refusedCalls", refusedCalls(state)},
                      {"exitStatus", exitStatus}};
    constexpr int kIndent = 2;
    // A program may have named things in any bytes.
    file << report.dump(kIndent, ' ', false, json::error_handler_t::replace) << '\n';
    return file.flush().good();
}

}  // namespace cli
