#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <fstream>
#include <memory>
#include <system_error>

#include "cli/BoardFiles.h"
#include "cli/ChildProcess.h"
#include "cli/Launcher.h"
#include "cli/Report.h"
#include "cli/Sources.h"
#include "console/Console.h"

namespace cli {
namespace {

constexpr std::array kForwarded{SIGINT, SIGTERM, SIGHUP, SIGQUIT};

/// The signals that the launcher lives by, held back so that it can wait for them one by one. Nothing is lost
/// between looking and waiting.
class AwaitedSignals {
public:
    AwaitedSignals()
    {
        std::signal(SIGCHLD,
                    SIG_DFL);  // a parent may have had it ignored, and then no child could be waited for
        sigemptyset(&signals_);
        sigaddset(&signals_, SIGCHLD);
        for (const int number : kForwarded) {
            sigaddset(&signals_, number);
        }
        ::pthread_sigmask(SIG_BLOCK, &signals_, nullptr);
    }

    /// The next one that was sent to this process alone; those of a terminal's keys reach the program anyway.
    int next() const
    {
        siginfo_t information = {};
        const int number = ::sigwaitinfo(&signals_, &information);
        return information.si_code == SI_KERNEL && number != SIGCHLD ? 0 : number;
    }

private:
    sigset_t signals_{};
};

int awaitEnd(ChildProcess& program, Sources& sources, const AwaitedSignals& signals)
{
    auto status = program.status();
    while (!status) {
        const int number = signals.next();
        if (number > 0 && number != SIGCHLD) {
            program.signal(number);
        }
        sources.watch();
        status = program.status();
    }
    return *status;
}

/// Serves the console if it is asked for. Only when all children are there: it has threads.
std::unique_ptr<console::Console> openConsole(const board::Board& board, console::Listener listener)
{
    if (!listener.socket.isOpen()) {
        return nullptr;
    }
    const std::string url = listener.url;
    auto opened = std::make_unique<console::Console>(board, std::move(listener));
    std::fprintf(stderr, opened->serving() ? "vboard: console at %s\n" : "vboard: no console at %s\n",
                 url.c_str());
    return opened;
}

/// Runs the program on a board that is up; its exit status, or the one that says that it did not start.
int runProgram(const RunRequest& request, LiveBoard& live, Sources& sources, const AwaitedSignals& signals,
               console::Listener listener)
{
    ChildSetup setup;
    setup.command = request.program;
    setup.signalAtLaunchersEnd = SIGTERM;
    setup.processId = &live.board().state().program;
    const std::string wrong = boardEnvironment(live.board().folder(), request.foreign, setup.environment);
    if (!wrong.empty()) {
        return complain(wrong);
    }
    int error = 0;
    auto program = ChildProcess::start(setup, error);
    if (!program) {
        complain("cannot run " + request.program.front() + ": " + std::generic_category().message(error));
        return statusOfFailedStart(error);
    }
    const auto console = openConsole(live.board(), std::move(listener));
    return awaitEnd(*program, sources, signals);
}

/// A socket that is not open when no console is asked for; what is wrong, empty when nothing.
std::string listen(const std::optional<console::Address>& address, console::Listener& listener)
{
    if (!address) {
        return {};
    }
    listener = console::listenAt(*address);
    return listener.socket.isOpen()
               ? std::string()
               : "cannot listen at " + address->host + " port " + std::to_string(address->port) + ": " +
                     std::generic_category().message(errno) + "; choose another one, or 0 for any";
}

}  // namespace

int run(const RunRequest& request)
{
    std::string wrong = Sources::check(request.board);
    if (!wrong.empty()) {
        return complain(wrong);
    }
    std::ofstream report(request.report, std::ios::trunc);
    if (!request.report.empty() && !report) {
        return complain("cannot write the report " + request.report +
                        ": choose a file in a folder that can be written");
    }
    console::Listener listener;
    wrong = listen(request.console, listener);
    if (!wrong.empty()) {
        return complain(wrong);
    }
    const auto live = LiveBoard::make(request.board, wrong);
    if (live == nullptr) {
        return complain(wrong);
    }
    const AwaitedSignals signals;
    Sources sources;
    wrong = sources.start(request.board, live->board());
    if (!wrong.empty()) {
        return complain(wrong);
    }
    const int status = runProgram(request, *live, sources, signals, std::move(listener));
    listLeftovers(live->board(), stderr);
    if (!request.report.empty() && !writeReport(live->board(), status, report)) {
        complain("cannot write the report " + request.report);
    }
    return status;
}

}  // namespace cli
