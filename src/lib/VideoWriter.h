#pragma once

#include <sys/types.h>

#include <string>

/// Puts encoded H.264 frames into a file: the descriptor, the codec header (SPS and PPS) and the one write
/// routine that the concrete writers share.
///
/// Threads:  one thread (the frame loop's).
/// Lifetime: start() opens a file, stop() closes it; the concrete writers' destructors stop. The codec header
///           is kept over start() and stop(), until the encoder collects it again.
/// Errors:   false, without a message; what reached the file stays in it. Nothing is written to a closed
///           writer, and that counts as success.
class VideoWriter {
public:
    enum VID_FORMAT : u_int32_t { UNKNOWN = 0, H264 = 1 };

    struct VIDEO_FORMAT {
        u_int32_t fps = 0;     ///< frames per second
        u_int32_t maxBps = 0;  ///< bytes per second
        u_int32_t width = 0;   ///< pixels
        u_int32_t height = 0;  ///< pixels
        VID_FORMAT fmt = UNKNOWN;
    };

    VideoWriter() = default;
    VideoWriter(const VideoWriter&) = delete;
    VideoWriter(VideoWriter&&) = delete;
    VideoWriter& operator=(const VideoWriter&) = delete;
    VideoWriter& operator=(VideoWriter&&) = delete;

    /// Opens `path` for continuing: data always goes to its end. Prints the file's size and whether a
    /// recording is continued.
    virtual bool start(std::string path, const VIDEO_FORMAT& format) = 0;

    /// Writes one encoded frame of `length` bytes.
    virtual bool writeChunk(void* data, unsigned int length) = 0;

    /// Forgets the codec header, for the encoder to collect it anew.
    void startHeader() { headerLength = 0; }

    /// Appends to the codec header. What does not fit as a whole is refused with one line on standard output.
    void writeToHeader(const char* data, unsigned int length);

    void stop();

protected:
    // Not virtual: nobody owns a writer through its base. The concrete classes are final.
    ~VideoWriter() = default;

    /// Opens `path` for appending and makes it when missing; decides whether a recording is continued.
    bool open_file(const char* path);

    /// Writes `length` bytes, then `padding` zero bytes. Only the former can fail.
    bool outputBuffer(const char* data, unsigned int length, int padding);

    /// Writes `head`, `data` and up to kMaxPadding zero bytes, in one call as long as the disk takes them.
    /// Only the padding cannot fail.
    bool outputChunk(const char* head, unsigned int headLength, const char* data, unsigned int length,
                     unsigned int padding);

    static constexpr unsigned int kMaxPadding = 3;  // bytes

    static constexpr unsigned int kHeaderCapacity = 80;  // bytes; SPS and PPS of this encoder take about 30

    int fd = -1;  ///< -1: closed
    char header[kHeaderCapacity] = {};
    unsigned int headerLength = 0;  ///< bytes in `header`, never above its capacity
    bool firstFrame = true;         ///< no chunk written since start()
    bool append = false;            ///< the file already held a recording when it was opened
};
