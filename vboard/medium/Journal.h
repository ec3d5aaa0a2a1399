#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "board/Board.h"

/// What the programs of a board did to its files, in the order in which they did it: the board's file
/// "journal", made by `vboard run --journal`. What a medium holds after a power cut is worked out from it
/// (medium/Medium.h).
///
/// Noted are the calls on descriptors and paths below /velmarine; not what is written through a stream of
/// libc or a mapping.
namespace board::journal {

constexpr const char* kFile = "journal";

/// Whose files it is about.
constexpr std::string_view kTree = "/velmarine/";

enum class Kind : uint32_t {
    kCreate,       ///< text: the name of a new, empty file; inode
    kWrite,        ///< bytes were written at `offset`
    kTruncate,     ///< the file has `offset` bytes now
    kRename,       ///< text: old name, '\0', new name
    kRemove,       ///< text: name
    kSyncs,        ///< the file's contents are about to be brought to the medium
    kSynced,       ///< the thread's last kSyncs has worked
    kSyncsNames,   ///< the names in the folder in `text` are about to be
    kSyncedNames,  ///< the thread's last kSyncsNames has worked
    kSettled,      ///< everything so far is on the medium: what the board was brought up with
};

/// Followed by `bytes` bytes: the data written, or text.
struct Record {
    uint64_t timeUs;  ///< monotonic
    uint64_t inode;
    uint64_t offset;
    Kind kind;
    uint32_t thread;
    uint32_t bytes;
    uint32_t reserved;
};
static_assert(sizeof(Record) == 40, "the same on every processor");

/// Adds records; each in one go, so that those of several threads and processes stand one after the other.
///
/// Threads: any.
/// Errors:  a record that cannot be written ends the journal: later ones are not written either, so that what
///          is there is true.
class Writer {
public:
    explicit Writer(const Board& board) : board_(board) {}

    /// Whether the board's launcher asked for a journal.
    bool isKept() const { return board_.state().journal != 0; }

    void add(Record record, const void* data) const;
    void addText(Kind kind, uint64_t inode, std::string_view text) const;

private:
    const Board& board_;
};

}  // namespace board::journal
