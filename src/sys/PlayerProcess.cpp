#include "sys/PlayerProcess.h"

#include <pthread.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <string_view>

namespace {

constexpr const char* kPlayer = "/usr/bin/gst-launch-1.0";
constexpr int kPlayerMissing = 127;  // as a shell says it
constexpr int kFarewellPolls = 20;
constexpr useconds_t kFarewellPollUs = 10000;

/// The child's side of a fork in a process with threads: nothing here may allocate, lock or flush.
[[noreturn]] void becomePlayer(char* const* arguments, const sigset_t& signals)
{
    constexpr std::string_view kLine = "Start Video Playback\n";
    if (write(STDOUT_FILENO, kLine.data(), kLine.size()) < 0) {
        // Nobody reads: play all the same.
    }
    setpgid(0, 0);
    // The daemon's handler would swallow a request to stop that comes before the player has its own.
    signal(SIGINT, SIG_DFL);
    pthread_sigmask(SIG_SETMASK, &signals, nullptr);
    execv(kPlayer, arguments);
    _exit(kPlayerMissing);
}

/// The child's process id, or -1.
pid_t forkPlayer(char* const* arguments)
{
    sigset_t interrupt;
    sigset_t former;
    sigemptyset(&interrupt);
    sigaddset(&interrupt, SIGINT);
    pthread_sigmask(SIG_BLOCK, &interrupt, &former);
    const pid_t child = fork();
    if (child == 0) {
        becomePlayer(arguments, former);
    }
    pthread_sigmask(SIG_SETMASK, &former, nullptr);
    return child;
}

}  // namespace

bool PlayerProcess::start(const std::string& file)
{
    const std::string location = "location=" + file;
    // Made before the fork. exec takes the vector as non-const and does not write to it.
    const char* const arguments[] = {"gst-launch-1.0",
                                     "filesrc",
                                     location.c_str(),
                                     "!",
                                     "decodebin",
                                     "name=d",
                                     "!",
                                     "videoconvert",
                                     "!",
                                     "imxipuvideosink",
                                     "framebuffer=/dev/fb1",
                                     "d.",
                                     "!",
                                     "audioconvert",
                                     "!",
                                     "audioresample",
                                     "!",
                                     "autoaudiosink",
                                     nullptr};
    videoplay_pid = forkPlayer(const_cast<char* const*>(arguments));
    return videoplay_pid != -1;
}

bool PlayerProcess::collect()
{
    // One that someone else has collected (-1) has ended too.
    if (!isThere() || waitpid(videoplay_pid, nullptr, WNOHANG) == 0) {
        return false;
    }
    videoplay_pid = -1;
    return true;
}

void PlayerProcess::interrupt() const
{
    if (isThere()) {
        kill(videoplay_pid, SIGINT);
    }
}

void PlayerProcess::end()
{
    interrupt();
    for (int poll = 0; poll < kFarewellPolls && isThere() && !collect(); ++poll) {
        usleep(kFarewellPollUs);
    }
}
