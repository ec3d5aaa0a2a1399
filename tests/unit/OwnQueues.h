#pragma once

#include <mqueue.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <system_error>

namespace unit {

/// Names for two message queues of one test's own.
///
/// Lifetime: the queues go with their owner, and what this process has open of them is closed: an endpoint
///           leaves its ends open, and all queues of a user share a limit, open ones without a name too.
class OwnQueues {
public:
    OwnQueues() = default;
    ~OwnQueues()
    {
        closeAll();
        mq_unlink(rx.c_str());
        mq_unlink(tx.c_str());
    }
    OwnQueues(const OwnQueues&) = delete;
    OwnQueues& operator=(const OwnQueues&) = delete;

    void closeAll() const
    {
        constexpr int kDescriptors = 256;  // more than these tests ever have open
        for (int descriptor = 0; descriptor < kDescriptors; ++descriptor) {
            std::error_code none;
            const auto target =
                std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(descriptor), none).string();
            if (target == rx || target == tx) {
                mq_close(descriptor);
            }
        }
    }

    const std::string rx = "/velcam-unit-rx-" + std::to_string(::getpid());
    const std::string tx = "/velcam-unit-tx-" + std::to_string(::getpid());
};

}  // namespace unit
