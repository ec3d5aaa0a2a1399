#include "console/BoardFolder.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <memory>
#include <nlohmann/json.hpp>
#include <string_view>

namespace console {
namespace {

constexpr size_t kMostEntries = 1000;

bool isOneStep(const std::string& name)
{
    return !name.empty() && name != "." && name != ".." && name.find('/') == std::string::npos;
}

bool isUtf8(const std::string& name)
{
    using nlohmann::json;
    // The strict dump says nothing but what it throws; the one that ignores leaves the bad bytes out.
    const std::string kept = json(name).dump(-1, ' ', false, json::error_handler_t::ignore);
    const std::string marked = json(name).dump(-1, ' ', false, json::error_handler_t::replace);
    return kept == marked;
}

struct CloseFolder {
    void operator()(DIR* folder) const { ::closedir(folder); }
};
using OpenFolder = std::unique_ptr<DIR, CloseFolder>;

}  // namespace

cli::Descriptor BoardFolder::openPlace(const char* place) const
{
    constexpr int kStep = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
    cli::Descriptor here(::open((folder_ + "/root").c_str(), kStep));
    std::string_view rest = place;
    while (here.isOpen() && !rest.empty()) {
        const size_t slash = std::min(rest.find('/'), rest.size());
        here = cli::Descriptor(::openat(here.get(), std::string(rest.substr(0, slash)).c_str(), kStep));
        rest.remove_prefix(std::min(slash + 1, rest.size()));
    }
    return here;
}

std::vector<BoardFolder::Entry> BoardFolder::list(const char* place) const
{
    cli::Descriptor descriptor = openPlace(place);
    const OpenFolder folder(descriptor.isOpen() ? ::fdopendir(::dup(descriptor.get())) : nullptr);
    std::vector<Entry> entries;
    // NOLINTNEXTLINE(concurrency-mt-unsafe): the stream is this call's own
    for (const dirent* entry = nullptr; folder && (entry = ::readdir(folder.get())) != nullptr;) {
        struct stat status = {};
        const std::string name = entry->d_name;
        const bool plain = ::fstatat(descriptor.get(), entry->d_name, &status, AT_SYMLINK_NOFOLLOW) == 0 &&
                           S_ISREG(status.st_mode);
        if (plain && isUtf8(name) && entries.size() < kMostEntries) {
            entries.push_back({name, static_cast<uint64_t>(status.st_size), status.st_mtime});
        }
    }
    std::sort(entries.begin(), entries.end(),
              [](const Entry& left, const Entry& right) { return left.name < right.name; });
    return entries;
}

std::optional<BoardFolder::File> BoardFolder::open(const char* place, const std::string& name) const
{
    const cli::Descriptor folder = isOneStep(name) ? openPlace(place) : cli::Descriptor();
    if (!folder.isOpen()) {
        return std::nullopt;
    }
    // O_NONBLOCK: a pipe that lies there must not hold the caller up before it is found out.
    constexpr int kRead = O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;
    File file;
    file.descriptor = cli::Descriptor(::openat(folder.get(), name.c_str(), kRead));
    struct stat status = {};
    const bool plain =
        file.descriptor.isOpen() && ::fstat(file.descriptor.get(), &status) == 0 && S_ISREG(status.st_mode);
    if (!plain) {
        return std::nullopt;
    }
    file.bytes = static_cast<uint64_t>(status.st_size);
    file.identity = status.st_ino;
    return file;
}

std::optional<std::string> BoardFolder::text(const char* place, const std::string& name) const
{
    std::array<char, 4096> content{};
    const auto file = open(place, name);
    if (!file || file->bytes > content.size()) {
        return std::nullopt;
    }
    const ssize_t got = ::pread(file->descriptor.get(), content.data(), content.size(), 0);
    return got < 0 ? std::nullopt : std::optional(std::string(content.data(), static_cast<size_t>(got)));
}

}  // namespace console
