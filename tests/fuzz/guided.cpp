// One target (FUZZ_TARGET) for the fuzzer that the compiler brings.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "Targets.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::string wrong = fuzz::FUZZ_TARGET({reinterpret_cast<const char*>(data), size});
    if (!wrong.empty()) {
        std::fprintf(stderr, "%s\n", wrong.c_str());
        std::abort();
    }
    return 0;
}
