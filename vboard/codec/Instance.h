#pragma once

#include <memory>
#include <optional>
#include <vector>

#include "board/Board.h"
#include "codec/Answer.h"
#include "codec/CannedFrames.h"
#include "codec/Encoder.h"
#include "memory/PhysicalMemory.h"

namespace codec {

/// A stretch of physical memory that the codec is to use.
struct Region {
    const char* what;  ///< for the report
    PhysicalAddress address;
    size_t bytes;
};

/// What vpu_EncRegisterFrameBuffer is given.
struct FrameRegistration {
    const FrameBuffer* buffers;
    int count;
    int frameStride, sourceStride;
    PhysicalAddress subSampleA, subSampleB;
};

/// One opened encoder: its place in the order of calls, the memory it was given, the encoder itself.
///
/// Every address is looked up in the board's memory before it is used, and the registered ones again at each
/// frame: what was released in between is a violation, as it is for the hardware, which writes there.
/// Threads: under the codec's lock.
class Instance {
public:
    /// The parameters have passed check(). With canned frames, pictures are not looked at.
    Instance(const board::Board& board, const EncOpenParam& parameters, std::unique_ptr<Encoder> encoder,
             std::optional<CannedFrames> canned);

    Answer initialInfo(EncInitialInfo& info);
    Answer registerFrames(const FrameRegistration& frames);
    /// Writes a parameter set to the start of the bitstream buffer and says where it is.
    Answer putHeader(EncHeaderParam& header);

    /// Encodes the picture into the bitstream buffer.
    Answer encode(const EncParam& parameters);
    /// Leaves the picture out, as an encoder may that is short of bits; a key frame that was due stays so.
    Answer skip(const EncParam& parameters);
    /// Describes the frame that encode() made, or skip() did not.
    Answer describeOutput(EncOutputInfo& info);
    /// The frame that encode() made is lost: the next one has to stand by itself.
    void abandonFrame();

    /// What of the last frame has not been taken yet.
    PhysicalAddress readAddress() const { return parameters_.bitstreamBuffer + takenBytes_; }
    Uint32 pendingBytes() const { return frameBytes_ - takenBytes_; }
    Answer take(Uint32 bytes);

private:
    enum class Stage { kOpened, kInfoObtained, kFramesRegistered };

    Answer checkStage(Stage needed) const;
    Answer checkFrame(const EncParam& parameters) const;
    Answer checkRequest(const EncParam& parameters) const;
    Answer checkStrides(const FrameRegistration& frames) const;
    Answer checkBuffers(const FrameRegistration& frames) const;
    std::vector<Region> regionsOf(const FrameRegistration& frames) const;
    std::vector<Region> regionsOf(const FrameBuffer& source) const;
    Picture pictureAt(const FrameBuffer& source) const;
    std::optional<EncodedFrame> makeFrame(const EncParam& parameters);
    Answer firstForeign(const std::vector<Region>& regions, RetCode code) const;
    Region bitstream() const;

    const board::Board& board_;
    board::PhysicalMemory memory_;
    EncOpenParam parameters_;
    std::unique_ptr<Encoder> encoder_;
    std::optional<CannedFrames> canned_;
    Stage stage_ = Stage::kOpened;

    std::vector<Region> registered_;
    std::vector<int> referenceIndexes_;  ///< `myIndex` of each reference frame
    Uint32 sourceStride_ = 0;
    size_t frameNumber_ = 0;
    bool keyFrameNeeded_ = true;
    EncodedFrame frame_{};
    Uint32 frameBytes_ = 0, takenBytes_ = 0;
};

/// Whether a stretch lies in the board's memory: answers with `code` and a reason when it does not.
Answer checkRegion(const board::PhysicalMemory& memory, const Region& region, RetCode code);

}  // namespace codec
