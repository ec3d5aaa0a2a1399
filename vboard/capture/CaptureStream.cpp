#include "capture/CaptureStream.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <limits>

#include "board/Real.h"
#include "capture/PictureSource.h"
#include "memory/PhysicalMemory.h"

namespace board {
namespace {

constexpr uint64_t kUsPerSecond = 1000000;
constexpr uint64_t kLongestNapUs = 20000;  // so that a waiting dequeue sees the end of streaming
constexpr uint64_t kIdleNapUs = 1000;
constexpr int kUnfilledByte = 0x80;

bool isCapture(uint32_t type)
{
    return type == V4L2_BUF_TYPE_VIDEO_CAPTURE;
}

uint32_t stateFlags(CaptureBuffer::State state)
{
    switch (state) {
        case CaptureBuffer::State::kQueued:
            return V4L2_BUF_FLAG_QUEUED;
        case CaptureBuffer::State::kDone:
        case CaptureBuffer::State::kHandedOut:
            return V4L2_BUF_FLAG_DONE;
        case CaptureBuffer::State::kDequeued:
            break;
    }
    return 0;
}

}  // namespace

CaptureStream::CaptureStream(Board& board, const char* device, unsigned index)
    : board_(board), device_(device), index_(index), clock_(board.state())
{
}

uint32_t CaptureStream::camera() const
{
    const uint32_t chosen =
        board_.state().cpu == Cpu::kDualLite ? board_.state().inputPair[index_].load() : index_;
    return std::min<uint32_t>(chosen, kCameras);
}

int CaptureStream::requestBuffers(v4l2_requestbuffers& record)
{
    const bool knownMemory = record.memory == V4L2_MEMORY_MMAP || record.memory == V4L2_MEMORY_USERPTR;
    if (!isCapture(record.type) || !knownMemory) {
        return -EINVAL;
    }
    const std::lock_guard<std::mutex> guard(lock_);
    if (streaming_) {
        return refuse("VIDIOC_REQBUFS", -EBUSY, "streaming");
    }
    freeBuffers();
    record.count = std::min(record.count, BufferQueue::kMostBuffers);
    memory_ = record.memory;
    return allocateBuffers(record.count);
}

int CaptureStream::allocateBuffers(uint32_t count)
{
    buffers_.resize(count);
    if (memory_ != V4L2_MEMORY_MMAP) {
        return 0;
    }
    const PhysicalMemory physical(board_);
    for (uint32_t index = 0; index < count; ++index) {
        CaptureBuffer& buffer = buffers_[index];
        buffer.physical = physical.allocate(kPictureBytes, device_);
        buffer.length = kPictureBytes;
        if (buffer.physical == 0) {
            freeBuffers();
            return refuse("VIDIOC_REQBUFS", -ENOMEM, "no physical memory left");
        }
    }
    return 0;
}

void CaptureStream::freeBuffers()
{
    if (memory_ == V4L2_MEMORY_MMAP) {
        const PhysicalMemory physical(board_);
        for (uint32_t index = 0; index < buffers_.count(); ++index) {
            if (buffers_[index].physical != 0) {
                physical.release(buffers_[index].physical);
            }
        }
    }
    buffers_.resize(0);
}

bool CaptureStream::namesBuffer(const v4l2_buffer& record) const
{
    return isCapture(record.type) && record.index < buffers_.count() && record.memory == memory_;
}

int CaptureStream::queryBuffer(v4l2_buffer& record)
{
    const std::lock_guard<std::mutex> guard(lock_);
    if (!namesBuffer(record)) {
        return refuse("VIDIOC_QUERYBUF", -EINVAL, "no such buffer, or of another type or memory");
    }
    if (memory_ == V4L2_MEMORY_USERPTR) {
        const int learned = learnAddress(record);
        if (learned != 0) {
            return learned;
        }
    }
    describe(record.index, record);
    return 0;
}

int CaptureStream::learnAddress(const v4l2_buffer& record)
{
    CaptureBuffer& buffer = buffers_[record.index];
    if (buffer.state != CaptureBuffer::State::kDequeued) {
        return refuse("VIDIOC_QUERYBUF", -EBUSY, "the address of a queued buffer cannot change");
    }
    if (record.length < kPictureBytes) {
        return refuse("VIDIOC_QUERYBUF", -EINVAL, "buffer is smaller than a picture");
    }
    const uint64_t address = record.m.userptr;
    const bool fits = address <= std::numeric_limits<uint32_t>::max();
    if (!fits || PhysicalMemory(board_).at(static_cast<uint32_t>(address), record.length) == nullptr) {
        return refuse("VIDIOC_QUERYBUF", -EFAULT, "address is not inside a live allocation");
    }
    buffer.physical = static_cast<uint32_t>(address);
    buffer.userStart = address;
    buffer.length = record.length;
    return 0;
}

void CaptureStream::describe(uint32_t index, v4l2_buffer& record)
{
    const CaptureBuffer& buffer = buffers_[index];
    record.index = index;
    record.memory = memory_;
    record.flags = stateFlags(buffer.state) | V4L2_BUF_FLAG_TIMESTAMP_MONOTONIC;
    record.field = V4L2_FIELD_INTERLACED;
    record.length = buffer.length;
    record.bytesused = kPictureBytes;
    record.sequence = buffer.frame.sequence + sequenceOffset_;
    const uint64_t timeUs = buffer.frame.timeUs + timeOffsetUs_;
    record.timestamp = {};
    record.timestamp.tv_sec = static_cast<decltype(record.timestamp.tv_sec)>(timeUs / kUsPerSecond);
    record.timestamp.tv_usec = static_cast<decltype(record.timestamp.tv_usec)>(timeUs % kUsPerSecond);
    if (memory_ == V4L2_MEMORY_MMAP) {
        record.m.offset = buffer.physical;
        record.flags |= V4L2_BUF_FLAG_MAPPED;
    } else {
        record.m.userptr = static_cast<decltype(record.m.userptr)>(buffer.userStart);
    }
}

int CaptureStream::queueBuffer(v4l2_buffer& record)
{
    const std::lock_guard<std::mutex> guard(lock_);
    const int wrong = checkQueued(record);
    if (wrong != 0) {
        return wrong;
    }
    CaptureBuffer& buffer = buffers_[record.index];
    if (memory_ == V4L2_MEMORY_USERPTR) {
        buffer.userStart = record.m.userptr;
        buffer.length = record.length;
    }
    if (streaming_) {
        advance(real::monotonicUs());  // frames before now did not find this buffer
    }
    buffer.frame = {};
    buffers_.queue(record.index);
    describe(record.index, record);
    return 0;
}

int CaptureStream::checkQueued(const v4l2_buffer& record)
{
    constexpr const char* kCall = "VIDIOC_QBUF";
    if (!namesBuffer(record)) {
        return refuse(kCall, -EINVAL, "no such buffer, or of another type or memory");
    }
    const CaptureBuffer& buffer = buffers_[record.index];
    if (buffer.state != CaptureBuffer::State::kDequeued) {
        return refuse(kCall, -EINVAL, "buffer is already queued");
    }
    if (buffer.physical == 0) {
        return refuse(kCall, -EINVAL, "the driver was not told the buffer's address");
    }
    if (memory_ == V4L2_MEMORY_USERPTR && record.length < kPictureBytes) {
        return refuse(kCall, -EINVAL, "buffer is smaller than a picture");
    }
    return 0;
}

int CaptureStream::streamOn(const int& type)
{
    if (!isCapture(static_cast<uint32_t>(type))) {
        return -EINVAL;
    }
    const std::lock_guard<std::mutex> guard(lock_);
    if (streaming_) {
        return 0;
    }
    if (buffers_.count() == 0) {
        return refuse("VIDIOC_STREAMON", -EINVAL, "no buffers were requested");
    }
    streaming_ = true;
    ++session_;
    nextSequence_ = 0;
    if (clock_.paced()) {
        firstInstant_ = clock_.firstAfter(real::monotonicUs());
        nextInstant_ = firstInstant_;
    }
    return 0;
}

int CaptureStream::streamOff(const int& type)
{
    if (!isCapture(static_cast<uint32_t>(type))) {
        return -EINVAL;
    }
    const std::lock_guard<std::mutex> guard(lock_);
    stopStreaming();
    return 0;
}

void CaptureStream::stopStreaming()
{
    if (streaming_) {
        advance(real::monotonicUs());
    }
    streaming_ = false;
    buffers_.reset();
}

void CaptureStream::advance(uint64_t nowUs)
{
    if (!clock_.paced()) {
        return;
    }
    for (; clock_.at(nextInstant_) <= nowUs; ++nextInstant_) {
        const auto sequence = static_cast<uint32_t>(nextInstant_ - firstInstant_);
        const bool found = buffers_.fill({nextInstant_, sequence, clock_.at(nextInstant_)});
        const uint32_t shown = camera();
        if (!found && shown < kCameras) {
            ++board_.state().cameras[shown].dropped;
        }
    }
}

int CaptureStream::dequeueBuffer(v4l2_buffer& record)
{
    const int wrong = checkDequeued(record);
    if (wrong != 0) {
        return wrong;
    }
    while (true) {
        uint32_t index = 0;
        uint64_t napUs = 0;
        switch (takeFrame(index, napUs)) {
            case Turn::kTaken:
                return deliver(index, record);
            case Turn::kEnded:
                return refuse("VIDIOC_DQBUF", -EINVAL, "not streaming");
            case Turn::kWait:
                break;
        }
        if (!real::sleepUs(napUs)) {
            return -EINTR;
        }
    }
}

int CaptureStream::checkDequeued(const v4l2_buffer& record)
{
    const std::lock_guard<std::mutex> guard(lock_);
    if (!isCapture(record.type) || (buffers_.count() != 0 && record.memory != memory_)) {
        return refuse("VIDIOC_DQBUF", -EINVAL, "another type or memory than was requested");
    }
    return 0;
}

CaptureStream::Turn CaptureStream::takeFrame(uint32_t& index, uint64_t& napUs)
{
    const std::lock_guard<std::mutex> guard(lock_);
    if (!streaming_) {
        return Turn::kEnded;
    }
    const uint64_t nowUs = real::monotonicUs();
    advance(nowUs);
    if (!clock_.paced() && !buffers_.anyDone() && buffers_.anyQueued()) {
        buffers_.fill({unpacedFrames_, nextSequence_, nowUs});
        ++nextSequence_;
        ++unpacedFrames_;
    }
    if (buffers_.anyDone() && !loseFrame()) {
        index = buffers_.takeDone();
        return Turn::kTaken;
    }
    napUs = clock_.paced() ? std::min(clock_.at(nextInstant_) - nowUs, kLongestNapUs) : kIdleNapUs;
    return Turn::kWait;
}

int CaptureStream::deliver(uint32_t index, v4l2_buffer& record)
{
    std::unique_lock<std::mutex> guard(lock_);
    const uint32_t session = session_;
    const uint32_t shown = camera();
    const bool signal = signal_;
    const CaptureBuffer buffer = buffers_[index];
    guard.unlock();

    uint8_t* target = PhysicalMemory(board_).at(buffer.physical, kPictureBytes);
    const bool drawn = target != nullptr && drawFrame(signal ? shown : kCameras, buffer.frame.number, target);

    guard.lock();
    const bool stillStreaming = streaming_ && session == session_;
    if (!stillStreaming) {
        return -EINVAL;  // streaming ended meanwhile and took the buffer back
    }
    if (!drawn) {
        buffers_.putBack(index);
        return target == nullptr ? refuse("VIDIOC_DQBUF", -EFAULT, "a buffer's memory is gone") : -EIO;
    }
    buffers_[index].state = CaptureBuffer::State::kDequeued;
    describe(index, record);
    if (badFrame_) {
        std::memset(target + kPictureBytes / 2, kUnfilledByte, kPictureBytes / 2);
        record.flags |= V4L2_BUF_FLAG_ERROR;
        badFrame_ = false;
    }
    guard.unlock();
    countDelivered(shown, buffer.frame.number);
    return 0;
}

bool CaptureStream::drawFrame(uint32_t camera, uint64_t number, uint8_t* nv12)
{
    const std::lock_guard<std::mutex> guard(drawing_);
    std::unique_ptr<PictureSource>& source = sources_[camera];
    if (source == nullptr) {
        source = makePictureSource(board_, camera);
    }
    return source->draw(number, nv12);
}

void CaptureStream::countDelivered(uint32_t camera, uint64_t number) const
{
    if (camera >= kCameras) {
        return;
    }
    ++board_.state().cameras[camera].delivered;
    if (camera == 0) {
        countInstant(number);
    }
}

/// Counts a frame for the limit: once, though two devices may deliver the same input.
void CaptureStream::countInstant(uint64_t number) const
{
    State& state = board_.state();
    uint64_t next = state.nextCounted;
    while (number >= next && !state.nextCounted.compare_exchange_weak(next, number + 1)) {
    }
    if (number >= next && ++state.framesCounted == state.frameLimit) {
        real::kill(state.program, SIGINT);
    }
}

bool CaptureStream::befall(FaultKind kind)
{
    if (kind == FaultKind::kGone) {
        real::sleepUs(kIdleNapUs);  // the dequeue is waiting when it happens
    }
    const std::lock_guard<std::mutex> guard(lock_);
    switch (kind) {
        case FaultKind::kBadFrame:
            badFrame_ = true;
            return true;
        case FaultKind::kLostFrame:
            ++framesToLose_;
            return true;
        case FaultKind::kWrap:
            wrapSoon();
            return true;
        case FaultKind::kNoSignal:
            signal_ = false;
            return true;
        case FaultKind::kGone:
            present_ = false;
            return true;
        default:
            return false;
    }
}

/// Lets the frame that was filled first go by, if one is to be lost; its buffer waits again.
bool CaptureStream::loseFrame()
{
    if (framesToLose_ == 0) {
        return false;
    }
    --framesToLose_;
    buffers_.putBack(buffers_.takeDone());
    const uint32_t shown = camera();
    if (shown < kCameras) {
        ++board_.state().cameras[shown].dropped;
    }
    return true;
}

void CaptureStream::wrapSoon()
{
    constexpr uint32_t kFramesLeft = 8;
    constexpr uint64_t kLargestTimeUs = 0x7FFFFFFF * kUsPerSecond;  // of a time_t of 32 bits
    const uint32_t next =
        clock_.paced() ? static_cast<uint32_t>(nextInstant_ - firstInstant_) : nextSequence_;
    sequenceOffset_ = 0U - kFramesLeft - next;
    timeOffsetUs_ = kLargestTimeUs - real::monotonicUs();
}

bool CaptureStream::isPresent() const
{
    const std::lock_guard<std::mutex> guard(lock_);
    return present_;
}

bool CaptureStream::hasSignal() const
{
    const std::lock_guard<std::mutex> guard(lock_);
    return signal_;
}

bool CaptureStream::isStreaming() const
{
    const std::lock_guard<std::mutex> guard(lock_);
    return streaming_;
}

bool CaptureStream::hasBuffers() const
{
    const std::lock_guard<std::mutex> guard(lock_);
    return buffers_.count() != 0;
}

void CaptureStream::end()
{
    const std::lock_guard<std::mutex> guard(lock_);
    stopStreaming();
    freeBuffers();
}

int CaptureStream::refuse(const char* call, int error, const char* reason) const
{
    board_.refuse(device_, call, reason);
    return error;
}

}  // namespace board
