#pragma once

#include <cstdint>
#include <string>

#include "FileWindow.h"
#include "Header.h"

struct AVFormatContext;
struct AVPacket;

namespace recording {

/// Writes frames as they are into a file that players can search: AVI, MP4 or Matroska.
///
/// Threads:  one.
/// Lifetime: open() begins the file, finish() completes it; one that was not finished is of no use.
/// Errors:   false, with a text in error().
class Muxer {
public:
    Muxer() = default;
    ~Muxer();
    Muxer(const Muxer&) = delete;
    Muxer& operator=(const Muxer&) = delete;
    Muxer(Muxer&&) = delete;
    Muxer& operator=(Muxer&&) = delete;

    /// The kind of file that a name's ending asks for, as the library calls it; nullptr for an unknown
    /// ending.
    static const char* kindFor(const std::string& path);

    /// `codecHeader` is that of the first frame, with start codes.
    bool open(const std::string& path, const char* kind, const Format& format, Bytes codecHeader);

    /// A frame with start codes, shown at `number` / frames per second.
    bool write(Bytes frame, uint64_t number, bool keyFrame);
    bool finish();

    const std::string& error() const { return error_; }

private:
    bool addStream(const Format& format, Bytes codecHeader);
    bool check(int result);

    AVFormatContext* context_ = nullptr;
    AVPacket* packet_ = nullptr;
    uint32_t framesPerSecond_ = 0;
    std::string error_;
};

}  // namespace recording
