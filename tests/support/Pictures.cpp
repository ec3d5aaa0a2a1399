#include "Pictures.h"

#include <png.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>

#include "capture/PatternCode.h"

namespace support {
namespace {

constexpr size_t kTagBytes = 4;
constexpr size_t kChunkHeaderBytes = 8;

uint32_t littleEndian(const std::string& data, size_t offset)
{
    uint32_t value = 0;
    for (size_t i = kTagBytes; i > 0; --i) {
        value = value << 8 | static_cast<uint8_t>(data[offset + i - 1]);
    }
    return value;
}

/// Looks at the units of an H.264 byte stream.
void classify(const std::string& data, Recording::Chunk& chunk)
{
    constexpr int kTypeMask = 0x1F;
    constexpr int kKeyPicture = 5;
    constexpr int kSequenceParameterSet = 7;
    const std::string_view view =
        std::string_view(data).substr(chunk.offset + kChunkHeaderBytes, chunk.bytes);
    constexpr std::string_view kStart("\0\0\1", 3);
    for (size_t at = view.find(kStart); at != std::string_view::npos; at = view.find(kStart, at + 1)) {
        if (at + kStart.size() >= view.size()) {
            return;
        }
        const int type = static_cast<uint8_t>(view[at + kStart.size()]) & kTypeMask;
        chunk.keyFrame = chunk.keyFrame || type == kKeyPicture;
        chunk.parameterSets = chunk.parameterSets || type == kSequenceParameterSet;
    }
}

}  // namespace

std::optional<Shown> shownIn(const Luma& picture, const Rectangle& part)
{
    const auto reading = board::PatternCode::read(picture.pixels.data(), static_cast<size_t>(picture.width),
                                                  part.x, part.y, part.width, part.height);
    if (!reading) {
        return std::nullopt;
    }
    return Shown{static_cast<int>(reading->camera), reading->frame};
}

Luma Png::luma() const
{
    // The usual weights of red, green and blue, in 256ths.
    constexpr int kRed = 77;
    constexpr int kGreen = 150;
    constexpr int kBlue = 29;
    Luma luma{width, height, std::vector<uint8_t>(rgb.size() / 3)};
    for (size_t i = 0; i < luma.pixels.size(); ++i) {
        const int sum = kRed * rgb[3 * i] + kGreen * rgb[3 * i + 1] + kBlue * rgb[3 * i + 2];
        luma.pixels[i] = static_cast<uint8_t>(sum / 256);
    }
    return luma;
}

Png readPng(const std::string& file)
{
    png_image image = {};
    image.version = PNG_IMAGE_VERSION;
    Png png;
    if (png_image_begin_read_from_file(&image, file.c_str()) == 0) {
        return png;
    }
    image.format = PNG_FORMAT_RGB;
    png.rgb.resize(PNG_IMAGE_SIZE(image));
    if (png_image_finish_read(&image, nullptr, png.rgb.data(), 0, nullptr) == 0) {
        return {};
    }
    png.width = static_cast<int>(image.width);
    png.height = static_cast<int>(image.height);
    return png;
}

FrameReader::FrameReader(const std::string& file, int width, int height)
    : width_(width),
      height_(height),
      decoder_({"/usr/bin/ffmpeg", "-nostdin", "-v", "error", "-i", file, "-fps_mode", "passthrough", "-f",
                "rawvideo", "-pix_fmt", "yuv420p", "-"},
               Child::kPipe, folder_.file("complaints"))
{
}

bool FrameReader::readPlane(std::vector<uint8_t>& plane, size_t bytes)
{
    plane.resize(bytes);
    size_t have = 0;
    while (have < bytes) {
        const ssize_t got = ::read(decoder_.output(), plane.data() + have, bytes - have);
        if (got <= 0) {
            return false;
        }
        have += static_cast<size_t>(got);
    }
    return true;
}

bool FrameReader::next(Frame& frame)
{
    const size_t pixels = static_cast<size_t>(width_) * static_cast<size_t>(height_);
    frame.luma.width = width_;
    frame.luma.height = height_;
    return readPlane(frame.luma.pixels, pixels) && readPlane(frame.blue, pixels / 4) &&
           readPlane(frame.red, pixels / 4);
}

std::string FrameReader::complaints()
{
    const auto status = decoder_.wait();
    return status == 0 ? readFile(folder_.file("complaints"))
                       : "decoder ended with " + std::to_string(status.value_or(-1)) + ": " +
                             readFile(folder_.file("complaints"));
}

Recording readRecording(const std::string& file)
{
    // Where the fixed header has the picture's size, and where it ends.
    constexpr size_t kWidthAt = 64;
    constexpr size_t kHeightAt = 68;
    constexpr size_t kHeaderBytes = 792;
    const std::string data = readFile(file);
    Recording recording;
    if (data.size() < kHeaderBytes || data.compare(0, kTagBytes, "RIFF") != 0 ||
        data.compare(8, kTagBytes, "AVI ") != 0) {
        return recording;
    }
    recording.width = static_cast<int>(littleEndian(data, kWidthAt));
    recording.height = static_cast<int>(littleEndian(data, kHeightAt));
    size_t at = kHeaderBytes;
    while (at + kChunkHeaderBytes <= data.size() && data.compare(at, kTagBytes, "00db") == 0) {
        Recording::Chunk chunk{at, littleEndian(data, at + kTagBytes), false, false};
        if (at + kChunkHeaderBytes + chunk.bytes > data.size()) {
            break;
        }
        classify(data, chunk);
        recording.chunks.push_back(chunk);
        at += kChunkHeaderBytes + chunk.bytes;
    }
    recording.wellFormed = at == data.size();
    return recording;
}

}  // namespace support
