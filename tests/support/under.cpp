// Runs a program on a board with one more library preloaded, which keeps what it notes in a file:
//   under first|last LIBRARY FILE PROGRAM [ARG...]
// "first" puts the library before the board's, so that it sees the program's calls; "last" behind it.

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>

namespace {

void set(const char* name, const std::string& value)
{
    setenv(name, value.c_str(), 1);  // NOLINT(concurrency-mt-unsafe): one thread
}

std::string nowNs()
{
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    constexpr long long kNanosecondsASecond = 1000000000;
    return std::to_string(now.tv_sec * kNanosecondsASecond + now.tv_nsec);
}

}  // namespace

int main(int argc, char** argv)
{
    constexpr int kProgram = 4;
    const bool first = argc > kProgram && std::strcmp(argv[1], "first") == 0;
    if (argc <= kProgram || (!first && std::strcmp(argv[1], "last") != 0)) {
        std::fprintf(stderr, "usage: under first|last LIBRARY FILE PROGRAM [ARG...]\n");
        return 2;
    }
    const char* present = std::getenv("LD_PRELOAD");  // NOLINT(concurrency-mt-unsafe): one thread
    const std::string others = present == nullptr ? "" : present;
    const std::string library = argv[2];
    set("LD_PRELOAD", first ? library + ":" + others : others + ":" + library);
    set("WATCH_FILE", argv[3]);
    set("WATCH_EXECUTED", nowNs());
    execv(argv[kProgram], argv + kProgram);
    std::perror("under: cannot run the program");
    constexpr int kNotStarted = 126;
    return kNotStarted;
}
