#pragma once

#include <cstddef>

/// A memory region shared with a device. A plain record: whoever filled it releases it.
struct buffer {
    void* start = nullptr;  ///< in this process, null when not mapped
    size_t offset = 0;  ///< physical address; for an allocation request it first carries the size in bytes
    size_t length = 0;  ///< bytes
};
