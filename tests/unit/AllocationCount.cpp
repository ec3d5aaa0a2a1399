#include "AllocationCount.h"

#include <cstdlib>
#include <new>

namespace {

thread_local unsigned long count = 0;

}  // namespace

namespace unit {

unsigned long allocations()
{
    return count;
}

}  // namespace unit

void* operator new(std::size_t bytes)
{
    ++count;
    void* memory = std::malloc(bytes == 0 ? 1 : bytes);
    if (memory == nullptr) {
        std::abort();
    }
    return memory;
}

void operator delete(void* memory) noexcept
{
    std::free(memory);
}

void operator delete(void* memory, std::size_t /*bytes*/) noexcept
{
    std::free(memory);
}
