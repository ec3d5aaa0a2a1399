#pragma once

#include <sys/resource.h>

#include <csignal>

namespace unit {

/// While it stands, no file of this process grows above `bytes`: a write that would is cut, the next one
/// fails. The disk is full, as far as the code under test can see.
class FileLimit {
public:
    explicit FileLimit(rlim_t bytes)
    {
        formerHandler_ = std::signal(SIGXFSZ, SIG_IGN);
        ::getrlimit(RLIMIT_FSIZE, &former_);
        rlimit limit = former_;
        limit.rlim_cur = bytes;
        ::setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~FileLimit()
    {
        ::setrlimit(RLIMIT_FSIZE, &former_);
        std::signal(SIGXFSZ, formerHandler_);
    }
    FileLimit(const FileLimit&) = delete;
    FileLimit& operator=(const FileLimit&) = delete;

private:
    rlimit former_ = {};
    void (*formerHandler_)(int) = SIG_DFL;
};

}  // namespace unit
