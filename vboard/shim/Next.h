#pragma once

#include <dlfcn.h>

#include <atomic>

namespace shim {

/// A function of libc that an entry point stands before, looked up at its first call.
///
/// Threads: any, also before `main` and inside a sanitizer's runtime: no lock of its own, no dynamic
///          initialisation. Two threads that look it up at once find the same.
template <typename Pointer>
class Next {
public:
    constexpr explicit Next(const char* name) : name_(name) {}

    Pointer get()
    {
        void* found = found_.load(std::memory_order_acquire);
        if (found == nullptr) {
            found = ::dlsym(RTLD_NEXT, name_);
            found_.store(found, std::memory_order_release);
        }
        return reinterpret_cast<Pointer>(found);
    }

private:
    const char* const name_;
    std::atomic<void*> found_{nullptr};
};

}  // namespace shim

/// The function of this name that the program would have called without the board.
#define NEXT(function)                                         \
    ([] {                                                      \
        static shim::Next<decltype(&::function)> s(#function); \
        return s.get();                                        \
    }())
