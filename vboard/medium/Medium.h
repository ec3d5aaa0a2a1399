#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "medium/Journal.h"

namespace medium {

/// A board's journal in memory.
struct Journal {
    struct Entry {
        board::journal::Record record;
        size_t data;  ///< where its bytes begin in `bytes`
    };
    std::vector<Entry> entries;
    std::string bytes;

    std::string textOf(const Entry& entry) const { return bytes.substr(entry.data, entry.record.bytes); }
    /// The name that an entry is about; the old one of a renaming.
    std::string nameOf(const Entry& entry) const
    {
        const std::string text = textOf(entry);
        return text.substr(0, text.find('\0'));
    }
};

/// Reads a journal as far as its records are whole.
Journal readJournal(const std::string& path);

/// What a medium holds when the power fails: worked out from the journal of what programs did.
///
/// What was brought to the medium by fsync, fdatasync (a file's contents) or the fsync of a folder (its
/// names) is there. Of all else chance keeps a part, as file systems do that are allowed to: of each page of
/// a file any of the states that it went through, of its length any, zeros where a page is missing, and of
/// the changes of a folder's names those up to any of them. A file whose name did not get there is gone,
/// whatever of its contents was.
///
/// Threads: one.
class Medium {
public:
    explicit Medium(const Journal& journal);

    /// Lays out in `folder` the files as they are after a cut before the journal's entry `cut` (its number),
    /// by chance that begins with `seed`. False when a file cannot be written.
    bool cut(size_t cut, uint32_t seed, const std::string& folder) const;

    /// The first entry that may leave no trace when the power fails before entry `cut`, of those about files
    /// in `folder` (as programs name it, ending in "/"); `cut` when all of it is safe.
    size_t firstAtRisk(size_t cut, const std::string& folder) const;

private:
    /// An entry that changes something, and the one that says that it has reached the medium.
    struct Change {
        size_t entry;
        size_t settledBy = kNever;

        bool settledBefore(size_t cut) const { return settledBy < cut; }
    };
    struct File {
        std::string folder;  // where it was made
        std::vector<Change> changes;
    };
    /// A thread's synchronisation that is under way: of a file, or of a folder's names.
    struct Syncing {
        size_t begin = 0;
        std::string folder;
        uint64_t inode = 0;
    };
    using Names = std::map<std::string, size_t>;  // to numbers of files
    using Changes = std::vector<const Change*>;

    static constexpr size_t kNever = SIZE_MAX;

    void read(size_t number);
    void create(size_t number);
    void settleFile(const Syncing& syncing, size_t by);
    void settleNames(const Syncing& syncing, size_t by);
    void settleAll(size_t by);

    Names namesAfter(size_t cut, std::mt19937& chance) const;
    void rename(Names& names, size_t number) const;
    bool layOut(const File& file, size_t cut, std::mt19937& chance, const std::string& path) const;

    const Journal& journal_;
    std::vector<File> files_;
    std::vector<Change> names_;
    std::map<size_t, size_t> created_;     // number of the file that an entry made
    std::map<uint64_t, size_t> byInode_;   // number of the file that has it by now
    std::map<uint32_t, Syncing> syncing_;  // by thread
};

}  // namespace medium
