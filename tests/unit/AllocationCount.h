#pragma once

namespace unit {

/// How often this thread has taken memory with `new` so far. What C libraries take with malloc is not in it.
unsigned long allocations();

}  // namespace unit
