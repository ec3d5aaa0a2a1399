#include "Panel.h"

#include <mqueue.h>

#include <algorithm>
#include <csignal>

#include "paths/Paths.h"

namespace support {
namespace {

constexpr Duration kQueuePatience{50};

}  // namespace

StatusWatch::StatusWatch(const std::string& queueName) : queueName_(queueName), reader_([this] { read(); })
{
}

StatusWatch::~StatusWatch()
{
    {
        const std::lock_guard<std::mutex> guard(lock_);
        stop_ = true;
    }
    reader_.join();
}

void StatusWatch::read()
{
    std::optional<control::Queue> queue;
    const auto stopped = [this] {
        const std::lock_guard<std::mutex> guard(lock_);
        return stop_;
    };
    const auto open = [&] {
        queue.emplace(queueName_, control::Queue::Direction::kReceive);
        return queue->isOpen();
    };
    waitUntil([&] { return stopped() || open(); });
    while (queue && queue->isOpen() && !stopped()) {
        const auto frame = queue->receive(kQueuePatience);
        if (frame) {
            note(*frame);
        }
    }
}

void StatusWatch::note(const control::Frame& frame)
{
    const auto packet = control::decode(frame);
    const std::lock_guard<std::mutex> guard(lock_);
    if (packet && packet->id == static_cast<uint8_t>(control::MessageId::kStarted)) {
        ++announcements_;
    }
    const auto status = packet ? control::readStatus(*packet) : std::nullopt;
    if (status) {
        seen_.push_back({*status, Clock::now(), seen_.size()});
        news_.notify_all();
    }
}

std::optional<StatusWatch::Seen> StatusWatch::await(const Condition& condition, Clock::time_point since,
                                                    Duration limit)
{
    std::unique_lock<std::mutex> guard(lock_);
    std::optional<Seen> found;
    news_.wait_until(guard, Clock::now() + limit, [&] {
        const auto meets = [&](const Seen& seen) { return seen.when >= since && condition(seen.status); };
        const auto first = std::find_if(seen_.begin(), seen_.end(), meets);
        found = first == seen_.end() ? std::nullopt : std::optional(*first);
        return found.has_value();
    });
    return found;
}

int StatusWatch::announcements()
{
    const std::lock_guard<std::mutex> guard(lock_);
    return announcements_;
}

Panel::Panel() : board_(folder_.file("board"))
{
}

Panel::~Panel()
{
    watch_.reset();
    launcher_.reset();
    removeQueues();
}

void Panel::removeQueues() const
{
    for (const char* name : board::paths::kQueues) {
        ::mq_unlink(queueName(name).c_str());
    }
}

bool Panel::layOut(const Command& options)
{
    start(options, {"/bin/true"}, Reader::kNone);
    return awaitEnd() == 0;
}

void Panel::start(const Command& options, const Command& programAndArguments, Reader reader)
{
    watch_.reset();
    launcher_.reset();
    removeQueues();
    // What an earlier run left is not news of this one.
    for (const char* name : {"output", "errors", "report"}) {
        std::filesystem::remove(folder_.file(name));
    }
    const Command command =
        Command{program("vboard"), "run", "--board", board_, "--report", folder_.file("report")} + options +
        Command{"--"} + programAndArguments;
    launcher_ = std::make_unique<Child>(command, folder_.file("output"), folder_.file("errors"));
    if (reader == Reader::kWatch) {
        watch_ = std::make_unique<StatusWatch>(queueName(control::kStatusQueue));
    }
}

bool Panel::layOutWithPlayer(const std::string& program)
{
    const std::filesystem::path player = file("/usr/bin/gst-launch-1.0");
    std::error_code failed;
    return layOut() && (std::filesystem::create_directories(player.parent_path(), failed) || !failed) &&
           std::filesystem::copy_file(program, player, failed);
}

bool Panel::awaitUp()
{
    const auto began = Clock::now();
    constexpr Duration kStep{100};
    while (running() && Clock::now() - began < kGenerous) {
        if (watch_->await([](const control::Status&) { return true; }, began, kStep)) {
            return true;
        }
    }
    return false;
}

bool Panel::awaitReports(int count)
{
    const auto any = [](const control::Status&) { return true; };
    while (count > 0 && watch_->await(any, Clock::now())) {
        --count;
    }
    return count == 0;
}

bool Panel::awaitRecording(bool records)
{
    const auto does = [=](const control::Status& status) { return status.isRecording == records; };
    return watch_->await(does, Clock::now()).has_value();
}

void Panel::interrupt()
{
    launcher_->signal(SIGINT);
}

std::optional<int> Panel::end(Duration limit)
{
    interrupt();
    return awaitEnd(limit);
}

std::optional<int> Panel::awaitEnd(Duration limit)
{
    return launcher_->wait(limit);
}

bool Panel::running()
{
    return launcher_ != nullptr && !launcher_->status();
}

bool Panel::request(const control::Packet& packet)
{
    return send(control::encode(packet));
}

bool Panel::send(const control::Frame& frame)
{
    control::Queue queue(queueName(control::kRequestQueue), control::Queue::Direction::kSend);
    return queue.isOpen() && queue.send(frame, kGenerous);
}

std::optional<StatusWatch::Seen> Panel::enter(control::MediaState state, const control::Channels& channels)
{
    const auto asked = Clock::now();
    if (!request(control::stateRequest(state, channels))) {
        return std::nullopt;
    }
    return watch_->await(
        [&](const control::Status& status) { return status.state == static_cast<uint8_t>(state); }, asked);
}

bool Panel::awaitOutput(const std::string& text, Duration limit)
{
    return waitUntil([&] { return said(text); }, limit);
}

std::string Panel::output() const
{
    return readFile(folder_.file("output"));
}

std::string Panel::errors() const
{
    return readFile(folder_.file("errors"));
}

Report Panel::report() const
{
    return Report::read(folder_.file("report"));
}

Png Panel::snapshot()
{
    const std::string picture = folder_.file("snapshot.png");
    const Outcome outcome = runToEnd({program("vboard"), "snapshot", "--board", board_, picture});
    return outcome.status == 0 ? readPng(picture) : Png();
}

bool Panel::awaitSnapshot(const std::function<bool(const Png&)>& condition, Duration limit)
{
    return waitUntil(
        [&] {
            const Png picture = snapshot();
            return !picture.rgb.empty() && condition(picture);
        },
        limit);
}

std::string Panel::queueName(const char* name) const
{
    return board::paths::queue(board_, name).value_or("");
}

}  // namespace support
