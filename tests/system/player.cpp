// Stands in for the media player on a board: writes down how it was started, then plays until it is
// interrupted. A video whose name holds "short" ends by itself at once.

#include <sys/prctl.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>

namespace {

std::string folder()
{
    const char* board = std::getenv("VBOARD_FOLDER");  // NOLINT(concurrency-mt-unsafe): one thread
    return board == nullptr ? "." : board;
}

void writeDown(const std::string& name, const std::string& text)
{
    const std::string path = folder() + "/" + name;
    std::ofstream(path + ".new") << text;
    static_cast<void>(
        std::rename((path + ".new").c_str(), path.c_str()));  // appears whole; the test sees it missing
}

}  // namespace

int main(int argc, char** argv)
{
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);      // the daemon leaves it running
    constexpr unsigned kLongestVideo = 120;  // seconds
    ::alarm(kLongestVideo);
    sigset_t interrupt;
    ::sigemptyset(&interrupt);
    ::sigaddset(&interrupt, SIGINT);
    ::pthread_sigmask(SIG_BLOCK, &interrupt, nullptr);

    std::string arguments;
    for (int i = 0; i < argc; ++i) {
        arguments += std::string(argv[i]) + "\n";
    }
    writeDown("player.arguments", arguments);
    writeDown("player.group", std::to_string(::getpgrp()));
    writeDown("player.id", std::to_string(::getpid()));
    if (arguments.find("short") != std::string::npos) {
        return 0;
    }
    int signal = 0;
    ::sigwait(&interrupt, &signal);
    writeDown("player.interrupted", "");
    return 0;
}
