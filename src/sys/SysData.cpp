#include "sys/SysData.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <limits>
#include <optional>

#include "lib/interrupted.h"

namespace {

constexpr const char* kDisplayStatusFile = "/velmarine/dev-fpd/fpd_status";
constexpr const char* kCameraStatusFile = "/velmarine/dev-csi/cam_status";
constexpr std::size_t kFieldPrefix = 2;  // "0x"

/// The first line of a file without its newline (empty when there is none); nothing when the file does not
/// open.
std::optional<std::string> firstLine(const char* path)
{
    std::ifstream file;
    openInterrupted(file, path);
    if (!file.is_open()) {
        return std::nullopt;
    }
    std::string line;
    std::getline(file, line);
    return line;
}

bool displayAttached()
{
    // An ordering on purpose: the driver's "1,1", "1,2" and "2" all mean that a display answers.
    const std::optional<std::string> line = firstLine(kDisplayStatusFile);
    return line && *line >= "1,1";
}

enum class Field { Number, OtherText, Malformed };

/// What one field of the camera status says; `value` is set for a number only.
Field readField(const std::string& field, u_int8_t& value)
{
    if (field.size() <= kFieldPrefix) {
        return Field::Malformed;
    }
    const char* digits = field.c_str() + kFieldPrefix;
    if (field.find_first_not_of("0123456789ABCDEFabcdef", kFieldPrefix) != std::string::npos) {
        return Field::OtherText;
    }
    errno = 0;
    const long long number = std::strtoll(digits, nullptr, 16);
    if (errno == ERANGE || number > std::numeric_limits<int>::max()) {
        return Field::Malformed;
    }
    value = static_cast<u_int8_t>(number & 0xFF);
    return Field::Number;
}

}  // namespace

CameraStatus parseCameraStatus(const std::string& line)
{
    CameraStatus status;
    std::size_t channel = 0;
    for (std::size_t start = 0; start <= line.size();) {
        const std::size_t end = std::min(line.find(',', start), line.size());
        u_int8_t value = 0;
        const Field field = readField(line.substr(start, end - start), value);
        if (field == Field::Number && channel < status.channels.size()) {
            status.channels[channel++] = value;
        }
        status.malformed = status.malformed || field == Field::Malformed;
        start = end + 1;
    }
    return status;
}

bool SysData::camChannelOk(u_int8_t channel) const
{
    return channel < kChannels && media.cam.channelStatus[channel] == 0;
}

void SysData::checkCamera()
{
    media.cam.isVMMAttached = displayAttached();

    const std::optional<std::string> line = firstLine(kCameraStatusFile);
    const CameraStatus status = line ? parseCameraStatus(*line) : CameraStatus{};
    for (std::size_t channel = 0; channel < kChannels; ++channel) {
        media.cam.channelStatus[channel] = status.channels[channel];
    }

    statusReported_ = statusReported_ && status.malformed && *line == malformedStatus_;
    statusMalformed_ = status.malformed;
    if (status.malformed) {
        malformedStatus_ = *line;
    }
    reportCameraStatus();
}

void SysData::reportCameraStatus()
{
    if (statusMalformed_ && !statusReported_ && core.log != nullptr) {
        log_item("(SysData): Malformed camera status", logger::LOG_WARNING);
        statusReported_ = true;
    }
}

void SysData::log_item(const char* text, logger::LOG_TYPE level) const
{
    log_item(std::string(text), level);
}

void SysData::log_item(const std::string& text, logger::LOG_TYPE level) const
{
    if (core.log != nullptr) {
        core.log->log_item(text, level);
    } else {
        std::puts(text.c_str());
    }
}
