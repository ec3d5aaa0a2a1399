#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "ipu/PixelFormat.h"

namespace board {

struct Size {
    uint32_t width, height;  ///< pixels
};

struct Rectangle {
    uint32_t x, y, width, height;  ///< pixels
};

/// The lines of one plane inside a picture's rectangle.
struct Plane {
    uint8_t* data;
    size_t strideBytes;
    size_t lineBytes;
    size_t lines;
    size_t sampleBytes;
    size_t firstLine;  ///< number of the first line in the whole plane: says which field it belongs to

    uint8_t* line(size_t index) const { return data + index * strideBytes; }
    int stride() const { return static_cast<int>(strideBytes); }
};

/// A rectangle of a picture in somebody else's memory, plane by plane.
///
/// In a subsampled plane an odd line or column belongs to the sample of its pair (half, rounded down), and a
/// rectangle of odd size has the sample of its last line and column too.
struct PictureView {
    const PixelFormat* format;
    Size size;
    std::array<Plane, 3> planes;

    int width() const { return static_cast<int>(size.width); }
    int height() const { return static_cast<int>(size.height); }
    bool sameSize(const PictureView& other) const
    {
        return size.width == other.size.width && size.height == other.size.height;
    }
};

/// Bytes of a whole picture without padding between lines or planes.
size_t pictureBytes(const PixelFormat& format, Size whole);

/// The rectangle `crop` (inside the picture) of a whole picture that starts at `data`.
PictureView viewPicture(uint8_t* data, const PixelFormat& format, Size whole, const Rectangle& crop);

/// Copies between two views of one format and size.
void copyPicture(const PictureView& from, const PictureView& to);

/// Memory for an intermediate picture; kept from one use to the next.
class ScratchPicture {
public:
    PictureView fit(const PixelFormat& format, Size whole);

private:
    std::vector<uint8_t> bytes_;
};

}  // namespace board
