#pragma once

#include "capture/PictureSource.h"

namespace board {

/// Pictures of a file of raw pictures, one behind the other, in a loop: "camera<N>.nv12" (1 to 4) in the
/// board's folder. What a picture costs is reading the memory it lies in.
///
/// The file is mapped at the first picture; without one whole picture in it there is no picture.
/// Threads: one at a time.
class ClipSource : public PictureSource {
public:
    ClipSource(const Board& board, uint32_t camera) : board_(board), camera_(camera) {}
    ~ClipSource() override;
    ClipSource(const ClipSource&) = delete;
    ClipSource& operator=(const ClipSource&) = delete;

    bool draw(uint64_t frameNumber, uint8_t* nv12) override;

private:
    bool map();

    const Board& board_;
    const uint32_t camera_;
    const uint8_t* pictures_ = nullptr;
    size_t count_ = 0;
};

}  // namespace board
