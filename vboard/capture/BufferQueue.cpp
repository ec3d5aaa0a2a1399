#include "capture/BufferQueue.h"

namespace board {

void BufferQueue::resize(uint32_t count)
{
    buffers_ = {};
    count_ = count;
    queued_.clear();
    done_.clear();
}

void BufferQueue::queue(uint32_t index)
{
    buffers_[index].state = CaptureBuffer::State::kQueued;
    queued_.push_back(index);
}

bool BufferQueue::fill(const CapturedFrame& frame)
{
    if (queued_.empty()) {
        return false;
    }
    const uint32_t index = queued_.front();
    queued_.erase(queued_.begin());
    buffers_[index].state = CaptureBuffer::State::kDone;
    buffers_[index].frame = frame;
    done_.push_back(index);
    return true;
}

uint32_t BufferQueue::takeDone()
{
    const uint32_t index = done_.front();
    done_.erase(done_.begin());
    buffers_[index].state = CaptureBuffer::State::kHandedOut;
    return index;
}

void BufferQueue::putBack(uint32_t index)
{
    buffers_[index].state = CaptureBuffer::State::kQueued;
    queued_.insert(queued_.begin(), index);
}

void BufferQueue::reset()
{
    for (CaptureBuffer& buffer : buffers_) {
        buffer.state = CaptureBuffer::State::kDequeued;
    }
    queued_.clear();
    done_.clear();
}

}  // namespace board
