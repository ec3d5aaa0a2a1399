#include "codec/Codec.h"

#include <algorithm>

#include "board/Real.h"
#include "codec/Parameters.h"

namespace codec {
namespace {

constexpr unsigned kProcessorShift = 12;  // of the processor's number in `system_rev`
constexpr size_t kMaxInstances = 4;

EncHandle handleOf(const std::unique_ptr<Instance>& instance)
{
    return reinterpret_cast<EncHandle>(instance.get());
}

Answer notInitialized()
{
    return {RETCODE_NOT_INITIALIZED, "vpu_Init was not called"};
}

Answer nullRecord()
{
    return {RETCODE_INVALID_PARAM, "null record"};
}

Answer frameNotComplete()
{
    return {RETCODE_FRAME_NOT_COMPLETE, "a frame is pending"};
}

}  // namespace

Codec& Codec::instance()
{
    static Codec& codec = *new Codec;  // kept on purpose: objects that end with the process still call
    return codec;
}

Answer Codec::init(const board::Board& board)
{
    const std::lock_guard guard(lock_);
    ++users_;
    system_rev = static_cast<unsigned>(board.state().cpu) << kProcessorShift;
    return {};
}

Answer Codec::unInit()
{
    const std::lock_guard guard(lock_);
    if (users_ == 0) {
        return notInitialized();
    }
    if (--users_ > 0 || instances_.empty()) {
        return {};
    }
    forgetFrame();
    instances_.clear();
    return {RETCODE_FAILURE, "an encoder was still open"};
}

Answer Codec::version(vpu_versioninfo* info)
{
    const std::lock_guard guard(lock_);
    if (users_ == 0) {
        return notInitialized();
    }
    if (info == nullptr) {
        return nullRecord();
    }
    *info = {};
    info->fw_major = info->lib_major = 1;
    return {};
}

Answer Codec::open(const board::Board& board, EncHandle* handle, const EncOpenParam* parameters)
{
    const std::lock_guard guard(lock_);
    if (users_ == 0) {
        return notInitialized();
    }
    if (handle == nullptr || parameters == nullptr) {
        return nullRecord();
    }
    if (instances_.size() == kMaxInstances) {
        return {RETCODE_FAILURE, "too many encoders"};
    }
    if (Answer wrong = check(*parameters); !wrong.done()) {
        return wrong;
    }
    const Region buffer{"bitstream buffer", parameters->bitstreamBuffer, parameters->bitstreamBufferSize};
    if (Answer foreign = checkRegion(board::PhysicalMemory(board), buffer, RETCODE_MEMORY_ACCESS_VIOLATION);
        !foreign.done()) {
        return foreign;
    }
    const EncoderSettings settings = settingsFor(*parameters, board.state());
    auto encoder = Encoder::open(settings);
    if (encoder == nullptr) {
        return {RETCODE_FAILURE, "x264 does not take these parameters, or not its preset"};
    }
    std::optional<CannedFrames> canned;
    if (board.state().devices == board::Devices::kIdle) {
        canned.emplace(*encoder, settings);
    }
    instances_.push_back(
        std::make_unique<Instance>(board, *parameters, std::move(encoder), std::move(canned)));
    *handle = handleOf(instances_.back());
    return {};
}

Answer Codec::close(EncHandle handle)
{
    return with(handle, [&](const Instance& instance) -> Answer {
        if (pending_ == &instance) {
            return {
                RETCODE_FRAME_NOT_COMPLETE};  // an answer of the protocol, not a refusal: reset, close again
        }
        const auto closed = std::find_if(instances_.begin(), instances_.end(),
                                         [&](const auto& entry) { return entry.get() == &instance; });
        instances_.erase(closed);
        return {};
    });
}

Answer Codec::initialInfo(EncHandle handle, EncInitialInfo* info)
{
    return with(handle, [&](Instance& instance) {
        if (info == nullptr) {
            return nullRecord();
        }
        return pending_ != nullptr ? frameNotComplete() : instance.initialInfo(*info);
    });
}

Answer Codec::registerFrames(EncHandle handle, const FrameRegistration& frames)
{
    return with(handle, [&](Instance& instance) {
        return pending_ != nullptr ? frameNotComplete() : instance.registerFrames(frames);
    });
}

Answer Codec::command(EncHandle handle, CodecCommand command, void* parameter)
{
    return with(handle, [&](Instance& instance) -> Answer {
        if (pending_ != nullptr) {
            return frameNotComplete();
        }
        if (parameter == nullptr) {
            return nullRecord();
        }
        switch (command) {
            case ENC_PUT_AVC_HEADER:
                return instance.putHeader(*static_cast<EncHeaderParam*>(parameter));
            case ENC_SET_INTRA_REFRESH_MODE:
                return {};  // so many macroblocks a picture: taken and left, x264 has no such count
            default:
                return {RETCODE_INVALID_COMMAND, "command is not known"};
        }
    });
}

Answer Codec::start(EncHandle handle, const EncParam* parameters, Outcome outcome)
{
    return with(handle, [&](Instance& instance) {
        if (parameters == nullptr) {
            return nullRecord();
        }
        if (pending_ != nullptr) {
            return frameNotComplete();
        }
        Answer answer =
            outcome == Outcome::kSkips ? instance.skip(*parameters) : instance.encode(*parameters);
        if (answer.done()) {
            pending_ = &instance;
            frame_ = outcome == Outcome::kHangs ? Frame::kHung : Frame::kRunning;
        }
        return answer;
    });
}

bool Codec::busy()
{
    const std::lock_guard guard(lock_);
    return frameInWork();
}

bool Codec::endFrame()
{
    const std::lock_guard guard(lock_);
    if (frame_ != Frame::kRunning) {
        return false;
    }
    frame_ = Frame::kEnded;
    return true;
}

bool Codec::wait(int timeoutMs)
{
    constexpr uint64_t kUsPerMs = 1000;
    if (endFrame()) {
        return true;
    }
    // A signal may end the wait early: the caller asks again, as after any wait without success.
    real::sleepUs(static_cast<uint64_t>(std::max(timeoutMs, 0)) * kUsPerMs);
    return false;
}

void Codec::hang()
{
    const std::lock_guard guard(lock_);
    if (frame_ == Frame::kRunning) {
        frame_ = Frame::kHung;
    }
}

void Codec::forgetFrame()
{
    if (pending_ != nullptr) {
        pending_->abandonFrame();
    }
    pending_ = nullptr;
    frame_ = Frame::kNone;
}

Answer Codec::reset(EncHandle handle)
{
    return with(handle, [&](Instance&) {
        forgetFrame();
        return Answer{};
    });
}

Answer Codec::output(EncHandle handle, EncOutputInfo* info)
{
    return with(handle, [&](Instance& instance) -> Answer {
        if (info == nullptr) {
            return nullRecord();
        }
        if (pending_ != &instance) {
            return {RETCODE_WRONG_CALL_SEQUENCE, "no frame was started"};
        }
        if (frameInWork()) {
            return frameNotComplete();
        }
        pending_ = nullptr;
        frame_ = Frame::kNone;
        return instance.describeOutput(*info);
    });
}

Answer Codec::bitstream(EncHandle handle, PhysicalAddress* read, PhysicalAddress* write, Uint32* bytes)
{
    return with(handle, [&](const Instance& instance) {
        if (read == nullptr || write == nullptr || bytes == nullptr) {
            return nullRecord();
        }
        *read = instance.readAddress();
        *write = instance.readAddress() + instance.pendingBytes();
        *bytes = instance.pendingBytes();
        return Answer{};
    });
}

Answer Codec::takeBitstream(EncHandle handle, Uint32 bytes)
{
    return with(handle, [&](Instance& instance) { return instance.take(bytes); });
}

Instance* Codec::find(EncHandle handle) const
{
    const auto found = std::find_if(instances_.begin(), instances_.end(),
                                    [&](const auto& entry) { return handleOf(entry) == handle; });
    return found == instances_.end() ? nullptr : found->get();
}

template <typename Work>
Answer Codec::with(EncHandle handle, Work work)
{
    const std::lock_guard guard(lock_);
    if (users_ == 0) {
        return notInitialized();
    }
    Instance* const instance = find(handle);
    if (instance == nullptr) {
        return {RETCODE_INVALID_HANDLE, "handle is not open"};
    }
    return work(*instance);
}

}  // namespace codec
