// The controller for service work and tests: says over the daemon's queues what a controlling process would
// say, and shows what the daemon reports.

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <exception>
#include <optional>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "CommandLine.h"
#include "Protocol.h"
#include "Queues.h"

namespace {

using namespace std::chrono_literals;
using command_line::kBadUsage;
using control::Queue;

constexpr int kDone = 0;
constexpr int kFailed = 1;

constexpr Queue::Duration kPatience = 2s;
constexpr Queue::Duration kListenStep = 200ms;  // how soon an interrupt is seen at the latest

constexpr const char* kTakesAway =
    "Reading takes the messages away from the device's own controller: on a panel in service that controller "
    "misses what is read here.";

volatile std::sig_atomic_t interrupted = 0;

struct Arguments {
    std::string state;
    std::vector<unsigned> channels;
    std::string name;
    std::string bitrate;
    bool follow = false;
    bool json = false;
};

using Verb = command_line::Verb<Arguments>;

int fail(int status, const std::string& text)
{
    std::fprintf(stderr, "velcamctl: %s\n", text.c_str());
    return status;
}

std::string errorText(int error)
{
    return std::generic_category().message(error);
}

int failedOpen(const char* queue, int error)
{
    const std::string name = std::string("queue ") + queue;
    if (error == ENOENT) {
        return fail(kFailed, name +
                                 " is not there; start velcamd first (one on a virtual board is reached by "
                                 "\"vboard attach --board DIR -- velcamctl ...\")");
    }
    return fail(kFailed, name + " cannot be opened: " + errorText(error) + "; run as a user who may use it");
}

int send(const control::Packet& packet)
{
    Queue queue(control::kRequestQueue, Queue::Direction::kSend);
    if (!queue.isOpen()) {
        return failedOpen(control::kRequestQueue, queue.error());
    }
    if (queue.send(control::encode(packet), kPatience)) {
        return kDone;
    }
    const std::string name = std::string("queue ") + control::kRequestQueue;
    if (queue.error() == ETIMEDOUT) {
        return fail(kFailed, name + " is full and nobody empties it; check that velcamd runs");
    }
    return fail(kFailed, name + " does not take the message: " + errorText(queue.error()));
}

control::Channels channelsOf(const Arguments& arguments)
{
    control::Channels channels{};
    const size_t given = std::min(arguments.channels.size(), channels.size());
    for (size_t i = 0; i < given; ++i) {
        channels[i] = static_cast<uint8_t>(arguments.channels[i]);
    }
    return channels;
}

void addChannels(CLI::App& verb, Arguments& arguments, bool required)
{
    constexpr unsigned kLastCamera = 4;
    verb.add_option("CH", arguments.channels,
                    "camera numbers, 0 for none: left pane, right pane, then the inputs to capture in their "
                    "place when they are 0; those not given are 0")
        ->expected(-1)
        ->required(required)
        ->check(CLI::Range(0U, kLastCamera));
}

void addState(CLI::App& verb, Arguments& arguments)
{
    verb.add_option("STATE", arguments.state, "idle, camera, backup or transfer")
        ->required()
        ->check(CLI::IsMember({"idle", "camera", "backup", "transfer"}));
    addChannels(verb, arguments, false);
}

int runState(const Arguments& arguments)
{
    const auto state = control::stateByName(arguments.state);
    return state ? send(control::stateRequest(*state, channelsOf(arguments))) : kBadUsage;
}

void addPlay(CLI::App& verb, Arguments& arguments)
{
    verb.add_option("NAME", arguments.name, "file in the directory of stored videos")
        ->required()
        ->check([](const std::string& name) {
            return control::playRequest(name)
                       ? std::string()
                       : "a video's name has 1 to " + std::to_string(control::kNameMax) + " bytes";
        });
}

int runPlay(const Arguments& arguments)
{
    const auto packet = control::playRequest(arguments.name);
    return packet ? send(*packet) : kBadUsage;
}

int runChannels(const Arguments& arguments)
{
    return send(control::channelSelection(channelsOf(arguments)));
}

void addBitrate(CLI::App& verb, Arguments& arguments)
{
    verb.add_option("KBITS", arguments.bitrate,
                    "kbit/s: 1000, 2000 or 4000; in force from the daemon's next start")
        ->required()
        ->check(CLI::IsMember({"1000", "2000", "4000"}));
}

int runBitrate(const Arguments& arguments)
{
    constexpr int kDecimal = 10;
    const unsigned long rate = std::strtoul(arguments.bitrate.c_str(), nullptr, kDecimal);
    const auto packet = control::bitrateSelection(static_cast<unsigned>(rate));
    return packet ? send(*packet) : kBadUsage;
}

/// SIGINT ends what follows or listens in good order, with everything printed.
void catchInterrupt()
{
    struct sigaction action = {};
    action.sa_handler = [](int) { interrupted = 1; };
    ::sigaction(SIGINT, &action, nullptr);
}

/// False when nobody takes the output any more.
bool print(const control::Status& status, bool json)
{
    const std::string line = json ? control::toJson(status).dump() : control::describe(status);
    return std::puts(line.c_str()) != EOF;
}

int failedOutput()
{
    return fail(kFailed, "the output cannot be written: " + errorText(errno));
}

/// Whether a queue without a message may have one later.
bool mayGoOn(const Queue& queue)
{
    return queue.error() == ETIMEDOUT || queue.error() == EINTR;
}

int noStatus(const Queue& queue)
{
    if (interrupted != 0) {
        return kDone;
    }
    const std::string name = std::string("queue ") + control::kStatusQueue;
    if (queue.error() == ETIMEDOUT) {
        return fail(kFailed, "no status came within 2 s; check that velcamd runs");
    }
    return fail(kFailed, name + " cannot be read: " + errorText(queue.error()));
}

/// A daemon that is started anew makes a new queue of the same name.
void openAnew(std::optional<Queue>& queue)
{
    Queue now(control::kStatusQueue, Queue::Direction::kReceive);
    if (now.isOpen()) {
        queue.emplace(std::move(now));
    }
}

/// A line whenever the status changes, until interrupted. Silence means little: the daemon may be busy, or be
/// started anew.
int follow(std::optional<Queue>& queue, control::Status shown, bool json)
{
    while (interrupted == 0) {
        const auto status = queue->receiveStatus(kListenStep);
        if (!status) {
            if (!mayGoOn(*queue)) {
                return noStatus(*queue);
            }
            openAnew(queue);
        } else if (!(*status == shown)) {
            shown = *status;
            if (!print(shown, json)) {
                return failedOutput();
            }
        }
    }
    return kDone;
}

void addStatus(CLI::App& verb, Arguments& arguments)
{
    verb.add_flag("--follow", arguments.follow, "go on until interrupted, with a line at every change");
    verb.add_flag("--json", arguments.json, "a JSON object a line");
    verb.footer(kTakesAway);
}

int runStatus(const Arguments& arguments)
{
    std::optional<Queue> queue(std::in_place, control::kStatusQueue, Queue::Direction::kReceive);
    if (!queue->isOpen()) {
        return failedOpen(control::kStatusQueue, queue->error());
    }
    catchInterrupt();
    if (!queue->discardOld(kPatience)) {
        return noStatus(*queue);
    }
    const auto status = queue->receiveStatus(kPatience);
    if (!status) {
        return noStatus(*queue);
    }
    if (!print(*status, arguments.json)) {
        return failedOutput();
    }
    return arguments.follow ? follow(queue, *status, arguments.json) : kDone;
}

std::string timeOfDay()
{
    timespec now = {};
    tm local = {};
    std::array<char, 16> text{};
    ::clock_gettime(CLOCK_REALTIME, &now);
    ::localtime_r(&now.tv_sec, &local);
    std::strftime(text.data(), text.size(), "%H:%M:%S", &local);
    constexpr long kNanosecondsAMillisecond = 1000000;
    const std::string milliseconds = std::to_string(1000 + now.tv_nsec / kNanosecondsAMillisecond).substr(1);
    return std::string(text.data()) + "." + milliseconds;
}

void addListen(CLI::App& verb, Arguments& /*arguments*/)
{
    verb.footer(kTakesAway);
}

int runListen(const Arguments& /*arguments*/)
{
    Queue queue(control::kStatusQueue, Queue::Direction::kReceive);
    if (!queue.isOpen()) {
        return failedOpen(control::kStatusQueue, queue.error());
    }
    catchInterrupt();
    while (interrupted == 0) {
        const auto frame = queue.receive(kListenStep);
        if (frame) {
            std::printf("%s %s\n", timeOfDay().c_str(), control::describe(*frame).c_str());
        } else if (!mayGoOn(queue)) {
            return noStatus(queue);
        }
    }
    return kDone;
}

constexpr std::array kVerbs{
    Verb{"state", "Ask for a media state, with the cameras to show", addState, runState},
    Verb{"play", "Ask for the playback of a stored video", addPlay, runPlay},
    Verb{"channels", "Choose the cameras to show",
         [](CLI::App& verb, Arguments& arguments) { addChannels(verb, arguments, true); }, runChannels},
    Verb{"bitrate", "Set the recording's bitrate", addBitrate, runBitrate},
    Verb{"status", "Show what the daemon reports now", addStatus, runStatus},
    Verb{"listen", "Show every message of the daemon as it comes, until interrupted", addListen, runListen},
};

int parseAndRun(int argc, char** argv)
{
    Arguments arguments;
    CLI::App app{"Drives velcamd over its message queues and shows what it reports.", "velcamctl"};
    int status = kDone;
    const Verb* verb = command_line::parse(app, kVerbs, arguments, argc, argv, status);
    if (verb == nullptr) {
        return status;
    }
    if (arguments.channels.size() > control::Channels().size()) {
        return fail(kBadUsage, "at most four channels can be chosen; see velcamctl --help");
    }
    return verb->run(arguments);
}

}  // namespace

int main(int argc, char** argv)
{
    std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
    try {
        return parseAndRun(argc, argv);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "velcamctl: %s\n", error.what());
        return kFailed;
    }
}
