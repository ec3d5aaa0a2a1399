#include "codec/Instance.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <set>

#include "codec/Parameters.h"

namespace codec {
namespace {

constexpr int kMinFrameBuffers = 2;  // one being written, one being referred to
constexpr int kMacroblock = 16;
constexpr int kStrideUnit = 8;
constexpr int kPictureTypeI = 0;
constexpr int kPictureTypeP = 1;

int wholeMacroblocks(int pixels)
{
    return (pixels + kMacroblock - 1) / kMacroblock * kMacroblock;
}

/// Bytes from the first one of a plane to its last.
size_t planeBytes(Uint32 stride, int rows, int rowBytes)
{
    return static_cast<size_t>(stride) * static_cast<size_t>(rows - 1) + static_cast<size_t>(rowBytes);
}

uint8_t* addressOf(const board::PhysicalMemory& memory, const Region& region)
{
    // A PhysicalAddress is wider than the board's addresses where long is.
    const auto address = static_cast<uint32_t>(region.address);
    return address == region.address ? memory.at(address, region.bytes) : nullptr;
}

}  // namespace

Answer checkRegion(const board::PhysicalMemory& memory, const Region& region, RetCode code)
{
    if (addressOf(memory, region) != nullptr) {
        return {};
    }
    std::array<char, sizeof(board::Refusal::reason)> reason{};
    std::snprintf(reason.data(), reason.size(), "%s: 0x%08lX, %zu bytes: not in one live allocation",
                  region.what, region.address, region.bytes);
    return {code, reason.data()};
}

Instance::Instance(const board::Board& board, const EncOpenParam& parameters,
                   std::unique_ptr<Encoder> encoder, std::optional<CannedFrames> canned)
    : board_(board),
      memory_(board),
      parameters_(parameters),
      encoder_(std::move(encoder)),
      canned_(std::move(canned))
{
}

Answer Instance::initialInfo(EncInitialInfo& info)
{
    if (stage_ != Stage::kOpened) {
        return {RETCODE_CALLED_BEFORE, "initial info was obtained before"};
    }
    info = {};  // no report buffers: reports are not supported
    info.minFrameBufferCount = kMinFrameBuffers;
    stage_ = Stage::kInfoObtained;
    return {};
}

Answer Instance::checkStage(Stage needed) const
{
    if (stage_ >= needed) {
        return {};
    }
    return {RETCODE_WRONG_CALL_SEQUENCE, needed == Stage::kInfoObtained
                                             ? "initial info was not obtained"
                                             : "frame buffers were not registered"};
}

Answer Instance::registerFrames(const FrameRegistration& frames)
{
    if (Answer early = checkStage(Stage::kInfoObtained); !early.done()) {
        return early;
    }
    if (stage_ == Stage::kFramesRegistered) {
        return {RETCODE_CALLED_BEFORE, "frame buffers were registered before"};
    }
    if (Answer wrong = checkStrides(frames); !wrong.done()) {
        return wrong;
    }
    if (Answer wrong = checkBuffers(frames); !wrong.done()) {
        return wrong;
    }
    registered_ = regionsOf(frames);
    for (int i = 0; i < frames.count; ++i) {
        referenceIndexes_.push_back(frames.buffers[i].myIndex);
    }
    sourceStride_ = static_cast<Uint32>(frames.sourceStride);
    stage_ = Stage::kFramesRegistered;
    return {};
}

Answer Instance::checkStrides(const FrameRegistration& frames) const
{
    for (const int stride : {frames.frameStride, frames.sourceStride}) {
        if (stride % kStrideUnit != 0 || stride < parameters_.picWidth) {
            return {RETCODE_INVALID_STRIDE,
                    "stride " + std::to_string(stride) + " is no multiple of 8 or too small"};
        }
    }
    return {};
}

Answer Instance::checkBuffers(const FrameRegistration& frames) const
{
    if (frames.count < kMinFrameBuffers) {
        return {RETCODE_INSUFFICIENT_FRAME_BUFFERS,
                std::to_string(frames.count) + " frame buffers are too few"};
    }
    if (frames.buffers == nullptr) {
        return {RETCODE_INVALID_FRAME_BUFFER, "null frame buffers"};
    }
    std::set<PhysicalAddress> seen;
    for (int i = 0; i < frames.count; ++i) {
        if (frames.buffers[i].strideY != static_cast<Uint32>(frames.frameStride)) {
            return {RETCODE_INVALID_STRIDE, "a frame buffer's strideY is not the registered one"};
        }
        if (!seen.insert(frames.buffers[i].bufY).second) {
            return {RETCODE_INVALID_FRAME_BUFFER, "two frame buffers in the same place"};
        }
    }
    return firstForeign(regionsOf(frames), RETCODE_INVALID_FRAME_BUFFER);
}

std::vector<Region> Instance::regionsOf(const FrameRegistration& frames) const
{
    constexpr size_t kChromaShare = 4;  // of the luma plane, also the share of a sub-sampled picture
    const auto lumaBytes = static_cast<size_t>(frames.frameStride) *
                           static_cast<size_t>(wholeMacroblocks(parameters_.picHeight));
    std::vector<Region> regions{{"sub-sampling buffer A", frames.subSampleA, lumaBytes / kChromaShare},
                                {"sub-sampling buffer B", frames.subSampleB, lumaBytes / kChromaShare}};
    for (int i = 0; i < frames.count; ++i) {
        const FrameBuffer& buffer = frames.buffers[i];
        regions.push_back({"frame buffer's luma", buffer.bufY, lumaBytes});
        regions.push_back({"frame buffer's Cb", buffer.bufCb, lumaBytes / kChromaShare});
        regions.push_back({"frame buffer's Cr", buffer.bufCr, lumaBytes / kChromaShare});
    }
    return regions;
}

Answer Instance::putHeader(EncHeaderParam& header)
{
    if (Answer early = checkStage(Stage::kInfoObtained); !early.done()) {
        return early;
    }
    if (header.headerType != SPS_RBSP && header.headerType != PPS_RBSP) {
        return {RETCODE_INVALID_PARAM, "headerType " + std::to_string(header.headerType) + " is not known"};
    }
    if (Answer foreign = checkRegion(memory_, bitstream(), RETCODE_MEMORY_ACCESS_VIOLATION);
        !foreign.done()) {
        return foreign;
    }
    const Bytes& set =
        header.headerType == SPS_RBSP ? encoder_->sequenceParameters() : encoder_->pictureParameters();
    std::memcpy(addressOf(memory_, bitstream()), set.data(), set.size());  // smaller than the smallest buffer
    header.buf = parameters_.bitstreamBuffer;
    header.size = static_cast<int>(set.size());
    return {};
}

Answer Instance::checkRequest(const EncParam& parameters) const
{
    if (parameters.sourceFrame == nullptr) {
        return {RETCODE_INVALID_FRAME_BUFFER, "null source frame"};
    }
    if (parameters.sourceFrame->strideY != sourceStride_) {
        return {RETCODE_INVALID_STRIDE, "the source frame's strideY is not the registered one"};
    }
    if (parameters.encTopOffset != 0 || parameters.encLeftOffset != 0 || parameters.skipPicture != 0) {
        return {RETCODE_NOT_SUPPORTED, "no picture offsets and no skipped pictures"};
    }
    const bool fixed = parameters_.bitRate == 0;
    if (fixed && (parameters.quantParam < 0 || parameters.quantParam > kMaxQuantiser)) {
        return {RETCODE_INVALID_PARAM, "quantParam out of range"};
    }
    return firstForeign(regionsOf(*parameters.sourceFrame), RETCODE_MEMORY_ACCESS_VIOLATION);
}

Answer Instance::checkFrame(const EncParam& parameters) const
{
    if (Answer early = checkStage(Stage::kFramesRegistered); !early.done()) {
        return early;
    }
    if (Answer wrong = checkRequest(parameters); !wrong.done()) {
        return wrong;
    }
    if (Answer foreign = firstForeign(registered_, RETCODE_MEMORY_ACCESS_VIOLATION); !foreign.done()) {
        return foreign;
    }
    return checkRegion(memory_, bitstream(), RETCODE_MEMORY_ACCESS_VIOLATION);
}

Answer Instance::encode(const EncParam& parameters)
{
    if (Answer wrong = checkFrame(parameters); !wrong.done()) {
        return wrong;
    }
    frameBytes_ = takenBytes_ = 0;
    const auto frame = makeFrame(parameters);
    keyFrameNeeded_ = !frame.has_value();
    if (!frame) {
        return {RETCODE_FAILURE, "the frame does not fit into the bitstream buffer"};
    }
    frame_ = *frame;
    return {};
}

Answer Instance::skip(const EncParam& parameters)
{
    if (Answer wrong = checkFrame(parameters); !wrong.done()) {
        return wrong;
    }
    frameBytes_ = takenBytes_ = 0;
    keyFrameNeeded_ = keyFrameNeeded_ || parameters.forceIPicture != 0;
    frame_ = {};
    return {};
}

std::optional<EncodedFrame> Instance::makeFrame(const EncParam& parameters)
{
    uint8_t* const output = addressOf(memory_, bitstream());
    if (canned_) {
        return canned_->next(output, bitstream().bytes);
    }
    const FrameRequest request{keyFrameNeeded_ || parameters.forceIPicture != 0, parameters.quantParam};
    return encoder_->encode(pictureAt(*parameters.sourceFrame), request, output, bitstream().bytes);
}

Answer Instance::describeOutput(EncOutputInfo& info)
{
    info = {};
    info.bitstreamBuffer = parameters_.bitstreamBuffer;
    if (frame_.bytes == 0) {
        info.skipEncoded = 1;
        info.picType = kPictureTypeP;
        return {};
    }
    info.bitstreamSize = static_cast<Uint32>(frame_.bytes);
    info.picType = frame_.keyFrame ? kPictureTypeI : kPictureTypeP;
    info.numOfSlices = frame_.slices;
    info.reconFrameIndex = referenceIndexes_[frameNumber_ % referenceIndexes_.size()];
    ++frameNumber_;
    frameBytes_ = info.bitstreamSize;
    board_.state().framesEncoded += 1;
    board_.state().bytesEncoded += frame_.bytes;
    return {};
}

void Instance::abandonFrame()
{
    keyFrameNeeded_ = true;
}

Answer Instance::take(Uint32 bytes)
{
    if (bytes > pendingBytes()) {
        return {RETCODE_INVALID_PARAM, "more bytes taken than are pending"};
    }
    takenBytes_ += bytes;
    return {};
}

std::vector<Region> Instance::regionsOf(const FrameBuffer& source) const
{
    const int width = parameters_.picWidth;
    const int chromaRows = parameters_.picHeight / 2;
    const Region luma{"source frame's luma", source.bufY,
                      planeBytes(source.strideY, parameters_.picHeight, width)};
    if (parameters_.chromaInterleave != 0) {
        return {luma, {"source frame's chroma", source.bufCb, planeBytes(source.strideY, chromaRows, width)}};
    }
    const size_t chromaBytes = planeBytes(source.strideC, chromaRows, width / 2);
    return {luma,
            {"source frame's Cb", source.bufCb, chromaBytes},
            {"source frame's Cr", source.bufCr, chromaBytes}};
}

Picture Instance::pictureAt(const FrameBuffer& source) const
{
    const bool interleaved = parameters_.chromaInterleave != 0;
    const auto chromaStride = static_cast<int>(interleaved ? source.strideY : source.strideC);
    Picture picture{{nullptr, nullptr, nullptr},
                    {static_cast<int>(source.strideY), chromaStride, chromaStride}};
    const std::vector<Region> planes = regionsOf(source);
    std::transform(planes.begin(), planes.end(), picture.planes.begin(),
                   [&](const Region& plane) { return addressOf(memory_, plane); });
    return picture;
}

Answer Instance::firstForeign(const std::vector<Region>& regions, RetCode code) const
{
    for (const Region& region : regions) {
        if (Answer foreign = checkRegion(memory_, region, code); !foreign.done()) {
            return foreign;
        }
    }
    return {};
}

Region Instance::bitstream() const
{
    return {"bitstream buffer", parameters_.bitstreamBuffer, parameters_.bitstreamBufferSize};
}

}  // namespace codec
