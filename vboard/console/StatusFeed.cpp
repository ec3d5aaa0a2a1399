#include "console/StatusFeed.h"

#include <cerrno>

namespace console {
namespace {

using namespace std::chrono_literals;

constexpr auto kPatience = 200ms;  // how soon the reader sees that it is to end
constexpr auto kSilence = 2s;      // without a report for so long, the last one says nothing any more

}  // namespace

StatusFeed::StatusFeed(const std::string& queueName) : queueName_(queueName), reader_([this] { read(); })
{
}

StatusFeed::~StatusFeed()
{
    stop();
    reader_.join();
}

void StatusFeed::stop()
{
    const std::lock_guard<std::mutex> guard(lock_);
    stop_ = true;
    news_.notify_all();
}

bool StatusFeed::stopped()
{
    const std::lock_guard<std::mutex> guard(lock_);
    return stop_;
}

StatusFeed::Report StatusFeed::await(uint64_t seen, std::chrono::milliseconds limit)
{
    std::unique_lock<std::mutex> guard(lock_);
    news_.wait_for(guard, limit, [&] { return stop_ || last_.number != seen; });
    return last_;
}

/// One round is one opening of the queue, which is given up when nothing comes: the daemon may have made a
/// new one by that name.
void StatusFeed::read()
{
    while (!stopped()) {
        control::Queue queue(queueName_, control::Queue::Direction::kReceive);
        auto status = queue.isOpen() ? queue.receiveStatus(kPatience) : std::nullopt;
        for (; status && !stopped(); status = queue.receiveStatus(kPatience)) {
            note(status);
        }
        note(std::nullopt);
        std::unique_lock<std::mutex> guard(lock_);
        news_.wait_for(guard, queue.isOpen() ? 0ms : kPatience, [this] { return stop_; });
    }
}

void StatusFeed::note(const std::optional<control::Status>& status)
{
    const std::lock_guard<std::mutex> guard(lock_);
    if (status) {
        lastCame_ = Clock::now();
        last_ = {++reports_, *status};
    } else if (Clock::now() - lastCame_ > kSilence) {
        last_ = {};
    }
    news_.notify_all();
}

}  // namespace console
