// Runs a program on a board with one more library preloaded: under first|last LIBRARY PROGRAM [ARG...].
// "first" puts it before the board's library, so that it sees the program's calls; "last" behind it.
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>

int main(int argc, char** argv)
{
    if (argc < 4 || (std::strcmp(argv[1], "first") != 0 && std::strcmp(argv[1], "last") != 0)) {
        std::fprintf(stderr, "usage: under first|last LIBRARY PROGRAM [ARG...]\n");
        return 2;
    }
    const char* present = std::getenv("LD_PRELOAD");  // NOLINT(concurrency-mt-unsafe): one thread
    const std::string others = present == nullptr ? "" : present;
    const std::string library = argv[2];
    const std::string preload =
        std::strcmp(argv[1], "first") == 0 ? library + ":" + others : others + ":" + library;
    setenv("LD_PRELOAD", preload.c_str(), 1);  // NOLINT(concurrency-mt-unsafe): one thread
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    const std::string executed =
        std::to_string(static_cast<long long>(now.tv_sec) * 1000000000LL + now.tv_nsec);
    setenv("CALLWATCH_EXECUTED", executed.c_str(), 1);  // NOLINT(concurrency-mt-unsafe): one thread
    execv(argv[3], argv + 3);
    std::perror("under: cannot run the program");
    return 127;
}
