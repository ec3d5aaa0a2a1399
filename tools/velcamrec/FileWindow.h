#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace recording {

/// Bytes that belong to somebody else.
struct Bytes {
    const uint8_t* data = nullptr;
    size_t size = 0;
};

/// A file that is looked at through one buffer, which is as large as the largest view asked for. The file is
/// opened for reading only and its size is taken once, so that a recording can be read while it grows.
///
/// Threads:  one.
/// Lifetime: open() once; the destructor closes. What view() gave holds until the next view().
/// Errors:   open() and a failed read leave their text in error().
class FileWindow {
public:
    enum class Pace {
        kSparse,  ///< views lie apart: read little more than what is asked for
        kWhole    ///< views follow each other: read far ahead
    };

    FileWindow() = default;
    ~FileWindow();
    FileWindow(const FileWindow&) = delete;
    FileWindow& operator=(const FileWindow&) = delete;
    FileWindow(FileWindow&&) = delete;
    FileWindow& operator=(FileWindow&&) = delete;

    /// False for what is not a regular file.
    bool open(const std::string& path, Pace pace);

    off_t size() const { return size_; }

    /// At most `length` bytes from `offset` on: fewer at the end of the file, or when reading fails.
    Bytes view(off_t offset, size_t length);

    /// What the buffer holds from `offset` on when that is `least` bytes or more, else at most `length`
    /// bytes: for going through a file piece by piece.
    Bytes nextPiece(off_t offset, size_t least, size_t length);

    /// Whether the file holds these bytes at `offset`, as far as it reaches. Leaves the buffer as it is:
    /// looking ahead and coming back shall cost nothing.
    bool holds(off_t offset, Bytes expected);

    /// Whether somebody has written behind what is looked at, or does so while this waits for a moment.
    bool isGrowing() const;

    const std::string& error() const { return error_; }

private:
    void load(off_t offset, size_t length);

    int file_ = -1;
    off_t size_ = 0;
    Pace pace_ = Pace::kSparse;
    std::vector<uint8_t> buffer_;
    off_t start_ = 0;    // of the buffer in the file
    size_t filled_ = 0;  // bytes in the buffer
    std::string error_;
};

}  // namespace recording
