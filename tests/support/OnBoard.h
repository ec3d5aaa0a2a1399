#pragma once

#include <gtest/gtest.h>

#include <functional>

#include "Child.h"

namespace support {

/// Whether this process runs on a virtual board.
bool onBoard();

enum class Leaves {
    kNothing,   ///< no refused call, no live allocation: what a run should be
    kRefusals,  ///< no live allocation
    kSomething  ///< the test is about what is refused or left
};

/// Runs the test that is running now on a virtual board of its own: starts this program once more on the
/// board, with this one test and the launcher's options, and fails when it fails there.
void repeatOnBoard(const Command& options, Leaves leaves);

/// The body of a test that has to run on the board; outside it, the test is repeated there.
void runOnBoard(const Command& options, const std::function<void()>& body, Leaves leaves = Leaves::kNothing);

}  // namespace support

/// A test whose body runs on a virtual board that was started with the given options (a braced list is given
/// in parentheses: `(support::Command{"--cpu", "dual-lite"})`).
#define BOARD_TEST(Suite, Name, Options) BOARD_TEST_LEAVING(Suite, Name, Options, support::Leaves::kNothing)

/// The same for a body that has calls refused, or leaves something behind.
#define BOARD_TEST_LEAVING(Suite, Name, Options, Left)                  \
    static void boardBody_##Suite##_##Name();                           \
    TEST(Suite, Name)                                                   \
    {                                                                   \
        support::runOnBoard(Options, boardBody_##Suite##_##Name, Left); \
    }                                                                   \
    static void boardBody_##Suite##_##Name()
