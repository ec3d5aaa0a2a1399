// Makes a queue as another program might have left it, with other attributes and full of an old message, and
// becomes the program that is to live with it:
//     foreign_queue NAME MESSAGES BYTES OLD PROGRAM [ARGUMENT...]
// OLD is the message in hexadecimal digits, "-" for none.

#include <fcntl.h>
#include <mqueue.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

namespace {

std::string bytesOf(const std::string& digits)
{
    constexpr int kHexadecimal = 16;
    std::string bytes;
    for (size_t at = 0; at + 1 < digits.size(); at += 2) {
        bytes += static_cast<char>(std::strtol(digits.substr(at, 2).c_str(), nullptr, kHexadecimal));
    }
    return bytes;
}

}  // namespace

int main(int argc, char** argv)
{
    constexpr int kFirstArgument = 5;
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
    const std::string old = bytesOf(argv[4]);
    for (long sent = 0; sent < attributes.mq_maxmsg && !old.empty(); ++sent) {
        if (::mq_send(queue, old.data(), old.size(), 0) != 0) {
            return kCannot;
        }
    }
    ::mq_close(queue);
    ::execv(argv[kFirstArgument], argv + kFirstArgument);
    return kCannot;
}
