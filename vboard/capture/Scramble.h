#pragma once

#include <cstdint>

namespace board {

/// Turns a number into one that looks random, always the same. A published integer mixer: multiply and shift
/// until each bit depends on all.
inline uint32_t scramble(uint32_t value)
{
    constexpr uint32_t kFirst = 0x7FEB352D, kSecond = 0x846CA68B;
    constexpr unsigned kMiddle = 15;
    value = (value ^ (value >> 16)) * kFirst;
    value = (value ^ (value >> kMiddle)) * kSecond;
    return value ^ (value >> 16);
}

}  // namespace board
