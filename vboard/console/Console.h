#pragma once

#include <memory>

#include "board/Board.h"
#include "console/Address.h"

namespace console {

/// The bench console: a page in the browser with the live panel, what the daemon reports, its log and its
/// recordings, and a button for all that can be asked of it.
///
/// It is the daemon's controller: it reads the status queue, and must so be the only one that does.
///
/// Threads:  its own, in the process that makes it, which must not fork any more; they cost the board nothing
///           but idle time.
/// Lifetime: from its making; the board must outlive it. Its end waits for what is being answered.
class Console {
public:
    Console(const board::Board& board, Listener listener);
    ~Console();
    Console(const Console&) = delete;
    Console& operator=(const Console&) = delete;

    bool serving() const;

private:
    struct Parts;
    std::unique_ptr<Parts> parts_;
};

}  // namespace console
