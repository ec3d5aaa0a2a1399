#pragma once

#include <linux/fb.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>

/// The board's state, in one file that every process of the board maps.
///
/// A launcher of 64 bits may run a daemon of 32 bits (under an emulator), so every member has a fixed width
/// and the compiler checks the layout. What several members make up is changed under `lock` (BoardLock);
/// counters and flags that stand alone are atomic words.
namespace board {

constexpr uint32_t kStateMagic = 0x44424356;  // "VCBD"
constexpr uint32_t kStateVersion = 3;

/// Physical memory of the board as the devices see it. The file "memory" carries it at the same offsets, so
/// that a descriptor of that file, mapped at a physical address, gives that memory.
constexpr uint32_t kMemoryBase = 0x10000000;
constexpr uint32_t kMemoryBytes = 192U * 1024U * 1024U;

/// Where overlay memory is placed: each time a mode needs more than there is, the next window of it.
constexpr uint32_t kOverlayBase = 0x3C000000;
constexpr uint32_t kFramebufferFileBytes = 16U * 1024U * 1024U;

constexpr uint32_t kPageBytes = 4096;
constexpr size_t kCameras = 4;
constexpr size_t kFramebuffers = 2;

constexpr uint32_t kPanelWidth = 1024;
constexpr uint32_t kPanelHeight = 600;

enum class Cpu : uint32_t { kDualLite = 0x61, kQuad = 0x63 };
enum class SourceKind : uint32_t { kNone, kPattern, kPipe, kClip };
/// Idle devices check every call and answer it at once, but move no pixels: what a program costs by itself.
enum class Devices : uint32_t { kWorking, kIdle };

/// Room for names, with their ends.
constexpr size_t kDeviceNameBytes = 20;
constexpr size_t kCallNameBytes = 40;
constexpr size_t kTargetBytes = 96;
constexpr size_t kReasonBytes = 100;
constexpr size_t kPresetBytes = 24;
constexpr size_t kCallCounts = 192;
constexpr size_t kCallTargets = 384;

struct Allocation {
    uint32_t base;
    uint32_t bytes;  ///< 0: the slot is free
    int32_t process;
    char owner[kDeviceNameBytes];  ///< device that allocated it: "ipu", "vpu", "video0"...
};

struct Framebuffer {
    fb_var_screeninfo mode;
    uint32_t physicalBase;
    uint32_t memoryBytes;
    uint32_t blank;  ///< FB_BLANK_UNBLANK (0) shows the plane
    int32_t x, y;    ///< position on the panel
    uint32_t alphaEnable, alpha;
    uint32_t pans;  ///< page flips so far
};

struct Camera {
    SourceKind kind;
    std::atomic<uint32_t> sourceLost;  ///< the process behind a piped source has ended
    std::atomic<uint64_t> delivered;   ///< frames handed to the program
    std::atomic<uint64_t> dropped;     ///< frames that found no queued buffer, or that a fault lost
};

/// One rule of the fault plan: "CALL@TARGET#N=ERROR".
struct Fault {
    char call[kCallNameBytes];
    char target[kTargetBytes];  ///< fnmatch pattern
    uint64_t from, to;          ///< occurrences that fail, counted from 1
    uint64_t step;              ///< of those, each so many'th
    int32_t error;  ///< a positive errno, or the number that the codec library returns (then negative or 0)
    uint32_t kind;  ///< FaultKind
    std::atomic<uint64_t> seen;
    std::atomic<uint64_t> fired;
};

struct CallCount {
    char device[kDeviceNameBytes];
    char call[kCallNameBytes];
    std::atomic<uint64_t> count;
};

/// A call on a target, both as the fault plan names them.
struct CallTarget {
    char call[kCallNameBytes];
    char target[kTargetBytes];
    std::atomic<uint64_t> count;
};

struct Refusal {
    char device[kDeviceNameBytes];
    char call[kCallNameBytes];
    char reason[kReasonBytes];
};

struct State {
    uint32_t magic, version;
    Cpu cpu;
    uint32_t frameRateMilli;  ///< frames per 1000 s, 0: no pacing
    uint64_t frameLimit;      ///< SIGINT to the program after so many frames of camera 1; 0: no limit
    int32_t program;          ///< process id of the program that the board was started for
    uint32_t codecThreads;
    char codecPreset[kPresetBytes];
    uint64_t epochUs;  ///< monotonic time of frame instant 0

    std::atomic<uint32_t> lock;     ///< thread id of the holder, 0 when free
    std::atomic<uint32_t> journal;  ///< calls on files are noted (medium/Journal.h)
    uint32_t keepsFields;           ///< not 0: the image processing unit never de-interlaces

    std::array<Allocation, 256> allocations;
    std::array<Framebuffer, kFramebuffers> framebuffers;
    std::array<Camera, kCameras> cameras;
    /// Inputs (0 to 3) that capture devices 0 and 1 deliver on a dual-lite board.
    std::array<std::atomic<uint32_t>, 2> inputPair;

    uint32_t faultCount;
    std::atomic<uint32_t> callCountUsed;
    std::array<Fault, 64> faults;
    std::array<CallCount, kCallCounts> callCounts;
    uint32_t refusalCount;  ///< may exceed the list: the first ones are kept
    Devices devices;
    std::array<Refusal, 128> refusals;

    std::atomic<uint64_t> framesEncoded;
    std::atomic<uint64_t> bytesEncoded;

    uint32_t listsCalls;  ///< not 0: callTargets is kept
    std::atomic<uint32_t> callTargetUsed;
    std::array<CallTarget, kCallTargets> callTargets;

    std::atomic<uint64_t> framesCounted;  ///< of camera 1, towards the limit
    std::atomic<uint64_t> nextCounted;    ///< the least number of a frame that counts: none counts twice
};

// NOLINTBEGIN(readability-magic-numbers): the layout, as counted by hand
static_assert(std::atomic<uint64_t>::is_always_lock_free, "shared between processes");
static_assert(sizeof(fb_var_screeninfo) == 160, "the same on every processor");
static_assert(sizeof(Allocation) == 32);
static_assert(sizeof(Framebuffer) == 192);
static_assert(sizeof(Camera) == 24);
static_assert(sizeof(Fault) == 184 && offsetof(Fault, from) == 136);
static_assert(sizeof(CallCount) == 72 && offsetof(CallCount, count) == 64);
static_assert(sizeof(CallTarget) == 144 && offsetof(CallTarget, count) == 136);
static_assert(sizeof(Refusal) == 160);
static_assert(offsetof(State, allocations) == 76);
// NOLINTEND(readability-magic-numbers)

}  // namespace board
