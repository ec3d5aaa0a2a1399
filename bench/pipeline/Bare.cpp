#include "Bare.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/uio.h>
#include <unistd.h>

#include <array>
#include <cstring>
#include <vector>

#include "Scene.h"
#include "codec/Encoder.h"

namespace pipeline {
namespace {

constexpr size_t kClockLines = 30;
constexpr size_t kPageWidth = 800, kPageHeight = 500;
constexpr unsigned kPages = 4;    // of the display
constexpr unsigned kBuffers = 4;  // of a camera
constexpr unsigned kClockFrames = 30;
constexpr size_t kAccessUnitBytes = 4U << 20;
constexpr size_t kRecordWidth = 2 * kWidth;

/// The pictures of one camera, in memory.
class Clip {
public:
    explicit Clip(const std::string& path)
    {
        const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
        void* const start = ::mmap(nullptr, kBytes, PROT_READ, MAP_SHARED | MAP_POPULATE, fd, 0);
        pictures_ = start == MAP_FAILED ? nullptr : static_cast<const uint8_t*>(start);
        ::close(fd);
    }
    ~Clip() { ::munmap(const_cast<uint8_t*>(pictures_), pictures_ == nullptr ? 0 : kBytes); }
    Clip(const Clip&) = delete;
    Clip& operator=(const Clip&) = delete;

    bool there() const { return pictures_ != nullptr; }
    const uint8_t* picture(unsigned frame) const { return pictures_ + frame % kClipFrames * kPictureBytes; }

private:
    static constexpr size_t kBytes = kClipFrames * kPictureBytes;
    const uint8_t* pictures_ = nullptr;
};

/// What of a line lies between which two samples of another one.
struct Tap {
    uint32_t at, share;  // of 256 for the right or lower one
};

std::vector<Tap> tapsFor(size_t from, size_t to)
{
    std::vector<Tap> taps;
    for (size_t i = 0; i < to; ++i) {
        const size_t position = i * ((from - 1) * 65536 / (to - 1));
        const auto at = static_cast<uint32_t>(std::min(position >> 16, from - 2));
        taps.push_back({at, static_cast<uint32_t>((position - at * size_t{65536}) >> 8)});
    }
    return taps;
}

void blend(const uint8_t* __restrict upper, const uint8_t* __restrict lower, uint32_t share,
           uint8_t* __restrict to, size_t bytes)
{
    const auto below = static_cast<uint16_t>(share);
    const auto above = static_cast<uint16_t>(256 - share);
    for (size_t i = 0; i < bytes; ++i) {
        to[i] = static_cast<uint8_t>(static_cast<uint16_t>(upper[i] * above + lower[i] * below + 128) >> 8);
    }
}

class Recorder {
public:
    explicit Recorder(const BareRun& bare)
        : bare_(bare),
          height_(kClockLines + bare.cameras / 2 * kHeight),
          frame_(kRecordWidth * height_ * 3 / 2)
    {
        std::memset(frame_.data() + kRecordWidth * height_, 128, kRecordWidth * height_ / 2);
        for (unsigned i = 1; i <= bare.cameras; ++i) {
            clips_.push_back(std::make_unique<Clip>(bare.clips + "/camera" + std::to_string(i) + ".nv12"));
        }
        buffers_.assign(size_t{bare.cameras} * kBuffers, Picture(kPictureBytes));
        pages_.assign(kPages, std::vector<uint8_t>(kPageWidth * kPageHeight * 3 / 2));
    }

    std::string go();

private:
    bool open();
    void capture(unsigned number);
    void compose(unsigned number);
    void drawClock(unsigned number);
    void display(unsigned number);
    void scale(const uint8_t* from, size_t fromLines, uint8_t* to, size_t toLines, size_t sampleBytes);
    bool encode(const uint8_t* frame, unsigned number);
    std::string floor();
    std::string tight();

    const BareRun& bare_;
    const size_t height_;
    std::vector<uint8_t> frame_;
    std::vector<std::unique_ptr<Clip>> clips_;
    std::vector<Picture> buffers_;
    std::vector<std::vector<uint8_t>> pages_;
    std::vector<Tap> columns_ = tapsFor(kWidth, kPageWidth), pairs_ = tapsFor(kWidth / 2, kPageWidth / 2);
    std::array<uint8_t, kWidth> line_{};
    std::unique_ptr<codec::Encoder> encoder_;
    std::vector<uint8_t> unit_ = std::vector<uint8_t>(kAccessUnitBytes);
    int file_ = -1;
};

bool Recorder::open()
{
    // As the daemon asks the board's codec.
    codec::EncoderSettings settings;
    settings.preset = bare_.preset;
    settings.threads = bare_.threads;
    settings.width = static_cast<int>(kRecordWidth);
    settings.height = static_cast<int>(height_);
    settings.rateNumerator = 30;
    settings.gopFrames = 300;
    settings.bitrateKbps = 2000;
    settings.deblockAlpha = 6;
    settings.chromaQpOffset = 10;
    settings.colour = codec::ColourDescription{0, true, 1, 1, 0};
    encoder_ = codec::Encoder::open(settings);
    if (bare_.work == BareRun::Work::kTight) {
        file_ = ::open(bare_.output.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    }
    return encoder_ != nullptr && (file_ >= 0 || bare_.work == BareRun::Work::kNone);
}

void Recorder::capture(unsigned number)
{
    for (size_t i = 0; i < clips_.size(); ++i) {
        std::memcpy(buffers_[i * kBuffers + number % kBuffers].data(), clips_[i]->picture(number),
                    kPictureBytes);
    }
}

void Recorder::compose(unsigned number)
{
    for (size_t i = 0; i < clips_.size(); ++i) {
        const uint8_t* from = buffers_[i * kBuffers + number % kBuffers].data();
        const size_t x = i % 2 * kWidth, y = kClockLines + i / 2 * kHeight;
        for (size_t line = 0; line < kHeight; ++line) {
            std::memcpy(frame_.data() + (y + line) * kRecordWidth + x, from + line * kWidth, kWidth);
        }
        for (size_t line = 0; line < kHeight / 2; ++line) {
            std::memcpy(frame_.data() + (height_ + y / 2 + line) * kRecordWidth + x,
                        from + (kHeight + line) * kWidth, kWidth);
        }
    }
}

/// Seventeen marks of the size of a clock's digits.
void Recorder::drawClock(unsigned number)
{
    constexpr size_t kMarks = 17, kMarkWidth = 12, kMarkLines = 18;
    std::memset(frame_.data(), 0, kRecordWidth * kClockLines);
    for (size_t mark = 0; mark < kMarks; ++mark) {
        for (size_t line = 0; line < kMarkLines; ++line) {
            std::memset(frame_.data() + (line + 4) * kRecordWidth + mark * (kMarkWidth + 4),
                        static_cast<int>(100 + (number + mark + line) % 100), kMarkWidth);
        }
    }
}

void Recorder::scale(const uint8_t* from, size_t fromLines, uint8_t* to, size_t toLines, size_t sampleBytes)
{
    const std::vector<Tap> lines = tapsFor(fromLines, toLines);
    for (size_t i = 0; i < toLines; ++i) {
        const uint8_t* const upper = from + lines[i].at * kWidth;
        blend(upper, upper + kWidth, lines[i].share, line_.data(), kWidth);
        uint8_t* const target = to + i * kPageWidth;
        if (sampleBytes == 1) {
            for (size_t x = 0; x < kPageWidth; ++x) {
                const auto [at, share] = columns_[x];
                target[x] =
                    static_cast<uint8_t>((line_[at] * (256 - share) + line_[at + 1] * share + 128) >> 8);
            }
            continue;
        }
        for (size_t x = 0; x < kPageWidth / 2; ++x) {
            const auto [at, share] = pairs_[x];
            const uint8_t* const pair = line_.data() + 2 * at;
            target[2 * x] = static_cast<uint8_t>((pair[0] * (256 - share) + pair[2] * share + 128) >> 8);
            target[2 * x + 1] = static_cast<uint8_t>((pair[1] * (256 - share) + pair[3] * share + 128) >> 8);
        }
    }
}

void Recorder::display(unsigned number)
{
    const uint8_t* const camera = buffers_[number % kBuffers].data();
    uint8_t* const page = pages_[number % kPages].data();
    scale(camera, kHeight, page, kPageHeight, 1);
    scale(camera + kWidth * kHeight, kHeight / 2, page + kPageWidth * kPageHeight, kPageHeight / 2, 2);
}

bool Recorder::encode(const uint8_t* frame, unsigned number)
{
    const codec::Picture picture{{frame, frame + kRecordWidth * height_, nullptr},
                                 {static_cast<int>(kRecordWidth), static_cast<int>(kRecordWidth), 0}};
    const auto made = encoder_->encode(picture, {number == 0, 26}, unit_.data(), unit_.size());
    if (!made || file_ < 0) {
        return made.has_value();
    }
    std::array<uint8_t, 8> header{'0', '0', 'd', 'b'};
    const auto bytes = static_cast<uint32_t>(made->bytes);
    std::memcpy(header.data() + 4, &bytes, sizeof(bytes));
    const std::array<iovec, 2> parts{iovec{header.data(), header.size()}, iovec{unit_.data(), made->bytes}};
    return ::writev(file_, parts.data(), parts.size()) > 0;
}

std::string Recorder::floor()
{
    std::vector<std::vector<uint8_t>> finished;
    for (unsigned number = 0; number < kClipFrames; ++number) {
        capture(number);
        compose(number);
        if (number % kClockFrames == 0) {
            drawClock(number);
        }
        finished.push_back(frame_);
    }
    for (unsigned number = 0; number < bare_.frames; ++number) {
        if (!encode(finished[number % kClipFrames].data(), number)) {
            return "x264 did not encode";
        }
    }
    return {};
}

std::string Recorder::tight()
{
    for (unsigned number = 0; number < bare_.frames; ++number) {
        capture(number);
        compose(number);
        if (number % kClockFrames == 0) {
            drawClock(number);
        }
        display(number);
        if (!encode(frame_.data(), number)) {
            return "x264 did not encode, or its output could not be written";
        }
    }
    return {};
}

std::string Recorder::go()
{
    for (const auto& clip : clips_) {
        if (!clip->there()) {
            return "no clips in " + bare_.clips;
        }
    }
    if (!open()) {
        return "x264 does not take the settings, or " + bare_.output + " cannot be written";
    }
    return bare_.work == BareRun::Work::kNone ? floor() : tight();
}

}  // namespace

std::string run(const BareRun& bare)
{
    return Recorder(bare).go();
}

}  // namespace pipeline
