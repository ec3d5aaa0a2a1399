#include "ipu/Convert.h"

#include <libyuv.h>

namespace board {
namespace {

const PixelFormat& yu12()
{
    static constexpr const PixelFormat* kFormat = findPixelFormat(kYu12);
    return *kFormat;
}

bool toYu12(const PictureView& from, const PictureView& to)
{
    const auto& [first, second, unused] = from.planes;
    const auto& [y, u, v] = to.planes;
    int result = -1;
    switch (from.format->code) {
        case kNv12:
            result = libyuv::NV12ToI420(first.data, first.stride(), second.data, second.stride(), y.data,
                                        y.stride(), u.data, u.stride(), v.data, v.stride(), to.width(),
                                        to.height());
            break;
        case kYuyv:
            result = libyuv::YUY2ToI420(first.data, first.stride(), y.data, y.stride(), u.data, u.stride(),
                                        v.data, v.stride(), to.width(), to.height());
            break;
        case kUyvy:
            result = libyuv::UYVYToI420(first.data, first.stride(), y.data, y.stride(), u.data, u.stride(),
                                        v.data, v.stride(), to.width(), to.height());
            break;
        case kRgbp:
            result = libyuv::RGB565ToI420(first.data, first.stride(), y.data, y.stride(), u.data, u.stride(),
                                          v.data, v.stride(), to.width(), to.height());
            break;
        default:
            break;
    }
    return result == 0;
}

bool fromYu12(const PictureView& from, const PictureView& to)
{
    const auto& [y, u, v] = from.planes;
    const auto& [first, second, unused] = to.planes;
    int result = -1;
    switch (to.format->code) {
        case kNv12:
            result =
                libyuv::I420ToNV12(y.data, y.stride(), u.data, u.stride(), v.data, v.stride(), first.data,
                                   first.stride(), second.data, second.stride(), from.width(), from.height());
            break;
        case kYuyv:
            result = libyuv::I420ToYUY2(y.data, y.stride(), u.data, u.stride(), v.data, v.stride(),
                                        first.data, first.stride(), from.width(), from.height());
            break;
        case kUyvy:
            result = libyuv::I420ToUYVY(y.data, y.stride(), u.data, u.stride(), v.data, v.stride(),
                                        first.data, first.stride(), from.width(), from.height());
            break;
        case kRgbp:
            result = libyuv::I420ToRGB565(y.data, y.stride(), u.data, u.stride(), v.data, v.stride(),
                                          first.data, first.stride(), from.width(), from.height());
            break;
        default:
            break;
    }
    return result == 0;
}

bool scaleYu12(const PictureView& from, const PictureView& to)
{
    const auto& [fromY, fromU, fromV] = from.planes;
    const auto& [toY, toU, toV] = to.planes;
    return libyuv::I420Scale(fromY.data, fromY.stride(), fromU.data, fromU.stride(), fromV.data,
                             fromV.stride(), from.width(), from.height(), toY.data, toY.stride(), toU.data,
                             toU.stride(), toV.data, toV.stride(), to.width(), to.height(),
                             libyuv::kFilterBox) == 0;
}

}  // namespace

bool Converter::run(const PictureView& from, const PictureView& to)
{
    if (from.sameSize(to)) {
        return convert(from, to);
    }
    if (BilinearScaler::takes(from, to)) {
        bilinear_.run(from, to);
        return true;
    }
    if (from.format->code == kNv12 && to.format->code == kNv12) {
        return scaleNv12(from, to);
    }
    const bool packedFrom = from.format->code != kYu12;
    const bool packedTo = to.format->code != kYu12;
    const PictureView source = packedFrom ? unpacked_.fit(yu12(), from.size) : from;
    const PictureView target = packedTo ? scaled_.fit(yu12(), to.size) : to;
    return (!packedFrom || toYu12(from, source)) && scaleYu12(source, target) &&
           (!packedTo || fromYu12(target, to));
}

/// Brightness goes straight to its place; only the chroma is taken apart and put together again. (The
/// library's scaler for chroma pairs rounds down twice, which would tint every grey.)
bool Converter::scaleNv12(const PictureView& from, const PictureView& to)
{
    const auto& [fromY, fromUv, unusedFrom] = from.planes;
    const auto& [toY, toUv, unusedTo] = to.planes;
    const auto& [y, u, v] = unpacked_.fit(yu12(), from.size).planes;
    const auto& [scaledY, scaledU, scaledV] = scaled_.fit(yu12(), to.size).planes;
    libyuv::SplitUVPlane(fromUv.data, fromUv.stride(), u.data, u.stride(), v.data, v.stride(), u.stride(),
                         static_cast<int>(u.lines));
    const bool scaled =
        libyuv::I420Scale(fromY.data, fromY.stride(), u.data, u.stride(), v.data, v.stride(), from.width(),
                          from.height(), toY.data, toY.stride(), scaledU.data, scaledU.stride(), scaledV.data,
                          scaledV.stride(), to.width(), to.height(), libyuv::kFilterBox) == 0;
    libyuv::MergeUVPlane(scaledU.data, scaledU.stride(), scaledV.data, scaledV.stride(), toUv.data,
                         toUv.stride(), scaledU.stride(), static_cast<int>(scaledU.lines));
    return scaled;
}

bool Converter::convert(const PictureView& from, const PictureView& to)
{
    if (from.format == to.format) {
        copyPicture(from, to);
        return true;
    }
    if (to.format->code == kYu12) {
        return toYu12(from, to);
    }
    if (from.format->code == kYu12) {
        return fromYu12(from, to);
    }
    const PictureView between = pivot_.fit(yu12(), from.size);
    return toYu12(from, between) && fromYu12(between, to);
}

}  // namespace board
