#pragma once

#include <memory>
#include <mutex>
#include <vector>

#include "board/Board.h"
#include "codec/Answer.h"
#include "codec/Instance.h"

namespace codec {

/// The codec of a process: the opened encoders and the one frame that is in work.
///
/// A frame is encoded inside start(); it counts as running until a wait has seen its end, and as pending
/// until its output was fetched. A hung frame never ends: only a reset frees the codec. A skipped one is not
/// encoded: it ends as any other, without output.
///
/// Threads:  any; waiting for the end of a frame is done outside the lock.
/// Lifetime: that of the process; encoders still open at the last unInit() are closed.
class Codec {
public:
    static Codec& instance();

    Answer init(const board::Board& board);
    Answer unInit();
    Answer version(vpu_versioninfo* info);

    Answer open(const board::Board& board, EncHandle* handle, const EncOpenParam* parameters);
    Answer close(EncHandle handle);
    Answer initialInfo(EncHandle handle, EncInitialInfo* info);
    Answer registerFrames(EncHandle handle, const FrameRegistration& frames);
    Answer command(EncHandle handle, CodecCommand command, void* parameter);

    enum class Outcome { kCompletes, kHangs, kSkips };
    Answer start(EncHandle handle, const EncParam* parameters, Outcome outcome);
    bool busy();
    /// True when the running frame has ended; false after `timeoutMs` when there is none.
    bool wait(int timeoutMs);
    /// The running frame, if there is one, will not end.
    void hang();
    Answer reset(EncHandle handle);
    Answer output(EncHandle handle, EncOutputInfo* info);

    Answer bitstream(EncHandle handle, PhysicalAddress* read, PhysicalAddress* write, Uint32* bytes);
    Answer takeBitstream(EncHandle handle, Uint32 bytes);

private:
    enum class Frame { kNone, kRunning, kHung, kEnded };

    Instance* find(EncHandle handle) const;
    /// Runs `work` on the instance of a handle, under the lock.
    template <typename Work>
    Answer with(EncHandle handle, Work work);
    bool frameInWork() const { return frame_ == Frame::kRunning || frame_ == Frame::kHung; }
    bool endFrame();
    void forgetFrame();

    std::mutex lock_;
    int users_ = 0;
    std::vector<std::unique_ptr<Instance>> instances_;
    Frame frame_ = Frame::kNone;
    Instance* pending_ = nullptr;  ///< whose frame it is
};

}  // namespace codec
