#pragma once

#include <memory>
#include <optional>
#include <string>

#include "board/Board.h"
#include "cli/CommandLine.h"
#include "cli/Descriptor.h"

namespace cli {

/// A board that this launcher has brought up.
///
/// The folder's `root` holds the board's files, which outlive a run; what is missing there is made. State,
/// memory, framebuffers and queues are new with each run. A lock on the folder says that the board is up; it
/// goes with the launcher, however that ends.
///
/// Lifetime: up from make() until the destructor, which removes the queues and marks the state as ended.
/// Errors:   make() gives null and has `wrong` say why.
class LiveBoard {
public:
    static std::unique_ptr<LiveBoard> make(const BoardOptions& options, std::string& wrong);
    ~LiveBoard();
    LiveBoard(const LiveBoard&) = delete;
    LiveBoard& operator=(const LiveBoard&) = delete;

    board::Board& board() { return board_; }

private:
    LiveBoard(const std::string& folder, Descriptor lock);

    Descriptor lock_;
    board::Board board_;
};

/// The real path of a folder in which a board is up, nothing when none is.
std::optional<std::string> folderOfBoardThatIsUp(const std::string& folder);

}  // namespace cli
