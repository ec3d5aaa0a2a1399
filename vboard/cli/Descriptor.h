#pragma once

#include <unistd.h>

#include <utility>

namespace cli {

/// An open descriptor, closed at the end of its owner's life.
class Descriptor {
public:
    Descriptor() = default;
    explicit Descriptor(int fd) : fd_(fd) {}
    ~Descriptor()
    {
        if (isOpen()) {
            ::close(fd_);
        }
    }
    Descriptor(Descriptor&& other) noexcept : fd_(other.release()) {}
    Descriptor& operator=(Descriptor&& other) noexcept
    {
        std::swap(fd_, other.fd_);
        return *this;
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    int get() const { return fd_; }
    bool isOpen() const { return fd_ >= 0; }
    /// Gives it up without closing it.
    int release() { return std::exchange(fd_, -1); }

private:
    int fd_ = -1;
};

}  // namespace cli
