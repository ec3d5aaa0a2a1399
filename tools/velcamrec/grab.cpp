#include <array>
#include <cstdio>

#include "Codec.h"
#include "OutputFile.h"
#include "Passage.h"
#include "Verbs.h"

namespace recording {
namespace {

constexpr int kTileWidth = 720;
constexpr int kTileHeight = 480;

// Where the recorded picture shows the cameras 1 to 4; the clock is above them.
// NOLINTBEGIN(readability-magic-numbers): the format's own
constexpr std::array kTiles{
    Rectangle{0, 30, kTileWidth, kTileHeight},
    Rectangle{720, 30, kTileWidth, kTileHeight},
    Rectangle{0, 510, kTileWidth, kTileHeight},
    Rectangle{720, 510, kTileWidth, kTileHeight},
};
// NOLINTEND(readability-magic-numbers)

/// The whole picture for camera 0; nothing for a camera that is not in it.
std::optional<Rectangle> partFor(unsigned camera, const PictureSize& size)
{
    const auto width = static_cast<int>(size.width);
    const auto height = static_cast<int>(size.height);
    if (camera == 0) {
        return Rectangle{0, 0, width, height};
    }
    const Rectangle& tile = kTiles[camera - 1];
    const bool within = tile.x + tile.width <= width && tile.y + tile.height <= height;
    return within ? std::optional(tile) : std::nullopt;
}

int writePicture(const GrabRequest& request, const PictureDecoder& decoder, OutputFile& output)
{
    const auto size = decoder.size();
    if (!size) {
        return fail(kFailed, request.make.input + " has no picture there that can be decoded");
    }
    const auto part = partFor(request.camera, *size);
    if (!part) {
        return fail(kFailed, "camera " + std::to_string(request.camera) +
                                 " is not in this recording, whose picture is " +
                                 std::to_string(size->width) + "x" + std::to_string(size->height));
    }
    const std::string png = decoder.toPng(*part);
    if (png.empty()) {
        return fail(kFailed, "the picture cannot be made");
    }
    const std::vector<uint8_t> bytes(png.begin(), png.end());
    if (!output.write({bytes.data(), bytes.size()}) || !output.commit()) {
        return fail(kFailed, request.make.output + " cannot be written: " + output.error());
    }
    std::printf("%s: %dx%d", request.make.output.c_str(), part->width, part->height);
    return kDone;
}

}  // namespace

int runGrab(const GrabRequest& request)
{
    const MakeRequest& make = request.make;
    const auto rate = recordingRate(make.input);
    if (!rate) {
        return kFailed;
    }
    OutputFile output;
    const auto existing = make.force ? OutputFile::Existing::kReplace : OutputFile::Existing::kRefuse;
    if (!output.prepare(make.output, make.input, existing)) {
        return fail(kFailed, make.output + " " + output.error());
    }
    const uint64_t wanted = frameAt(request.at, *rate);
    Passage passage;
    if (!findPassage(make.input, wanted, wanted + 1, Widening::kBefore, passage)) {
        return kFailed;
    }
    PictureDecoder decoder;
    PassageResult result;
    const auto take = [&](const PassageFrame& frame) {
        decoder.decode(frame.data);
        return true;
    };
    if (!readPassage(make.input, "grab " + make.input, passage, take, result)) {
        return kFailed;
    }
    decoder.finish();
    const int status = writePicture(request, decoder, output);
    if (status == kDone) {
        std::printf(", frame %llu at %s%s\n", static_cast<unsigned long long>(passage.end - 1),
                    clockText(passage.summary.seconds(passage.end - 1)).c_str(),
                    result.faults == 0 ? "" : "; frames before it are damaged, so it may show remnants");
    }
    return status;
}

}  // namespace recording
