#include "capture/PictureSource.h"

#include <array>
#include <cstring>

#include "capture/ClipSource.h"
#include "capture/PatternSource.h"
#include "capture/PipeSource.h"

namespace board {
namespace {

/// The even dark blue that a video decoder puts out without a signal.
class NoSignalSource : public PictureSource {
public:
    bool draw(uint64_t /*frameNumber*/, uint8_t* nv12) override
    {
        constexpr int kLuma = 32;
        constexpr std::array<uint8_t, 2> kChroma{158, 118};
        constexpr size_t kLumaBytes = size_t{kPictureWidth} * kPictureHeight;
        std::memset(nv12, kLuma, kLumaBytes);
        for (size_t at = kLumaBytes; at < kPictureBytes; at += kChroma.size()) {
            std::memcpy(nv12 + at, kChroma.data(), kChroma.size());
        }
        return true;
    }
};

/// Leaves in the buffer whatever is there.
class IdleSource : public PictureSource {
public:
    bool draw(uint64_t /*frameNumber*/, uint8_t* /*nv12*/) override { return true; }
};

}  // namespace

std::unique_ptr<PictureSource> makePictureSource(const Board& board, uint32_t camera)
{
    if (board.state().devices == Devices::kIdle) {
        return std::make_unique<IdleSource>();
    }
    const SourceKind kind = camera < kCameras ? board.state().cameras[camera].kind : SourceKind::kNone;
    switch (kind) {
        case SourceKind::kPattern:
            return std::make_unique<PatternSource>(camera);
        case SourceKind::kClip:
            return std::make_unique<ClipSource>(board, camera);
        case SourceKind::kPipe:
            return std::make_unique<PipeSource>(board, camera);
        case SourceKind::kNone:
            break;
    }
    return std::make_unique<NoSignalSource>();
}

}  // namespace board
