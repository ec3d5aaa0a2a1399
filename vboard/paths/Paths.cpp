#include "paths/Paths.h"

#include <algorithm>
#include <array>
#include <climits>
#include <cstdint>
#include <cstdio>

#include "board/Real.h"

namespace board::paths {
namespace {

constexpr const char* kRoot = "/root";  // below the board's folder

struct NodeName {
    std::string_view path;
    Node node;
};

constexpr std::array kNodes{
    NodeName{"/dev/video0", Node::kVideo0},    NodeName{"/dev/video1", Node::kVideo1},
    NodeName{"/dev/video2", Node::kVideo2},    NodeName{"/dev/video3", Node::kVideo3},
    NodeName{"/dev/mxc_ipu", Node::kIpu},      NodeName{"/dev/fb0", Node::kFramebuffer0},
    NodeName{"/dev/fb1", Node::kFramebuffer1},
};

enum class Match { kTree, kFile, kFileIfCarried };

/// What of the file system belongs to the board. The rest of "/tmp", say, is the machine's own.
struct Rule {
    std::string_view path;
    Match match;
};

constexpr std::array kRules{
    Rule{"/velmarine", Match::kTree},
    Rule{"/proc/mounts", Match::kFile},
    Rule{"/tmp/VelCam.log", Match::kFile},
    Rule{"/usr/share/fonts/Ubuntu-C.ttf", Match::kFile},
    Rule{"/usr/bin/gst-launch-1.0", Match::kFileIfCarried},
};

bool matches(const Rule& rule, std::string_view path)
{
    if (rule.match != Match::kTree) {
        return path == rule.path;
    }
    const bool begins = path.substr(0, rule.path.size()) == rule.path;
    return begins && (path.size() == rule.path.size() || path[rule.path.size()] == '/');
}

bool isCarried(const std::string& folder, std::string_view path)
{
    std::array<char, PATH_MAX> there{};
    const int length = std::snprintf(there.data(), there.size(), "%s%s%.*s", folder.c_str(), kRoot,
                                     static_cast<int>(path.size()), path.data());
    return length > 0 && static_cast<size_t>(length) < there.size() && real::exists(there.data());
}

/// FNV-1a: short, and the same in every process of the board.
uint64_t hash(std::string_view text)
{
    constexpr uint64_t kOffset = 0xCBF29CE484222325;
    constexpr uint64_t kPrime = 0x100000001B3;
    uint64_t value = kOffset;
    for (const char c : text) {
        value = (value ^ static_cast<uint8_t>(c)) * kPrime;
    }
    return value;
}

}  // namespace

std::optional<Node> node(std::string_view path)
{
    const auto* found =
        std::find_if(kNodes.begin(), kNodes.end(), [&](const NodeName& entry) { return entry.path == path; });
    return found == kNodes.end() ? std::nullopt : std::optional(found->node);
}

const char* nodePath(Node node)
{
    return kNodes[static_cast<size_t>(node)].path.data();
}

bool isBoards(const std::string& folder, std::string_view path)
{
    const auto* rule =
        std::find_if(kRules.begin(), kRules.end(), [&](const Rule& entry) { return matches(entry, path); });
    return rule != kRules.end() && (rule->match != Match::kFileIfCarried || isCarried(folder, path));
}

std::optional<std::string> file(const std::string& folder, std::string_view path)
{
    if (!isBoards(folder, path)) {
        return std::nullopt;
    }
    return folder + kRoot + std::string(path);
}

std::string nameOnBoard(const std::string& folder, const std::string& name)
{
    const std::string root = folder + kRoot;
    if (name.compare(0, root.size(), root) == 0) {
        return name.substr(root.size());
    }
    for (const char* known : kQueues) {
        if (queue(folder, known) == name) {
            return known;
        }
    }
    return name;
}

std::optional<std::string> queue(const std::string& folder, std::string_view name)
{
    const auto* known = std::find(std::begin(kQueues), std::end(kQueues), name);
    if (known == std::end(kQueues)) {
        return std::nullopt;
    }
    constexpr size_t kNameBytes = 48;
    std::array<char, kNameBytes> text{};
    std::snprintf(text.data(), text.size(), "/vboard-%016llx-%s",
                  static_cast<unsigned long long>(hash(folder)), *known + 1);
    return std::string(text.data());
}

}  // namespace board::paths
