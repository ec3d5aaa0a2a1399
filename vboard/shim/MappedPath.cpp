#include "shim/MappedPath.h"

#include <cstdio>
#include <optional>

#include "board/Board.h"
#include "paths/Paths.h"
#include "shim/Attachment.h"

namespace shim {
namespace {

using board::paths::Node;

/// What a device's node is to a call that looks at it without opening it: the file behind its handles. A node
/// that this processor does not have is looked for among the board's files, where there is none.
const char* fileOf(const board::Board& board, Node node)
{
    const bool dualLite = board.state().cpu == board::Cpu::kDualLite;
    switch (node) {
        case Node::kVideo2:
        case Node::kVideo3:
            return dualLite ? "root/dev/video" : "memory";
        case Node::kFramebuffer0:
            return "fb0";
        case Node::kFramebuffer1:
            return "fb1";
        default:
            return "memory";
    }
}

/// Spares everything else the comparison with every path of the board.
bool mayBeBoards(const char* path)
{
    if (path == nullptr || path[0] != '/') {
        return false;
    }
    const char first = path[1];
    return first == 'v' || first == 'd' || first == 'p' || first == 't' || first == 'u';
}

}  // namespace

// NOLINTNEXTLINE(cppcoreguidelines-pro-type-member-init): 4 KiB that most paths have no use for
MappedPath::MappedPath(const char* path) : path_(path)
{
    const board::Board* board = mayBeBoards(path) ? attachedBoard() : nullptr;
    if (board == nullptr) {
        return;
    }
    const std::optional<Node> node = board::paths::node(path);
    if (!node && !board::paths::isBoards(board->folder(), path)) {
        return;
    }
    const char* folder = board->folder().c_str();
    const int length =
        node ? std::snprintf(there_.data(), there_.size(), "%s/%s", folder, fileOf(*board, *node))
             : std::snprintf(there_.data(), there_.size(), "%s/root%s", folder, path);
    valid_ = length > 0 && static_cast<size_t>(length) < there_.size();
    path_ = there_.data();
}

}  // namespace shim
