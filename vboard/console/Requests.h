#pragma once

#include <chrono>
#include <functional>
#include <mutex>
#include <string>

#include "Protocol.h"
#include "console/HttpServer.h"

namespace console {

/// What is asked of the daemon, from a request's JSON to its queue.
///
/// Threads: any.
/// Bounds:  twenty requests a second, so that no page can keep the daemon busy with them.
class Requests {
public:
    explicit Requests(std::string queueName) : queueName_(std::move(queueName)) {}

    /// Each kind of request with its path: {"state": NAME, "channels": [N...]}, {"channels": [N...]},
    /// {"kbps": N} and {"name": NAME}. Answered with 204 when the daemon's queue has taken it.
    std::vector<Route> routes();

private:
    bool withinRate();
    HttpResponse send(const control::Packet& packet);

    const std::string queueName_;
    std::mutex lock_;
    std::chrono::steady_clock::time_point second_;
    int inSecond_ = 0;
};

}  // namespace console
