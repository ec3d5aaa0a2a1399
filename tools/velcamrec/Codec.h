#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "FileWindow.h"

struct AVCodecContext;
struct AVFrame;

namespace recording {

/// The codec library's own messages on standard error end: the verbs say what matters.
void silenceLibrary();

struct PictureSize {
    uint32_t width = 0;
    uint32_t height = 0;
};

/// What a frame's own parameter sets say; nothing when it has none.
std::optional<PictureSize> pictureSize(Bytes frame);

struct Rectangle {
    int x = 0;
    int y = 0;
    int width = 0;
    int height = 0;
};

/// Decodes frames that follow each other, from a key frame on, and keeps the last picture.
///
/// Threads:  one.
/// Lifetime: one run of frames: nothing can be decoded after finish().
/// Errors:   a frame that cannot be decoded is left out; the picture keeps what was there before.
class PictureDecoder {
public:
    PictureDecoder();
    ~PictureDecoder();
    PictureDecoder(const PictureDecoder&) = delete;
    PictureDecoder& operator=(const PictureDecoder&) = delete;
    PictureDecoder(PictureDecoder&&) = delete;
    PictureDecoder& operator=(PictureDecoder&&) = delete;

    void decode(Bytes frame);
    void finish();

    /// Of the last picture; nothing when none was decoded.
    std::optional<PictureSize> size() const;

    /// The last picture, or a part of it that lies within, as a PNG file's content; empty when that fails.
    std::string toPng(const Rectangle& part) const;

private:
    void collect();

    AVCodecContext* context_ = nullptr;
    AVFrame* picture_ = nullptr;  // the last one decoded
    AVFrame* scratch_ = nullptr;
};

}  // namespace recording
