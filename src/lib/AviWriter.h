#pragma once

#include "lib/VideoWriter.h"

/// Writes an AVI file with one H.264 stream that can be cut off after any frame and continued at any time: a
/// header of fixed sizes and no frame counts, then one chunk a frame, no index, nothing patched at the end.
///
/// Threads:  as VideoWriter.
/// Lifetime: as VideoWriter. An existing recording (above 200 bytes) is continued under its own header.
/// Errors:   as VideoWriter. A header that could not be written leaves the file open with the part that
///           reached it.
class AviWriter final : public VideoWriter {
public:
    AviWriter() = default;
    AviWriter(const AviWriter&) = delete;
    AviWriter(AviWriter&&) = delete;
    AviWriter& operator=(const AviWriter&) = delete;
    AviWriter& operator=(AviWriter&&) = delete;
    ~AviWriter() { stop(); }

    bool start(std::string path, const VIDEO_FORMAT& format) override;

    /// The first chunk after start() carries the codec header in front of its frame.
    bool writeChunk(void* data, unsigned int length) override;

    // The building routines: each places its bytes at `*position` (little-endian) and moves it on. The caller
    // has the room.
    static void writeText(char* buffer, unsigned int* position,
                          const char* text);  ///< without the terminator
    static void writeDWORD(char* buffer, unsigned int* position, u_int32_t value);
    static void writeWORD(char* buffer, unsigned int* position, u_int32_t value);  ///< the low 2 bytes
    static void writeLONG(char* buffer, unsigned int* position, u_int32_t value);  ///< 8 bytes, upper 4 zero
    static void writePadding(char* buffer, unsigned int* position, u_int8_t count);  ///< `count` zero DWORDs
    static void writeFormat(char* buffer, unsigned int* position,
                            VID_FORMAT format);  ///< "H264", else 4 zero DWORDs

private:
    bool writeHeader(const VIDEO_FORMAT& format);
};
