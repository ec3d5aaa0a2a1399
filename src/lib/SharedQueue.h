#pragma once

#include <cstddef>
#include <deque>
#include <mutex>

/// Unbounded first-in first-out queue of values that two threads share.
///
/// Threads: any; each operation holds the queue's own lock for one copy and nothing else.
template <typename T>
class SharedQueue {
public:
    void push(const T& item)
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        items_.push_back(item);
    }

    /// Takes the oldest item. False when there is none; `out` is then left as it was.
    bool pop(T& out)
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        if (items_.empty()) {
            return false;
        }
        out = items_.front();
        items_.pop_front();
        return true;
    }

    size_t size() const
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        return items_.size();
    }

    bool empty() const
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        return items_.empty();
    }

private:
    mutable std::mutex mutex_;
    std::deque<T> items_;
};
