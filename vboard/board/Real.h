#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <string>

/// The real calls, made as system calls.
///
/// The board lives inside the process whose libc entry points it takes over, so its own code must not call
/// those names: it would be handed to itself, count itself and fail by its own fault plan. Everything below
/// goes straight to the kernel. Threads: any. Errors: a negative errno instead of -1, `errno` itself is left
/// alone.
namespace real {

int openAt(int directory, const char* path, int flags, mode_t mode = 0);
int open(const char* path, int flags, mode_t mode = 0);
int close(int fd);
ssize_t read(int fd, void* data, size_t bytes);
ssize_t write(int fd, const void* data, size_t bytes);
int truncate(int fd, off_t bytes);
int kill(pid_t process, int signal);
int unlink(const char* path);
pid_t processId();
pid_t threadId();

/// A shared read-write mapping; null when the kernel refuses.
void* mapShared(int fd, size_t bytes, off_t offset);
/// A mapping of a file's first bytes to read from; null when the kernel refuses.
const void* mapReadOnly(int fd, size_t bytes);
void unmap(const void* start, size_t bytes);

/// Size in bytes, or -1 when the path cannot be looked at.
off_t fileSize(const char* path);
bool exists(const char* path);

/// The path behind a descriptor, empty when there is none.
std::string pathOf(int fd);

/// Microseconds on the clock that only runs forward.
uint64_t monotonicUs();
/// False when a signal cut the sleep short.
bool sleepUs(uint64_t microseconds);

/// Waits until a descriptor can be read, was hung up, or the time is over: poll's events, 0 when there are
/// none.
short waitReadable(int fd, unsigned milliseconds);

/// Returns when a signal was handled: what a call that does not complete waits for.
void waitForSignal();

}  // namespace real
