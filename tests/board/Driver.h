#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <ostream>
#include <string>

#include "OnBoard.h"
#include "board/Board.h"

/// What the tests of the drivers on a running board share.
namespace driver {

/// A step that is made to fail, and what the driver has to say about it.
struct Failure {
    const char* name;
    const char* fault;       ///< as the launcher takes it
    const char* message;     ///< all of standard output
    bool staysOpen = false;  ///< the node is left open for the destructor
};
inline void PrintTo(const Failure& failure, std::ostream* stream)
{
    *stream << failure.name;
}
constexpr auto nameOf = [](const auto& chosen) { return std::string(chosen.param.name); };

/// What a step prints.
inline std::string outputOf(const std::function<void()>& step)
{
    testing::internal::CaptureStdout();
    step();
    std::fflush(stdout);
    return testing::internal::GetCapturedStdout();
}

/// Open descriptors of this process.
inline long openDescriptors()
{
    const std::filesystem::directory_iterator list("/proc/self/fd");
    return std::distance(begin(list), end(list));
}

inline const uint8_t* memoryAt(size_t physical)
{
    return board::Board::current()->memory() + (physical - board::kMemoryBase);
}

inline constexpr int fourcc(const char (&code)[5])
{
    return code[0] | code[1] << 8 | code[2] << 16 | code[3] << 24;
}

}  // namespace driver
