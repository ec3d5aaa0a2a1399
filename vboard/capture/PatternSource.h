#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "capture/PictureSource.h"

namespace board {

/// A made-up view from a moving camera, with the machine-readable mark of PatternCode across its middle.
///
/// Everything is painted once, at the first picture; a picture is then put together by copying rows from a
/// canvas at moving offsets, so that it costs about as much as reading the memory. The sky and the hills
/// drift by, the water below glitters: its rows change in a way that motion search cannot foresee, which
/// gives an encoder about as much to do as a camera does. The same frame number always gives the same
/// picture.
///
/// Threads: one at a time.
class PatternSource : public PictureSource {
public:
    explicit PatternSource(uint32_t camera) : camera_(camera) {}

    bool draw(uint64_t frameNumber, uint8_t* nv12) override;

    /// A picture that is laid over another one, with an outline of its own.
    struct Sprite {
        struct Span {
            uint32_t first, last;
        };
        uint32_t width = 0, height = 0;
        std::vector<uint8_t> luma, chroma;  // of width bytes a row; half as many rows of chroma
        std::vector<Span> spans;            // what is opaque of a pair of rows
    };

private:
    void paint();
    void copyRows(uint64_t frameNumber, uint8_t* nv12) const;
    uint32_t offsetOf(uint32_t rowPair, uint64_t frameNumber) const;

    const uint32_t camera_;
    std::vector<uint8_t> luma_, chroma_;  // twice the picture's width, so that any offset has a whole row
    Sprite badge_, ball_;
};

}  // namespace board
