#include "shim/Attachment.h"

#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <string>

#include "board/Board.h"
#include "board/Real.h"
#include "shim/Faults.h"

namespace shim {
namespace {

std::atomic<board::Board*> attached{nullptr};

/// Going on without the board would send the program to the machine's own files and devices.
[[noreturn]] void refuseToRun(const char* folder)
{
    const std::string text =
        std::string("vboard: no board is up in ") + folder + ", start one with 'vboard run'\n";
    real::write(STDERR_FILENO, text.data(), text.size());
    constexpr int kBadUsage = 2;
    ::_exit(kBadUsage);
}

__attribute__((constructor)) void attach()
{
    const char* folder = std::getenv(board::kFolderVariable);  // NOLINT(concurrency-mt-unsafe): read once
    if (folder == nullptr) {
        return;
    }
    board::Board* board = board::Board::current();
    if (board == nullptr) {
        refuseToRun(folder);
    }
    learnFaults(*board);
    attached = board;
}

}  // namespace

board::Board* attachedBoard()
{
    return attached.load(std::memory_order_acquire);
}

}  // namespace shim
