// Preloaded into a program on a virtual board: counts what the program itself takes from the heap.
//
// The board and its codec live in the same process and allocate too, so an allocation is the program's only
// when no function of theirs is on the stack. The counts are kept in the file that WATCH_FILE names
// (HeapCounts), for another process to read at any time.

#include <fcntl.h>
#include <link.h>
#include <malloc.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <unwind.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "HeapCounts.h"

extern "C" {
void* __libc_malloc(size_t bytes);
void* __libc_calloc(size_t count, size_t bytes);
void* __libc_realloc(void* memory, size_t bytes);
void* __libc_memalign(size_t alignment, size_t bytes);

// Of a sanitizer's runtime, which answers the allocation functions itself: present when there is one.
__attribute__((weak)) int __sanitizer_install_malloc_and_free_hooks(void (*allocated)(const volatile void*,
                                                                                      size_t),
                                                                    void (*freed)(const volatile void*));
}

namespace {

using support::HeapCounts;

struct Range {
    uintptr_t begin, end;
};

/// Where the board's libraries lie.
constexpr size_t kBoardRanges = 16;
std::array<Range, kBoardRanges> boardRanges;
size_t boardRangeCount = 0;

HeapCounts* counts = nullptr;
__attribute__((tls_model("initial-exec"))) thread_local bool looking = false;

int noteBoard(dl_phdr_info* object, size_t /*size*/, void* /*unused*/)
{
    const char* slash = std::strrchr(object->dlpi_name, '/');
    const char* name = slash == nullptr ? object->dlpi_name : slash + 1;
    if (std::strncmp(name, "libvboard.so", std::strlen("libvboard.so")) != 0 &&
        std::strncmp(name, "libvpu.so", std::strlen("libvpu.so")) != 0) {
        return 0;
    }
    for (size_t i = 0; i < object->dlpi_phnum && boardRangeCount < boardRanges.size(); ++i) {
        const auto& segment = object->dlpi_phdr[i];
        if (segment.p_type == PT_LOAD && (segment.p_flags & PF_X) != 0) {
            const uintptr_t begin = object->dlpi_addr + segment.p_vaddr;
            boardRanges[boardRangeCount++] = {begin, begin + segment.p_memsz};
        }
    }
    return 0;
}

bool inBoard(uintptr_t address)
{
    for (size_t i = 0; i < boardRangeCount; ++i) {
        if (address >= boardRanges[i].begin && address < boardRanges[i].end) {
            return true;
        }
    }
    return false;
}

_Unwind_Reason_Code step(_Unwind_Context* context, void* board)
{
    const bool found = inBoard(static_cast<uintptr_t>(_Unwind_GetIP(context)));
    *static_cast<bool*>(board) = found;
    return found ? _URC_END_OF_STACK : _URC_NO_REASON;
}

void note()
{
    if (counts == nullptr || looking) {
        return;
    }
    looking = true;  // the unwinder may allocate
    bool board = false;
    _Unwind_Backtrace(step, &board);
    counts->mainThread += !board && syscall(SYS_gettid) == getpid() ? 1U : 0U;
    looking = false;
}

void noteHook(const volatile void* /*memory*/, size_t /*bytes*/)
{
    note();
}

__attribute__((constructor)) void begin()
{
    const char* path = std::getenv("WATCH_FILE");  // NOLINT(concurrency-mt-unsafe): before main
    if (path == nullptr) {
        return;
    }
    const auto fd = static_cast<int>(syscall(SYS_openat, AT_FDCWD, path, O_RDWR | O_CLOEXEC));
    void* const mapped =
        fd < 0 ? MAP_FAILED : mmap(nullptr, sizeof(HeapCounts), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    if (mapped == MAP_FAILED) {
        return;
    }
    dl_iterate_phdr(noteBoard, nullptr);
    if (__sanitizer_install_malloc_and_free_hooks != nullptr) {
        __sanitizer_install_malloc_and_free_hooks(noteHook, [](const volatile void*) {});
    }
    counts = static_cast<HeapCounts*>(mapped);
}

}  // namespace

extern "C" {

void* malloc(size_t bytes) noexcept
{
    note();
    return __libc_malloc(bytes);
}

void* calloc(size_t count, size_t bytes) noexcept
{
    note();
    return __libc_calloc(count, bytes);
}

void* realloc(void* memory, size_t bytes) noexcept
{
    note();
    return __libc_realloc(memory, bytes);
}

void* memalign(size_t alignment, size_t bytes) noexcept
{
    note();
    return __libc_memalign(alignment, bytes);
}

void* aligned_alloc(size_t alignment, size_t bytes) noexcept
{
    note();
    return __libc_memalign(alignment, bytes);
}

int posix_memalign(void** memory, size_t alignment, size_t bytes) noexcept
{
    note();
    *memory = __libc_memalign(alignment, bytes);
    return *memory == nullptr ? ENOMEM : 0;
}

}  // extern "C"
