#include "ipu/Picture.h"

#include <cstring>

namespace board {
namespace {

/// Samples that `pixels` pixels need in a plane.
constexpr size_t samples(uint32_t pixels, uint32_t shift)
{
    return (size_t{pixels} + shift) >> shift;
}

}  // namespace

size_t pictureBytes(const PixelFormat& format, Size whole)
{
    size_t bytes = 0;
    for (size_t index = 0; index < format.planeCount; ++index) {
        const PlaneShape& shape = format.planes[index];
        bytes += samples(whole.width, shape.shift) * shape.sampleBytes * samples(whole.height, shape.shift);
    }
    return bytes;
}

PictureView viewPicture(uint8_t* data, const PixelFormat& format, Size whole, const Rectangle& crop)
{
    PictureView view{&format, {crop.width, crop.height}, {}};
    uint8_t* start = data;
    for (size_t index = 0; index < format.planeCount; ++index) {
        const PlaneShape& shape = format.planes[index];
        Plane& plane = view.planes[index];
        plane.strideBytes = samples(whole.width, shape.shift) * shape.sampleBytes;
        plane.lineBytes = samples(crop.width, shape.shift) * shape.sampleBytes;
        plane.lines = samples(crop.height, shape.shift);
        plane.sampleBytes = shape.sampleBytes;
        plane.firstLine = crop.y >> shape.shift;
        plane.data =
            start + plane.firstLine * plane.strideBytes + size_t{crop.x >> shape.shift} * shape.sampleBytes;
        start += plane.strideBytes * samples(whole.height, shape.shift);
    }
    return view;
}

void copyPicture(const PictureView& from, const PictureView& to)
{
    for (size_t index = 0; index < from.format->planeCount; ++index) {
        const Plane& source = from.planes[index];
        const Plane& target = to.planes[index];
        for (size_t line = 0; line < source.lines; ++line) {
            std::memcpy(target.line(line), source.line(line), source.lineBytes);
        }
    }
}

PictureView ScratchPicture::fit(const PixelFormat& format, Size whole)
{
    const size_t bytes = pictureBytes(format, whole);
    if (bytes_.size() < bytes) {
        bytes_.resize(bytes);
    }
    return viewPicture(bytes_.data(), format, whole, {0, 0, whole.width, whole.height});
}

}  // namespace board
