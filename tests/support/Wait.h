#pragma once

#include <chrono>
#include <cstdlib>
#include <string>
#include <thread>

namespace support {

using Duration = std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

/// Long enough for a loaded machine and a sanitizer; only a test that fails ever waits so long.
constexpr Duration kGenerous{60'000};

/// VELCAM_LONG=1 asks for the long forms of tests that say more the longer they run.
inline bool isLong()
{
    const char* value = std::getenv("VELCAM_LONG");  // NOLINT(concurrency-mt-unsafe): nobody sets it
    return value != nullptr && std::string(value) == "1";
}

/// Waits until the condition holds; false when it did not within the limit.
template <typename Condition>
bool waitUntil(Condition condition, Duration limit = kGenerous)
{
    constexpr Duration kStep{2};
    const auto deadline = Clock::now() + limit;
    while (!condition()) {
        if (Clock::now() > deadline) {
            return false;
        }
        std::this_thread::sleep_for(kStep);
    }
    return true;
}

}  // namespace support
