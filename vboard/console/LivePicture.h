#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "board/Board.h"

namespace console {

/// The panel as a stream of JPEG pictures, made once for all who watch and only while somebody does.
///
/// Threads:  any; one of its own, of low priority, composes and encodes, at most 15 pictures a second and
///           never more than half of the time.
/// Lifetime: until stop() or its end; the board must outlive it. A picture lives as long as somebody holds
///           it.
class LivePicture {
public:
    explicit LivePicture(const board::Board& board);
    ~LivePicture();
    LivePicture(const LivePicture&) = delete;
    LivePicture& operator=(const LivePicture&) = delete;

    void stop();

    struct Picture {
        uint64_t number = 0;
        std::string jpeg;
    };
    /// A picture that is made after this call, or after the one with the number `seen` when that is not 0.
    /// Null when pictures have come to an end.
    std::shared_ptr<const Picture> await(uint64_t seen);

private:
    using Clock = std::chrono::steady_clock;

    void produce();
    bool awaitWish();
    void rest(Clock::time_point began);

    const board::Board& board_;
    std::mutex lock_;
    std::condition_variable wish_, news_;
    Clock::time_point wishedUntil_;
    std::shared_ptr<const Picture> last_ = std::make_shared<Picture>();
    bool stop_ = false;
    std::thread producer_;
};

}  // namespace console
