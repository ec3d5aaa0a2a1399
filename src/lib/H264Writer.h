#pragma once

#include "lib/VideoWriter.h"

/// Writes a raw H.264 byte stream (Annex B): the codec header, then the frames as the encoder delivers them.
///
/// Threads, lifetime, errors: as VideoWriter. The codec header is written at every start(), also when a file
/// is continued.
class H264Writer final : public VideoWriter {
public:
    H264Writer() = default;
    H264Writer(const H264Writer&) = delete;
    H264Writer(H264Writer&&) = delete;
    H264Writer& operator=(const H264Writer&) = delete;
    H264Writer& operator=(H264Writer&&) = delete;
    ~H264Writer() { stop(); }

    bool start(std::string path, const VIDEO_FORMAT& format) override;
    bool writeChunk(void* data, unsigned int length) override;
};
