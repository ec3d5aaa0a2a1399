#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace board::paths {

/// Device nodes of the board; the order is that of the shim's device table.
enum class Node { kVideo0, kVideo1, kVideo2, kVideo3, kIpu, kFramebuffer0, kFramebuffer1 };

/// The node that a path names, if it is one of the board's.
std::optional<Node> node(std::string_view path);

/// The path of a node, 0-terminated.
const char* nodePath(Node node);

/// Whether a path is one of the board's files (its nodes are not). Nothing is allocated.
bool isBoards(const std::string& folder, std::string_view path);

/// Where a path of the board's files lies on this machine: below FOLDER/root. Nothing for a path that is not
/// the board's. The player is the board's only when the board carries one.
std::optional<std::string> file(const std::string& folder, std::string_view path);

/// The queue's name on this machine: the board's queues are kept apart from those of other boards by its
/// folder. Nothing for a queue that is not the board's.
std::optional<std::string> queue(const std::string& folder, std::string_view name);

/// The other way round: how the program names a file or queue that this machine knows by `name` ("/..." as
/// the kernel shows it behind a descriptor).
std::string nameOnBoard(const std::string& folder, const std::string& name);

/// The board's queues, as the program names them.
constexpr const char* kQueues[] = {"/zentcam", "/zentipc"};

}  // namespace board::paths
