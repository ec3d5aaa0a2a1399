#include "medium/Medium.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace medium {
namespace {

namespace fs = std::filesystem;
using board::journal::Kind;
using board::journal::Record;

constexpr uint64_t kPageBytes = 4096;

std::string folderOf(const std::string& name)
{
    return name.substr(0, name.rfind('/') + 1);
}

/// A number from 0 to `most`.
size_t pick(std::mt19937& chance, size_t most)
{
    return std::uniform_int_distribution<size_t>(0, most)(chance);
}

/// The file that a cut leaves, while it is made.
class Remains {
public:
    explicit Remains(const std::string& path)
    {
        constexpr mode_t kMode = 0666;
        fd_ = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, kMode);
    }
    ~Remains()
    {
        if (fd_ != -1) {
            ::close(fd_);
        }
    }
    Remains(const Remains&) = delete;
    Remains& operator=(const Remains&) = delete;

    void put(const char* data, uint64_t bytes, uint64_t offset)
    {
        good_ = good_ && ::pwrite(fd_, data, static_cast<size_t>(bytes), static_cast<off_t>(offset)) ==
                             static_cast<ssize_t>(bytes);
    }
    void resize(uint64_t bytes) { good_ = good_ && ::ftruncate(fd_, static_cast<off_t>(bytes)) == 0; }
    bool good() const { return fd_ != -1 && good_; }

private:
    int fd_ = -1;
    bool good_ = true;
};

/// A file's length after another change.
uint64_t lengthAfter(const Record& record, uint64_t length)
{
    return record.kind == Kind::kTruncate ? record.offset : std::max(length, record.offset + record.bytes);
}

/// Lets chance say how much of the writes, in their order, each page has seen.
void putSomePages(Remains& remains, const std::vector<const Journal::Entry*>& writes, const Journal& journal,
                  std::mt19937& chance)
{
    std::map<uint64_t, std::vector<const Journal::Entry*>> pages;
    for (const Journal::Entry* write : writes) {
        const uint64_t end = write->record.offset + write->record.bytes;
        for (uint64_t page = write->record.offset / kPageBytes; page * kPageBytes < end; ++page) {
            pages[page].push_back(write);
        }
    }
    for (const auto& [page, seen] : pages) {
        const size_t taken = pick(chance, seen.size());
        for (size_t i = 0; i < taken; ++i) {
            const Record& record = seen[i]->record;
            const uint64_t from = std::max(record.offset, page * kPageBytes);
            const uint64_t to = std::min(record.offset + record.bytes, (page + 1) * kPageBytes);
            remains.put(journal.bytes.data() + seen[i]->data + (from - record.offset), to - from, from);
        }
    }
}

}  // namespace

Journal readJournal(const std::string& path)
{
    Journal journal;
    std::ostringstream content;
    content << std::ifstream(path, std::ios::binary).rdbuf();
    journal.bytes = content.str();
    size_t at = 0;
    while (at + sizeof(Record) <= journal.bytes.size()) {
        Journal::Entry entry{};
        std::memcpy(&entry.record, journal.bytes.data() + at, sizeof(Record));
        entry.data = at + sizeof(Record);
        if (journal.bytes.size() - entry.data < entry.record.bytes) {
            break;
        }
        at = entry.data + entry.record.bytes;
        journal.entries.push_back(entry);
    }
    return journal;
}

Medium::Medium(const Journal& journal) : journal_(journal)
{
    for (size_t number = 0; number < journal.entries.size(); ++number) {
        read(number);
    }
}

void Medium::read(size_t number)
{
    const Journal::Entry& entry = journal_.entries[number];
    const Record& record = entry.record;
    switch (record.kind) {
        case Kind::kCreate:
            create(number);
            break;
        case Kind::kWrite:
        case Kind::kTruncate:
            if (const auto file = byInode_.find(record.inode); file != byInode_.end()) {
                files_[file->second].changes.push_back({number});
            }
            break;
        case Kind::kRename:
        case Kind::kRemove:
            names_.push_back({number});
            break;
        case Kind::kSyncs:
        case Kind::kSyncsNames:
            syncing_[record.thread] = {number, journal_.textOf(entry) + "/", record.inode};
            break;
        case Kind::kSynced:
            settleFile(syncing_[record.thread], number);
            break;
        case Kind::kSyncedNames:
            settleNames(syncing_[record.thread], number);
            break;
        case Kind::kSettled:
            settleAll(number);
            break;
    }
}

void Medium::create(size_t number)
{
    const Journal::Entry& entry = journal_.entries[number];
    created_[number] = files_.size();
    byInode_[entry.record.inode] = files_.size();
    files_.push_back({folderOf(journal_.textOf(entry)), {}});
    names_.push_back({number});
}

void Medium::settleFile(const Syncing& syncing, size_t by)
{
    const auto file = byInode_.find(syncing.inode);
    if (file == byInode_.end()) {
        return;
    }
    for (Change& change : files_[file->second].changes) {
        if (change.entry < syncing.begin) {
            change.settledBy = std::min(change.settledBy, by);
        }
    }
}

void Medium::settleNames(const Syncing& syncing, size_t by)
{
    for (Change& change : names_) {
        const bool inFolder = folderOf(journal_.nameOf(journal_.entries[change.entry])) == syncing.folder;
        if (inFolder && change.entry < syncing.begin) {
            change.settledBy = std::min(change.settledBy, by);
        }
    }
}

void Medium::settleAll(size_t by)
{
    const auto settle = [by](std::vector<Change>& changes) {
        for (Change& change : changes) {
            change.settledBy = std::min(change.settledBy, by);
        }
    };
    settle(names_);
    for (File& file : files_) {
        settle(file.changes);
    }
}

size_t Medium::firstAtRisk(size_t cut, const std::string& folder) const
{
    size_t first = cut;
    const auto look = [&](const std::vector<Change>& changes) {
        for (const Change& change : changes) {
            if (!change.settledBefore(cut)) {
                first = std::min(first, change.entry);
            }
        }
    };
    for (const File& file : files_) {
        if (file.folder == folder) {
            look(file.changes);
        }
    }
    for (const Change& change : names_) {
        if (folderOf(journal_.nameOf(journal_.entries[change.entry])) == folder) {
            look({change});
        }
    }
    return first;
}

bool Medium::cut(size_t cut, uint32_t seed, const std::string& folder) const
{
    std::mt19937 chance(seed);
    for (const auto& [name, number] : namesAfter(cut, chance)) {
        const std::string path = folder + name;
        std::error_code error;
        fs::create_directories(folderOf(path), error);
        if (!layOut(files_[number], cut, chance, path)) {
            return false;
        }
    }
    return true;
}

/// The names that are there: the settled ones, and those that came up to a moment that chance picks.
Medium::Names Medium::namesAfter(size_t cut, std::mt19937& chance) const
{
    const auto atRisk =
        static_cast<size_t>(std::count_if(names_.begin(), names_.end(), [&](const Change& change) {
            return change.entry < cut && !change.settledBefore(cut);
        }));
    size_t kept = pick(chance, atRisk);
    Names names;
    for (const Change& change : names_) {
        if (change.entry >= cut) {
            break;
        }
        if (change.settledBefore(cut)) {
            rename(names, change.entry);
        } else if (kept > 0) {
            --kept;
            rename(names, change.entry);
        }
    }
    return names;
}

void Medium::rename(Names& names, size_t number) const
{
    const Journal::Entry& entry = journal_.entries[number];
    const std::string name = journal_.nameOf(entry);
    if (entry.record.kind == Kind::kCreate) {
        names[name] = created_.at(number);
        return;
    }
    const auto known = names.find(name);
    if (known == names.end()) {
        return;
    }
    if (entry.record.kind == Kind::kRename) {
        names[journal_.textOf(entry).substr(name.size() + 1)] = known->second;
    }
    names.erase(name);
}

bool Medium::layOut(const File& file, size_t cut, std::mt19937& chance, const std::string& path) const
{
    Remains remains(path);
    uint64_t length = 0;
    std::vector<const Journal::Entry*> atRisk;
    for (const Change& change : file.changes) {
        const Journal::Entry& entry = journal_.entries[change.entry];
        if (change.entry >= cut) {
            break;
        }
        if (!change.settledBefore(cut)) {
            atRisk.push_back(&entry);
            continue;
        }
        length = lengthAfter(entry.record, length);
        if (entry.record.kind == Kind::kTruncate) {
            remains.resize(length);
        } else {
            remains.put(journal_.bytes.data() + entry.data, entry.record.bytes, entry.record.offset);
        }
    }
    // The length is that of some moment; what is in it comes from the moments since it was last emptied.
    const size_t moment = pick(chance, 3) == 0 ? atRisk.size() : pick(chance, atRisk.size());
    std::vector<const Journal::Entry*> writes;
    for (size_t i = 0; i < moment; ++i) {
        const Record& record = atRisk[i]->record;
        length = lengthAfter(record, length);
        if (record.kind == Kind::kTruncate) {
            remains.resize(length);
            writes.clear();
        } else {
            writes.push_back(atRisk[i]);
        }
    }
    const bool inOrder = pick(chance, 2) == 0;
    if (inOrder) {
        for (const Journal::Entry* write : writes) {
            remains.put(journal_.bytes.data() + write->data, write->record.bytes, write->record.offset);
        }
    } else {
        putSomePages(remains, writes, journal_, chance);
    }
    remains.resize(length);
    return remains.good();
}

}  // namespace medium
