#pragma once

#include <linux/videodev2.h>

#include <array>
#include <cstdint>
#include <memory>
#include <mutex>

#include "board/Board.h"
#include "capture/BufferQueue.h"
#include "capture/FrameClock.h"
#include "capture/PictureSource.h"
#include "faults/FaultPlan.h"

namespace board {

/// The buffers of a capture device and the frames that go through them: the streaming half of V4L2.
///
/// Frames:  paced cameras share instants; one without a queued buffer loses its frame. Without pacing a
///          dequeue gets a frame at once and none is lost.
/// Threads: any. A dequeue waits, and its picture is drawn, outside the lock. A signal ends the wait (EINTR).
/// Errors:  as the requests of the same names: 0, or a negative errno; a refusal is noted on the board.
class CaptureStream {
public:
    /// `device` is the name for the board's report and the owner of its memory; it must outlive the stream.
    CaptureStream(Board& board, const char* device, unsigned index);

    int requestBuffers(v4l2_requestbuffers& record);
    int queryBuffer(v4l2_buffer& record);
    int queueBuffer(v4l2_buffer& record);
    int dequeueBuffer(v4l2_buffer& record);
    int streamOn(const int& type);
    int streamOff(const int& type);

    /// What a fault does to the camera at a dequeue; false for one that is no camera's.
    bool befall(FaultKind kind);

    bool isStreaming() const;
    bool isPresent() const;  ///< false: the node has disappeared
    bool hasSignal() const;
    bool hasBuffers() const;
    /// The last handle has gone: streaming stops, buffers are given back.
    void end();

private:
    /// The camera input that is shown now; kCameras when there is none.
    uint32_t camera() const;
    int refuse(const char* call, int error, const char* reason) const;

    /// These are called with the lock held.
    bool namesBuffer(const v4l2_buffer& record) const;
    int learnAddress(const v4l2_buffer& record);
    int checkQueued(const v4l2_buffer& record);
    void describe(uint32_t index, v4l2_buffer& record);
    int allocateBuffers(uint32_t count);
    void freeBuffers();
    void stopStreaming();
    void advance(uint64_t nowUs);
    bool loseFrame();
    void wrapSoon();

    /// Takes the lock itself.
    int checkDequeued(const v4l2_buffer& record);
    enum class Turn { kTaken, kWait, kEnded };
    /// One look of a dequeue for a frame; takes the lock itself. kWait: `napUs` is how long nothing can come.
    Turn takeFrame(uint32_t& index, uint64_t& napUs);
    /// Takes the lock only where needed: drawing may wait for a source.
    int deliver(uint32_t index, v4l2_buffer& record);
    bool drawFrame(uint32_t camera, uint64_t number, uint8_t* nv12);
    void countDelivered(uint32_t camera, uint64_t number) const;
    void countInstant(uint64_t number) const;

    Board& board_;
    const char* const device_;
    const unsigned index_;
    const FrameClock clock_;

    mutable std::mutex lock_;  // all below, up to the next lock
    uint32_t memory_ = 0;      // V4L2_MEMORY_MMAP or _USERPTR
    BufferQueue buffers_;
    bool streaming_ = false;
    uint32_t session_ = 0;        // number of the streaming, so that a late dequeue leaves the next one alone
    uint64_t firstInstant_ = 0;   // of this streaming, when paced
    uint64_t nextInstant_ = 0;    // the first one that is not dealt with, when paced
    uint32_t nextSequence_ = 0;   // when not paced
    uint64_t unpacedFrames_ = 0;  // so far, also before this streaming: the next one's number

    // What has befallen the camera.
    bool present_ = true;
    bool signal_ = true;
    bool badFrame_ = false;      // the next one
    uint32_t framesToLose_ = 0;  // the next ones
    uint32_t sequenceOffset_ = 0;
    uint64_t timeOffsetUs_ = 0;

    std::mutex drawing_;
    std::array<std::unique_ptr<PictureSource>, kCameras + 1> sources_;  // the last one: no input
};

}  // namespace board
