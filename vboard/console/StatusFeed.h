#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include "Protocol.h"
#include "Queues.h"

namespace console {

/// Reads what the daemon reports, as the controlling process on the panel does, and keeps the last of it.
///
/// Threads:  any; one of its own reads. That one keeps its priority: a daemon whose queue is full waits.
/// Lifetime: reads from its making to stop() or its end; the queue may come, go and come again.
class StatusFeed {
public:
    using Clock = std::chrono::steady_clock;

    explicit StatusFeed(const std::string& queueName);
    ~StatusFeed();
    StatusFeed(const StatusFeed&) = delete;
    StatusFeed& operator=(const StatusFeed&) = delete;

    /// Ends the reading and all waiting.
    void stop();
    bool stopped();

    struct Report {
        uint64_t number = 0;  ///< 0: nothing has come yet, or nothing for a while
        control::Status status;
    };
    /// The last report; waits for another one than that with the number `seen`, at most so long.
    Report await(uint64_t seen, std::chrono::milliseconds limit);

private:
    void read();
    void note(const std::optional<control::Status>& status);

    const std::string queueName_;
    std::mutex lock_;
    std::condition_variable news_;
    uint64_t reports_ = 0;
    Clock::time_point lastCame_;
    Report last_;
    bool stop_ = false;
    std::thread reader_;
};

}  // namespace console
