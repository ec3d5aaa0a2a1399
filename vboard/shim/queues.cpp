// Entry points of message queues. A queue's descriptor is the kernel's: nothing is kept here.

#include <fcntl.h>
#include <mqueue.h>

#include <cstdarg>
#include <optional>
#include <string>

#include "board/Board.h"
#include "paths/Paths.h"
#include "shim/Attachment.h"
#include "shim/EntryPoints.h"
#include "shim/Faults.h"
#include "shim/Next.h"

// The checking variant, which <mqueue.h> declares for fortified builds only.
// NOLINTNEXTLINE(bugprone-reserved-identifier): the name is libc's
extern "C" mqd_t __mq_open_2(const char* name, int flags) noexcept;

namespace {

using shim::Call;

/// The queue's name on this machine, nothing for a queue that is not the board's.
std::optional<std::string> boardsQueue(const char* name)
{
    const board::Board* board = shim::attachedBoard();
    return board == nullptr || name == nullptr ? std::nullopt : board::paths::queue(board->folder(), name);
}

template <typename Operation>
int onQueue(Call call, const char* name, Operation operation)
{
    if (shim::failsByPlan(call, name)) {
        return -1;
    }
    const auto there = boardsQueue(name);
    return operation(there ? there->c_str() : name);
}

template <typename Operation>
auto onMessage(Call call, mqd_t queue, Operation operation)
{
    using Result = decltype(operation());
    return shim::failsByPlan(call, queue) ? Result{-1} : operation();
}

}  // namespace

extern "C" {

mqd_t mq_open(const char* name, int flags, ...) noexcept
{
    mode_t mode = 0;
    mq_attr* attributes = nullptr;
    if ((flags & O_CREAT) != 0) {
        va_list arguments;
        va_start(arguments, flags);
        // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): the analyzer misses va_start in a branch
        mode = static_cast<mode_t>(va_arg(arguments, unsigned));
        attributes = va_arg(arguments, mq_attr*);
        va_end(arguments);
    }
    return onQueue(Call::kMqOpen, name,
                   [&](const char* there) { return NEXT(mq_open)(there, flags, mode, attributes); });
}

mqd_t __mq_open_2(const char* name, int flags) noexcept
{
    return onQueue(Call::kMqOpen, name, [&](const char* there) { return NEXT(__mq_open_2)(there, flags); });
}

int mq_unlink(const char* name) noexcept
{
    return onQueue(Call::kMqUnlink, name, [](const char* there) { return NEXT(mq_unlink)(there); });
}

int mq_send(mqd_t queue, const char* message, size_t bytes, unsigned priority)
{
    return onMessage(Call::kMqSend, queue, [&] { return NEXT(mq_send)(queue, message, bytes, priority); });
}

int mq_timedsend(mqd_t queue, const char* message, size_t bytes, unsigned priority, const timespec* until)
{
    return onMessage(Call::kMqSend, queue,
                     [&] { return NEXT(mq_timedsend)(queue, message, bytes, priority, until); });
}

ssize_t mq_receive(mqd_t queue, char* message, size_t bytes, unsigned* priority)
{
    return onMessage(Call::kMqReceive, queue,
                     [&] { return NEXT(mq_receive)(queue, message, bytes, priority); });
}

ssize_t mq_timedreceive(mqd_t queue, char* message, size_t bytes, unsigned* priority, const timespec* until)
{
    return onMessage(Call::kMqReceive, queue,
                     [&] { return NEXT(mq_timedreceive)(queue, message, bytes, priority, until); });
}

}  // extern "C"
