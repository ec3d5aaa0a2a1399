#pragma once

/// Vector code for the processor that the board happens to run on, chosen when it runs.
///
/// A kernel is written once, as a loop that the compiler vectorises, and built twice: for the processor the
/// build is for, and for one with 256-bit vectors where such exist. VBOARD_WIDE marks the second one;
/// wideVectors() says whether it may be called. (Compiler-made dispatch is not used: its resolvers run before
/// a sanitizer is ready.)
#if defined(__x86_64__) || defined(__i386__)
#define VBOARD_HAS_WIDE 1
#define VBOARD_WIDE __attribute__((target("avx2")))
#else
#define VBOARD_HAS_WIDE 0
#define VBOARD_WIDE
#endif

/// The body that both builds of a kernel share.
#define VBOARD_KERNEL inline __attribute__((always_inline))

namespace board {

/// Whether functions marked VBOARD_WIDE may be called here. Threads: any.
inline bool wideVectors()
{
#if VBOARD_HAS_WIDE
    static const bool present = __builtin_cpu_supports("avx2") != 0;
    return present;
#else
    return false;
#endif
}

}  // namespace board
