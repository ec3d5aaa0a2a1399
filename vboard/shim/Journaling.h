#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>

namespace shim {

/// The entry points' notes in the board's journal, when it keeps one. A note is made after the call has
/// worked; `errno` is left alone. Threads: any. Entry points are built without 64-bit file offsets: only
/// types of fixed width here.
namespace journaling {

bool isOn();

/// A call and its note, between which no other call of this process is noted: what a thread has seen of a
/// file stands in the journal before what it does next.
class Step {
public:
    Step();
    ~Step();
    Step(const Step&) = delete;
    Step& operator=(const Step&) = delete;

private:
    const bool held_;
};

/// A file of the board is about to be opened with these flags, and was.
class Opening {
public:
    Opening(const char* there, int flags);
    void done(int fd) const;

private:
    bool creates_ = false;
    bool empties_ = false;
};

/// So many bytes were written where the descriptor's position was; `offset` of a write that has its own.
void written(int fd, const void* data, ssize_t bytes, int64_t offset = -1);
void truncated(const char* there, int64_t bytes);
void renamed(const char* from, const char* to);
void removed(const char* there);

/// A descriptor's file or folder is brought to the medium between the two.
class Syncing {
public:
    explicit Syncing(int fd);
    int done(int result) const;  ///< gives `result` back

private:
    void note(bool begins) const;

    std::string folder_;  // as the board names it; empty for a file
    uint64_t inode_ = 0;
    bool noted_ = false;
};

}  // namespace journaling
}  // namespace shim
