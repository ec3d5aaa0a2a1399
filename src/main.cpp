#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string_view>

#include "sys/SysManager.h"

/// The program's one object. Made before main(), destroyed at exit, when its log goes where it is kept.
SysManager core;

namespace {

constexpr int kBadUsage = 2;
constexpr unsigned kReminderSeconds = 1;

constexpr const char* kHelp =
    "Usage: velcamd [--help | --version]\n"
    "\n"
    "Records and shows the cameras of the panel until SIGINT. It takes no settings here: they are in\n"
    "/velmarine/config/VelMain.cfg, and requests come on the message queue /zentcam.\n"
    "\n"
    "Exit status: 0 after an orderly end, 1 when the system could not start, 2 for a usage error.\n";

/// The exit status when the arguments leave nothing to run.
std::optional<int> handleArguments(int count, char** arguments)
{
    if (count <= 1) {
        return std::nullopt;
    }
    const std::string_view argument = arguments[1];
    if (count == 2 && argument == "--help") {
        std::fputs(kHelp, stdout);
        return EXIT_SUCCESS;
    }
    if (count == 2 && argument == "--version") {
        std::puts("velcamd " VELCAM_VERSION);
        return EXIT_SUCCESS;
    }
    std::fputs("velcamd: it takes no arguments but --help or --version; run it without any\n", stderr);
    return kBadUsage;
}

void sig_handle(int /*signal*/)
{
    core.exitApplication();
    // The frame loop may look at that and then begin to wait for a camera that has stopped: it is interrupted
    // again, and again, until it has seen it.
    alarm(kReminderSeconds);
}

/// Signals interrupt what the process waits in (no SA_RESTART).
void onInterrupt(void (*handler)(int))
{
    struct sigaction action = {};
    action.sa_handler = handler;
    sigemptyset(&action.sa_mask);
    for (const int number : {SIGINT, SIGALRM}) {
        sigaction(number, &action, nullptr);  // cannot fail for a valid signal and handler
    }
}

}  // namespace

int main(int count, char** arguments)
{
    if (const std::optional<int> status = handleArguments(count, arguments)) {
        return *status;
    }
    // Whoever collects the output sees each line as it is printed, also through a pipe.
    std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);

    onInterrupt(sig_handle);
    if (!core.init()) {
        core.log_item("(main): Could not init core", logger::LOG_ERROR);
        return EXIT_FAILURE;
    }
    core.start();
    core.runVmgr();
    onInterrupt(SIG_IGN);  // it ends: nothing that it waits for is to be cut short, and core goes
    core.log_item("(main): Shutting down application", logger::LOG_NOTICE);
    core.stop();
    return EXIT_SUCCESS;
}
