#include "console/LivePicture.h"

#include <turbojpeg.h>

#include <algorithm>
#include <vector>

#include "console/Priority.h"
#include "panel/Panel.h"

namespace console {
namespace {

using namespace std::chrono_literals;

constexpr auto kInterval = 1000ms / 15;
constexpr auto kWishLasts = 1s;

/// Compresses pictures one after the other into one buffer.
class JpegEncoder {
public:
    JpegEncoder() : handle_(::tjInitCompress()) {}
    ~JpegEncoder()
    {
        ::tjFree(buffer_);
        ::tjDestroy(handle_);
    }
    JpegEncoder(const JpegEncoder&) = delete;
    JpegEncoder& operator=(const JpegEncoder&) = delete;

    /// Empty when it cannot be done.
    std::string encode(const std::vector<uint8_t>& rgb)
    {
        constexpr int kQuality = 80;
        const bool done = handle_ != nullptr &&
                          ::tjCompress2(handle_, rgb.data(), board::kPanelWidth, 0, board::kPanelHeight,
                                        TJPF_RGB, &buffer_, &bytes_, TJSAMP_420, kQuality, 0) == 0;
        return done ? std::string(reinterpret_cast<const char*>(buffer_), bytes_) : std::string();
    }

private:
    tjhandle handle_;
    unsigned char* buffer_ = nullptr;
    unsigned long bytes_ = 0;
};

}  // namespace

LivePicture::LivePicture(const board::Board& board) : board_(board), producer_([this] { produce(); })
{
}

LivePicture::~LivePicture()
{
    stop();
    producer_.join();
}

void LivePicture::stop()
{
    const std::lock_guard<std::mutex> guard(lock_);
    stop_ = true;
    wish_.notify_all();
    news_.notify_all();
}

std::shared_ptr<const LivePicture::Picture> LivePicture::await(uint64_t seen)
{
    std::unique_lock<std::mutex> guard(lock_);
    const uint64_t beyond = seen == 0 ? last_->number : seen;
    // Said again while waiting: the producer may be slow, and the wish must not run out.
    while (!stop_ && last_->number <= beyond) {
        wishedUntil_ = Clock::now() + kWishLasts;
        wish_.notify_one();
        news_.wait_for(guard, kWishLasts / 2);
    }
    return stop_ ? nullptr : last_;
}

void LivePicture::produce()
{
    stepBack();
    JpegEncoder encoder;
    while (awaitWish()) {
        const auto began = Clock::now();
        std::string jpeg = encoder.encode(board::composePanel(board_));
        {
            const std::lock_guard<std::mutex> guard(lock_);
            last_ = std::make_shared<Picture>(Picture{last_->number + 1, std::move(jpeg)});
            news_.notify_all();
        }
        rest(began);
    }
}

/// False at the end.
bool LivePicture::awaitWish()
{
    std::unique_lock<std::mutex> guard(lock_);
    wish_.wait(guard, [this] { return stop_ || Clock::now() < wishedUntil_; });
    return !stop_;
}

void LivePicture::rest(Clock::time_point began)
{
    const auto now = Clock::now();
    const auto until = std::max<Clock::time_point>(began + kInterval, now + (now - began));
    std::unique_lock<std::mutex> guard(lock_);
    wish_.wait_until(guard, until, [this] { return stop_; });
}

}  // namespace console
