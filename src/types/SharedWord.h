#pragma once

#include <atomic>

/// One word that crosses threads: written by one, read by others, each access whole.
///
/// It reads, assigns and copies like the plain `T` that it stands for, so a record of such words stays a
/// record. What a thread did before it wrote a word is done for whoever reads that value (sequentially
/// consistent); fields that must change together need a lock.
///
/// Threads: any. Also safe in a signal handler (asserted: the board's processor has lock-free words of this
///          size).
template <typename T>
class SharedWord {  // NOLINT(cppcoreguidelines-special-member-functions): moving a word is copying it
public:
    SharedWord() = default;
    SharedWord(T value) : word_(value) {}  // implicit on purpose: it stands for a T
    SharedWord(const SharedWord& other) : word_(other.load()) {}
    ~SharedWord() = default;

    SharedWord& operator=(const SharedWord& other)
    {
        word_ = other.load();
        return *this;
    }

    SharedWord& operator=(T value)
    {
        word_ = value;
        return *this;
    }

    operator T() const { return load(); }

    /// The value, where an implicit conversion would be unclear (formatted printing, comparisons of
    /// enumerators).
    T load() const { return word_.load(); }

    /// Takes the value and leaves another one, so that a request written meanwhile by another thread is not
    /// lost.
    T exchange(T value) { return word_.exchange(value); }

private:
    static_assert(std::atomic<T>::is_always_lock_free, "a shared word must not hide a lock");
    std::atomic<T> word_{};
};
