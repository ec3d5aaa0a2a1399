#pragma once

#include <unistd.h>

#include <cstdio>
#include <string>

namespace unit {

/// Collects what is printed on standard output while it stands.
class Stdout {
public:
    Stdout()
    {
        std::fflush(stdout);
        saved_ = ::dup(STDOUT_FILENO);
        ::dup2(::fileno(file_), STDOUT_FILENO);
    }
    ~Stdout()
    {
        std::fflush(stdout);
        ::dup2(saved_, STDOUT_FILENO);
        ::close(saved_);
        std::fclose(file_);
    }
    Stdout(const Stdout&) = delete;
    Stdout& operator=(const Stdout&) = delete;

    std::string text() const
    {
        std::fflush(stdout);
        std::string all;
        char byte = 0;
        for (off_t at = 0; ::pread(::fileno(file_), &byte, 1, at) == 1; ++at) {
            all += byte;
        }
        return all;
    }

private:
    std::FILE* file_ = std::tmpfile();
    int saved_ = -1;
};

}  // namespace unit
