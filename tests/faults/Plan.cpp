#include "Plan.h"

#include <fnmatch.h>

#include <algorithm>
#include <array>
#include <sstream>

namespace faults {
namespace {

constexpr std::array kOwnTargets{"/dev/fb?",     "/dev/mxc_ipu",
                                 "/dev/video?",  "/proc/mounts",
                                 "/velmarine/*", "/tmp/VelCam.log",
                                 "/zent*",       "/usr/share/fonts/Ubuntu-C.ttf",
                                 "[*]",          "/usr/bin/gst-launch-1.0",
                                 "velcamd"};

/// The errors that calls can really have, by the first row whose patterns match; separated by blanks.
struct Errors {
    const char* call;
    const char* target;
    const char* errors;
};
constexpr std::array kErrors{
    Errors{"VIDIOC_REQBUFS", "*", "EIO EBUSY ENOMEM EINTR"},
    Errors{"VIDIOC_S_*", "*", "EIO EBUSY ENODEV EINTR"},
    Errors{"VIDIOC_STREAMON", "*", "EIO ENODEV ENOMEM EINTR"},
    Errors{"VIDIOC_DQBUF", "*", "EIO ENODEV EAGAIN EINTR"},
    Errors{"VIDIOC_*", "*", "EIO ENODEV EINTR"},
    Errors{"IPU_ALLOC", "*", "ENOMEM EINTR"},
    Errors{"IPU_*", "*", "EINVAL ETIMEDOUT EINTR"},
    Errors{"FBIOPUT_VSCREENINFO", "*", "EINVAL ENOMEM EINTR"},
    Errors{"FBIO*", "*", "EINVAL EIO EINTR"},
    Errors{"MXCFB_*", "*", "EINVAL EINTR"},
    Errors{"IO*", "*", "ENOMEM"},
    Errors{"vpu_IsBusy", "*", "EBUSY hang"},
    Errors{"vpu_WaitForInt", "*", "RETCODE_FAILURE_TIMEOUT hang"},
    Errors{"vpu_EncStartOneFrame", "*", "RETCODE_FAILURE RETCODE_FRAME_NOT_COMPLETE hang"},
    Errors{"vpu_EncClose", "*", "RETCODE_FAILURE RETCODE_FRAME_NOT_COMPLETE"},
    Errors{"vpu_*", "*", "RETCODE_FAILURE RETCODE_FAILURE_TIMEOUT"},
    Errors{"open", "/dev/*", "ENODEV EBUSY EMFILE EINTR"},
    Errors{"open", "*/cam.avi", "ENOSPC EROFS EIO EINTR"},
    Errors{"open", "*", "EACCES EIO EMFILE EINTR"},
    Errors{"read", "*", "EIO EINTR short"},
    Errors{"write", "*", "EIO ENOSPC EROFS EINTR short"},
    Errors{"close", "*", "EIO EINTR"},
    Errors{"mmap", "*", "ENOMEM"},
    Errors{"mq_open", "*", "EACCES EMFILE ENOMEM EINTR"},
    Errors{"mq_send", "*", "EAGAIN EINTR"},
    Errors{"mq_receive", "*", "EAGAIN EMSGSIZE EINTR"},
    Errors{"exec", "*", "ENOENT ENOMEM"},
    Errors{"fork", "*", "EAGAIN ENOMEM"},
    Errors{"pthread_create", "*", "EAGAIN"},
    Errors{"*", "*", "EIO EROFS"},
};

bool matches(const char* pattern, const std::string& text)
{
    return ::fnmatch(pattern, text.c_str(), 0) == 0;
}

bool isOwn(const std::string& target)
{
    return std::any_of(kOwnTargets.begin(), kOwnTargets.end(),
                       [&](const char* pattern) { return matches(pattern, target); });
}

std::vector<std::string> errorsOf(const support::CallTarget& call)
{
    const auto* const row = std::find_if(kErrors.begin(), kErrors.end(), [&](const Errors& entry) {
        return matches(entry.call, call.call) && matches(entry.target, call.target);
    });
    std::istringstream words(row->errors);
    return {std::istream_iterator<std::string>(words), std::istream_iterator<std::string>()};
}

/// No signal comes at every call, without end.
bool canLast(const std::string& error)
{
    return error != "EINTR";
}

void planCall(const support::CallTarget& call, std::vector<Fault>& plan)
{
    constexpr uint64_t kHasAMiddle = 3;
    const uint64_t middle = (call.count + 1) / 2;
    for (const std::string& error : errorsOf(call)) {
        plan.push_back({call.call, call.target, When::kFirst, 1, error});
        if (call.count >= kHasAMiddle) {
            plan.push_back({call.call, call.target, When::kMiddle, middle, error});
        }
        if (call.count > 1 && canLast(error)) {
            plan.push_back({call.call, call.target, When::kAlways, 1, error});
        }
        if (call.count >= kHasAMiddle && canLast(error)) {
            plan.push_back({call.call, call.target, When::kFromMiddle, middle, error});
        }
    }
}

}  // namespace

std::string Fault::rule() const
{
    const std::string number = std::to_string(occurrence);
    const std::string which = when == When::kAlways ? "*" : when == When::kFromMiddle ? number + "+" : number;
    // The codec's calls have no target; "*" is any.
    return call + "@" + target + "#" + which + "=" + error;
}

/// FNV-1a. Without the occurrence, which depends on how many frames a run had.
uint64_t Fault::lot() const
{
    constexpr uint64_t kBasis = 0xCBF29CE484222325;
    constexpr uint64_t kPrime = 0x100000001B3;
    uint64_t lot = kBasis;
    for (const char byte : call + target + error + static_cast<char>('0' + static_cast<int>(when))) {
        lot = (lot ^ static_cast<uint8_t>(byte)) * kPrime;
    }
    return lot >> 32U;
}

std::vector<Fault> planOf(const std::vector<support::CallTarget>& calls)
{
    std::vector<support::CallTarget> sorted = calls;
    std::sort(sorted.begin(), sorted.end(), [](const auto& left, const auto& right) {
        return std::pair(left.call, left.target) < std::pair(right.call, right.target);
    });
    std::vector<Fault> plan;
    for (const support::CallTarget& call : sorted) {
        if (isOwn(call.target)) {
            planCall(call, plan);
        }
    }
    return plan;
}

}  // namespace faults
