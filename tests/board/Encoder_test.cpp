#include "codec/Encoder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>
#include <random>

namespace {

using codec::Bytes;
using codec::EncodedFrame;
using codec::Encoder;
using codec::EncoderSettings;

// Unit types as H.264, Table 7-1, numbers them.
constexpr int kSlice = 1;
constexpr int kKeySlice = 5;
constexpr int kSequenceParameters = 7;
constexpr int kPictureParameters = 8;

constexpr int kConstantQuantiser = 30;

EncoderSettings smallPicture()
{
    EncoderSettings settings;
    settings.width = 160;
    settings.height = 160;  // x264 wants four rows of macroblocks a slice
    settings.rateNumerator = 30;
    return settings;
}

/// Texture that drifts, under noise of its own in every frame: nothing that skipping could encode.
class BusyScene {
public:
    BusyScene(int width, int height) : width_(width), height_(height), pixels_(size() * 3 / 2) {}

    void advance()
    {
        ++frame_;
        for (size_t i = 0; i < pixels_.size(); ++i) {
            const size_t row = i / static_cast<size_t>(width_);
            const size_t column = i % static_cast<size_t>(width_) + 3 * frame_;
            const size_t texture = ((column >> 3U) ^ ((row + 2 * frame_) >> 3U)) % 16 * 12;
            pixels_[i] = static_cast<uint8_t>(32 + texture + noise_() % 8);
        }
    }

    codec::Picture picture() const
    {
        return {{pixels_.data(), pixels_.data() + size(), nullptr}, {width_, width_, width_}};
    }

private:
    size_t size() const { return static_cast<size_t>(width_) * static_cast<size_t>(height_); }

    int width_, height_;
    Bytes pixels_;
    size_t frame_ = 0;
    std::minstd_rand noise_;
};

/// Types of the units of an Annex B stream, found by their start codes; -1 for bytes in front of the first
/// one.
std::vector<int> unitTypes(const Bytes& stream)
{
    const Bytes startCode{0, 0, 1};
    std::vector<int> types;
    auto unit = std::search(stream.begin(), stream.end(), startCode.begin(), startCode.end());
    if (std::any_of(stream.begin(), unit, [](uint8_t byte) { return byte != 0; })) {
        types.push_back(-1);
    }
    while (unit != stream.end() && stream.end() - unit > 3) {
        types.push_back(unit[3] & 0x1F);
        unit = std::search(unit + 3, stream.end(), startCode.begin(), startCode.end());
    }
    return types;
}

class Encoding {
public:
    explicit Encoding(const EncoderSettings& settings)
        : scene_(settings.width, settings.height), encoder_(Encoder::open(settings))
    {
        EXPECT_NE(encoder_, nullptr);
    }

    /// The next frame's access unit; empty when the encoder gave none.
    Bytes next(bool keyFrame = false, int quantiser = kConstantQuantiser)
    {
        Bytes output(1U << 20U);
        last_ = nextInto(output.data(), output.size(), keyFrame, quantiser).value_or(EncodedFrame{});
        output.resize(last_.bytes);
        return output;
    }
    std::optional<EncodedFrame> nextInto(uint8_t* output, size_t capacity, bool keyFrame = false,
                                         int quantiser = kConstantQuantiser)
    {
        scene_.advance();
        return encoder_->encode(scene_.picture(), {keyFrame, quantiser}, output, capacity);
    }

    const EncodedFrame& last() const { return last_; }

private:
    BusyScene scene_;
    std::unique_ptr<Encoder> encoder_;
    EncodedFrame last_{};
};

struct Order {
    int threads, gopFrames;
};

TEST(Encoder, GivesAnotherUnitThanOneSliceAThreadOrAKeyFrameUnasked)
{
    for (const auto& [threads, gopFrames] : {Order{1, 0}, Order{2, 0}, Order{1, 6}}) {
        EncoderSettings settings = smallPicture();
        settings.threads = threads;
        settings.gopFrames = gopFrames;
        Encoding encoding(settings);
        constexpr int kAsked = 30;
        for (int frame = 0; frame < 40; ++frame) {
            const bool key = frame == 0 || frame == kAsked || (gopFrames != 0 && frame % gopFrames == 0);
            const std::vector<int> slices(static_cast<size_t>(threads), key ? kKeySlice : kSlice);
            EXPECT_EQ(unitTypes(encoding.next(frame == kAsked)), slices) << frame;
            EXPECT_EQ(encoding.last().keyFrame, key);
            EXPECT_EQ(encoding.last().slices, threads);
        }
    }
}

TEST(Encoder, ItsParameterSetsExceedTheRoomOfARecordingsHeaderOrLackTheColours)
{
    EncoderSettings settings = smallPicture();
    settings.width = 1440;
    settings.height = 990;
    settings.bitrateKbps = 4000;
    settings.gopFrames = 300;
    const auto plain = Encoder::open(settings);
    settings.colour = codec::ColourDescription{0, true, 1, 1, 0};
    const auto fullRange = Encoder::open(settings);
    settings.colour->fullRange = false;
    const auto videoRange = Encoder::open(settings);
    ASSERT_TRUE(plain && fullRange && videoRange);
    EXPECT_EQ(unitTypes(fullRange->sequenceParameters()), std::vector<int>{kSequenceParameters});
    EXPECT_EQ(unitTypes(fullRange->pictureParameters()), std::vector<int>{kPictureParameters});
    EXPECT_LE(fullRange->sequenceParameters().size() + fullRange->pictureParameters().size(), 80U);
    EXPECT_NE(fullRange->sequenceParameters(), plain->sequenceParameters());
    EXPECT_NE(fullRange->sequenceParameters(), videoRange->sequenceParameters());
}

TEST(Encoder, GivesOtherBytesForEqualFrames)
{
    EncoderSettings settings = smallPicture();
    settings.bitrateKbps = 300;
    Encoding first(settings), second(settings);
    for (int frame = 0; frame < 30; ++frame) {
        EXPECT_EQ(first.next(), second.next()) << frame;
    }
}

TEST(Encoder, IgnoresTheQuantiserWithoutRateControl)
{
    Encoding fine(smallPicture()), coarse(smallPicture());
    EXPECT_GT(fine.next(true, 20).size(), coarse.next(true, 40).size());
    EXPECT_FALSE(fine.next(false, 0).empty());
    EXPECT_FALSE(fine.next(false, 51).empty());
}

TEST(Encoder, WritesBeyondItsOutputOrTakesAnUnknownPreset)
{
    constexpr size_t kRoom = 64;
    Encoding encoding(smallPicture());
    Bytes output(1U << 20U, 0xEE);  // more than it may use, so that going too far is seen
    EXPECT_FALSE(encoding.nextInto(output.data(), kRoom).has_value());
    EXPECT_TRUE(std::all_of(output.begin() + kRoom, output.end(), [](uint8_t byte) { return byte == 0xEE; }));
    EXPECT_EQ(unitTypes(encoding.next(true)), std::vector<int>{kKeySlice});

    EncoderSettings settings = smallPicture();
    settings.preset = "faster than light";
    EXPECT_EQ(Encoder::open(settings), nullptr);
}

class EncoderRate : public testing::TestWithParam<int> {};

INSTANTIATE_TEST_SUITE_P(Kbps, EncoderRate, testing::Values(500, 1000, 2000));

TEST_P(EncoderRate, IsMissedInTheFirstSecondOrOnTheWhole)
{
    constexpr size_t kFramesPerSecond = 30;
    constexpr size_t kSeconds = 10;
    EncoderSettings settings;
    settings.rateNumerator = kFramesPerSecond;
    settings.width = 720;
    settings.height = 480;
    settings.gopFrames = 300;
    settings.bitrateKbps = GetParam();
    Encoding encoding(settings);
    std::vector<size_t> bits(kSeconds * kFramesPerSecond);
    std::generate(bits.begin(), bits.end(), [&] { return encoding.next().size() * 8; });
    const double wanted = GetParam() * 1000.0;
    const auto firstSecond = std::accumulate(bits.begin(), bits.begin() + kFramesPerSecond, size_t{0});
    const auto all = std::accumulate(bits.begin(), bits.end(), size_t{0});
    EXPECT_LT(static_cast<double>(firstSecond), 1.5 * wanted);
    EXPECT_NEAR(static_cast<double>(all) / kSeconds, wanted, 0.15 * wanted);
}

}  // namespace
