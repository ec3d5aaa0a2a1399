// Makes a queue as another program might have made it, with other attributes, and becomes the program that is
// to live with it: foreign_queue NAME MESSAGES BYTES PROGRAM [ARGUMENT...]

#include <fcntl.h>
#include <mqueue.h>
#include <unistd.h>

#include <cstdlib>

int main(int argc, char** argv)
{
    constexpr int kFirstArgument = 4;
    constexpr int kDecimal = 10;
    constexpr int kCannot = 126;
    constexpr mode_t kMode = 0600;
    if (argc <= kFirstArgument) {
        return kCannot;
    }
    mq_attr attributes = {};
    attributes.mq_maxmsg = std::strtol(argv[2], nullptr, kDecimal);
    attributes.mq_msgsize = std::strtol(argv[3], nullptr, kDecimal);
    ::mq_unlink(argv[1]);
    const mqd_t queue = ::mq_open(argv[1], O_RDWR | O_CREAT | O_EXCL, kMode, &attributes);
    if (queue == static_cast<mqd_t>(-1)) {
        return kCannot;
    }
    ::mq_close(queue);
    ::execv(argv[kFirstArgument], argv + kFirstArgument);
    return kCannot;
}
