#pragma once

#include <cstddef>
#include <cstdint>

/// One message of the bus, as it lies in memory. What the codes mean is the protocol's business.
struct IPCQ_PACKET {
    static constexpr size_t kDataSize = 100;  // bytes

    uint8_t id = 0;                ///< message code
    uint8_t len = 0;               ///< meaningful bytes of `data`, as the sender says: may be above 100
    uint8_t data[kDataSize] = {};  ///< payload; what was not received is zero
};
