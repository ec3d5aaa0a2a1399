// Preloaded into a program, so that its wall clock is the test's.
#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdlib>

#include "SteppedClock.h"

namespace {

/// Null until the file is there.
const SteppedClock* sharedClock()
{
    static const SteppedClock* const clock = [] {
        const char* name =
            std::getenv(SteppedClock::kVariable);  // NOLINT(concurrency-mt-unsafe): set before main
        const int file = name == nullptr ? -1 : ::open(name, O_RDWR | O_CLOEXEC);
        return file == -1 ? nullptr : SteppedClock::map(file);
    }();
    return clock;
}

int realTime(clockid_t id, timespec* time)
{
    return static_cast<int>(::syscall(SYS_clock_gettime, id, time));
}

}  // namespace

extern "C" {

int clock_gettime(clockid_t id, timespec* time) noexcept
{
    const int result = realTime(id, time);
    if (result == 0 && id == CLOCK_REALTIME && sharedClock() != nullptr) {
        time->tv_sec = static_cast<time_t>(sharedClock()->shownAt(time->tv_sec));
    }
    return result;
}

time_t time(time_t* result) noexcept
{
    timespec now = {};
    clock_gettime(CLOCK_REALTIME, &now);
    if (result != nullptr) {
        *result = now.tv_sec;
    }
    return now.tv_sec;
}
}
