#include "Console.h"

#include <unistd.h>

#include <cmath>
#include <csignal>
#include <cstdio>
#include <utility>

namespace recording {
namespace {

constexpr std::chrono::milliseconds kShowEvery{200};
constexpr double kBytesAMegabyte = 1e6;
constexpr int kPercent = 100;
constexpr int kSixty = 60;
constexpr int kMilliseconds = 1000;
constexpr double kLongest = 1e9;  // seconds

volatile std::sig_atomic_t wasInterrupted = 0;

/// Digits, one at least, with a decimal point and digits behind it where that is allowed.
bool isNumber(const std::string& text, bool decimals)
{
    const size_t whole = text.find_first_not_of("0123456789");
    if (whole == 0 || text.empty()) {
        return false;
    }
    return whole == std::string::npos ||
           (decimals && text[whole] == '.' && whole + 1 < text.size() &&
            text.find_first_not_of("0123456789", whole + 1) == std::string::npos);
}

}  // namespace

int fail(int status, const std::string& text)
{
    std::fprintf(stderr, "velcamrec: %s\n", text.c_str());
    return status;
}

void catchInterrupt()
{
    struct sigaction action = {};
    action.sa_handler = [](int) { wasInterrupted = 1; };
    ::sigaction(SIGINT, &action, nullptr);
    ::sigaction(SIGTERM, &action, nullptr);
}

bool interrupted()
{
    return wasInterrupted != 0;
}

Progress::Progress(std::string label, off_t total)
    : label_(std::move(label)),
      total_(total),
      terminal_(::isatty(STDERR_FILENO) == 1),
      last_(std::chrono::steady_clock::now())
{
}

Progress::~Progress()
{
    if (shown_) {
        std::fputs("\r\033[K", stderr);
    }
}

bool Progress::step(off_t position)
{
    if (terminal_ && std::chrono::steady_clock::now() - last_ >= kShowEvery) {
        show(position);
    }
    return !interrupted();
}

void Progress::show(off_t position)
{
    const double share = total_ > 0 ? static_cast<double>(position) / static_cast<double>(total_) : 1;
    std::fprintf(stderr, "\r\033[K%s  %3d %%  %.0f MB", label_.c_str(), static_cast<int>(share * kPercent),
                 static_cast<double>(position) / kBytesAMegabyte);
    shown_ = true;
    last_ = std::chrono::steady_clock::now();
}

std::string count(uint64_t number, const char* singular)
{
    return std::to_string(number) + " " + singular + (number == 1 ? "" : "s");
}

std::string clockText(double seconds)
{
    const auto whole = static_cast<long long>(std::llround(seconds * kMilliseconds));
    const long long minutes = whole / kMilliseconds / kSixty;
    char text[64];
    if (minutes < kSixty) {
        std::snprintf(text, sizeof(text), "%02lld:%02lld.%03lld", minutes, whole / kMilliseconds % kSixty,
                      whole % kMilliseconds);
    } else {
        std::snprintf(text, sizeof(text), "%lld:%02lld:%02lld.%03lld", minutes / kSixty, minutes % kSixty,
                      whole / kMilliseconds % kSixty, whole % kMilliseconds);
    }
    return text;
}

std::optional<double> parseTime(const std::string& text)
{
    double seconds = 0;
    size_t from = 0;
    for (int parts = 0; parts < 3; ++parts) {
        const size_t colon = text.find(':', from);
        const bool last = colon == std::string::npos;
        const std::string part = text.substr(from, last ? colon : colon - from);
        if (!isNumber(part, last)) {
            return std::nullopt;
        }
        seconds = seconds * kSixty + std::strtod(part.c_str(), nullptr);
        if (last) {
            return seconds <= kLongest ? std::optional(seconds) : std::nullopt;
        }
        from = colon + 1;
    }
    return std::nullopt;
}

}  // namespace recording
