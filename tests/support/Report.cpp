#include "Report.h"

#include "Folder.h"

namespace support {
namespace {

std::vector<std::string> lines(const nlohmann::json& list)
{
    std::vector<std::string> result;
    for (const auto& entry : list) {
        result.push_back(entry.dump());
    }
    return result;
}

uint64_t number(const nlohmann::json& json, const std::string& path)
{
    const nlohmann::json::json_pointer pointer(path);
    return json.contains(pointer) ? json.at(pointer).get<uint64_t>() : 0;
}

}  // namespace

Report Report::read(const std::string& file)
{
    Report report;
    report.json_ = nlohmann::json::parse(readFile(file), nullptr, false);
    report.complete_ = report.json_.is_object();
    return report;
}

uint64_t Report::framesEncoded() const
{
    return number(json_, "/framesEncoded");
}

uint64_t Report::framesDelivered(int camera) const
{
    return number(json_, "/cameras/" + std::to_string(camera - 1) + "/delivered");
}

uint64_t Report::framesDropped(int camera) const
{
    return number(json_, "/cameras/" + std::to_string(camera - 1) + "/dropped");
}

std::vector<CallTarget> Report::callTargets() const
{
    std::vector<CallTarget> result;
    for (const auto& entry : json_.value("callTargets", nlohmann::json::array())) {
        result.push_back({entry.at("call").get<std::string>(), entry.at("target").get<std::string>(),
                          entry.at("count").get<uint64_t>()});
    }
    return result;
}

uint64_t Report::faultsFired() const
{
    uint64_t fired = 0;
    for (const auto& fault : json_.value("faults", nlohmann::json::array())) {
        fired += fault.value("fired", uint64_t{0});
    }
    return fired;
}

std::vector<std::string> Report::live() const
{
    return lines(json_.value("liveAllocations", nlohmann::json::array()));
}

std::vector<std::string> Report::refused() const
{
    return lines(
        json_.value("refusedCalls", nlohmann::json::object()).value("list", nlohmann::json::array()));
}

}  // namespace support
