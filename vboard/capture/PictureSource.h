#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "board/Board.h"

namespace board {

constexpr uint32_t kPictureWidth = 720;
constexpr uint32_t kPictureHeight = 480;
constexpr uint32_t kPictureBytes = kPictureWidth * kPictureHeight * 3 / 2;  // NV12

/// What a camera sees: pictures of 720x480 NV12 without padding.
///
/// Threads: one at a time.
class PictureSource {
public:
    PictureSource() = default;
    virtual ~PictureSource() = default;
    PictureSource(const PictureSource&) = delete;
    PictureSource& operator=(const PictureSource&) = delete;

    /// Draws one picture of kPictureBytes; false when there is none any more (the source is lost).
    virtual bool draw(uint64_t frameNumber, uint8_t* nv12) = 0;
};

/// The source behind a camera input (0 to 3) as the board's state says. Anything else is an input that
/// nothing is connected to: a dark, unchanging picture.
std::unique_ptr<PictureSource> makePictureSource(const Board& board, uint32_t camera);

}  // namespace board
