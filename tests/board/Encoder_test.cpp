#include "codec/Encoder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>

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
    settings.height = 96;
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
            pixels_[i] = static_cast<uint8_t>(32 + texture + noise() % 8);
        }
    }

    codec::Picture picture() const
    {
        return {{pixels_.data(), pixels_.data() + size(), nullptr}, {width_, width_, width_}};
    }

private:
    size_t size() const { return static_cast<size_t>(width_) * static_cast<size_t>(height_); }
    uint32_t noise()
    {
        seed_ = seed_ * 1664525U + 1013904223U;
        return seed_ >> 16U;
    }

    int width_, height_;
    Bytes pixels_;
    size_t frame_ = 0;
    uint32_t seed_ = 1;
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
    }

    bool opened() const { return encoder_ != nullptr; }
    const Encoder& encoder() const { return *encoder_; }

    /// The next frame's access unit; empty when the encoder gave none.
    Bytes next(bool keyFrame = false, int quantiser = kConstantQuantiser)
    {
        scene_.advance();
        Bytes output(1U << 20U);
        const auto frame =
            encoder_->encode(scene_.picture(), {keyFrame, quantiser}, output.data(), output.size());
        last_ = frame.value_or(EncodedFrame{});
        output.resize(last_.bytes);
        return output;
    }

    /// Access units of the next frames, none asked to be a key frame.
    std::vector<Bytes> nextFrames(size_t frames)
    {
        std::vector<Bytes> units(frames);
        std::generate(units.begin(), units.end(), [&] { return next(); });
        return units;
    }

    const EncodedFrame& last() const { return last_; }

    std::optional<EncodedFrame> nextInto(uint8_t* output, size_t capacity)
    {
        scene_.advance();
        return encoder_->encode(scene_.picture(), {false, kConstantQuantiser}, output, capacity);
    }

private:
    BusyScene scene_;
    std::unique_ptr<Encoder> encoder_;
    EncodedFrame last_{};
};

std::vector<size_t> keyFrames(const std::vector<Bytes>& units)
{
    std::vector<size_t> places;
    for (size_t i = 0; i < units.size(); ++i) {
        if (unitTypes(units[i]) == std::vector<int>{kKeySlice}) {
            places.push_back(i);
        }
    }
    return places;
}

TEST(Encoder, GivesOneSliceAndNothingElseForEachFrame)
{
    Encoding encoding(smallPicture());
    ASSERT_TRUE(encoding.opened());
    EXPECT_EQ(unitTypes(encoding.next()), std::vector<int>{kKeySlice});
    for (const Bytes& unit : encoding.nextFrames(40)) {
        EXPECT_EQ(unitTypes(unit), std::vector<int>{kSlice});
    }
    EXPECT_EQ(encoding.last().slices, 1);
}

TEST(Encoder, MakesAKeyFrameOnRequestAndOnlyThen)
{
    Encoding encoding(smallPicture());
    ASSERT_TRUE(encoding.opened());
    encoding.nextFrames(3);
    EXPECT_EQ(unitTypes(encoding.next(true)), std::vector<int>{kKeySlice});
    EXPECT_TRUE(encoding.last().keyFrame);
    EXPECT_TRUE(keyFrames(encoding.nextFrames(5)).empty());
    EXPECT_FALSE(encoding.last().keyFrame);
}

TEST(Encoder, MakesAKeyFrameWhereverAGroupBegins)
{
    EncoderSettings settings = smallPicture();
    settings.gopFrames = 6;
    Encoding encoding(settings);
    ASSERT_TRUE(encoding.opened());
    EXPECT_EQ(keyFrames(encoding.nextFrames(20)), (std::vector<size_t>{0, 6, 12, 18}));
}

TEST(Encoder, KeepsBothParameterSetsWithinTheRoomOfARecordingsHeader)
{
    EncoderSettings settings = smallPicture();
    settings.width = 1440;
    settings.height = 990;
    settings.bitrateKbps = 4000;
    settings.gopFrames = 300;
    settings.colour = codec::ColourDescription{0, true, 1, 1, 0};
    const auto encoder = Encoder::open(settings);
    ASSERT_NE(encoder, nullptr);
    EXPECT_EQ(unitTypes(encoder->sequenceParameters()), std::vector<int>{kSequenceParameters});
    EXPECT_EQ(unitTypes(encoder->pictureParameters()), std::vector<int>{kPictureParameters});
    EXPECT_LE(encoder->sequenceParameters().size() + encoder->pictureParameters().size(), 80U);
}

TEST(Encoder, TellsTheColourDescriptionInTheSequenceParameters)
{
    EncoderSettings plain = smallPicture();
    EncoderSettings fullRange = smallPicture();
    fullRange.colour = codec::ColourDescription{5, true, 1, 1, 1};
    EncoderSettings videoRange = fullRange;
    videoRange.colour->fullRange = false;
    const auto parametersOf = [](const EncoderSettings& settings) {
        return Encoding(settings).encoder().sequenceParameters();
    };
    EXPECT_NE(parametersOf(fullRange), parametersOf(plain));
    EXPECT_NE(parametersOf(fullRange), parametersOf(videoRange));
}

TEST(Encoder, GivesEqualBytesForEqualFrames)
{
    EncoderSettings settings = smallPicture();
    settings.bitrateKbps = 300;
    Encoding first(settings);
    Encoding second(settings);
    ASSERT_TRUE(first.opened() && second.opened());
    EXPECT_EQ(first.nextFrames(30), second.nextFrames(30));
}

TEST(Encoder, FollowsTheQuantiserWithoutRateControl)
{
    Encoding fine(smallPicture());
    Encoding coarse(smallPicture());
    ASSERT_TRUE(fine.opened() && coarse.opened());
    EXPECT_GT(fine.next(true, 20).size(), coarse.next(true, 40).size());
    EXPECT_FALSE(fine.next(false, 0).empty());
    EXPECT_FALSE(fine.next(false, 51).empty());
}

TEST(Encoder, RefusesAFrameThatTheOutputCannotHold)
{
    Encoding encoding(smallPicture());
    ASSERT_TRUE(encoding.opened());
    constexpr size_t kRoom = 64;
    Bytes output(1U << 20U, 0xEE);  // more than it may use, so that going too far is seen
    EXPECT_FALSE(encoding.nextInto(output.data(), kRoom).has_value());
    EXPECT_EQ(std::count(output.begin() + kRoom, output.end(), 0xEE),
              output.end() - output.begin() - ptrdiff_t{kRoom});
    EXPECT_EQ(unitTypes(encoding.next(true)), std::vector<int>{kKeySlice});
}

TEST(Encoder, RefusesAPresetThatX264DoesNotKnow)
{
    EncoderSettings settings = smallPicture();
    settings.preset = "faster than light";
    EXPECT_EQ(Encoder::open(settings), nullptr);
}

TEST(Encoder, GivesOneSliceAThread)
{
    EncoderSettings settings = smallPicture();
    settings.height = 160;  // x264 wants four rows of macroblocks a slice
    settings.threads = 2;
    Encoding encoding(settings);
    ASSERT_TRUE(encoding.opened());
    EXPECT_EQ(unitTypes(encoding.next()), (std::vector<int>{kKeySlice, kKeySlice}));
    EXPECT_EQ(unitTypes(encoding.next()), (std::vector<int>{kSlice, kSlice}));
    EXPECT_EQ(encoding.last().slices, 2);
}

class EncoderRate : public testing::TestWithParam<int> {};

INSTANTIATE_TEST_SUITE_P(Kbps, EncoderRate, testing::Values(500, 1000, 2000));

TEST_P(EncoderRate, HoldsTheRateFromTheFirstSecondOn)
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
    ASSERT_TRUE(encoding.opened());
    std::vector<size_t> bits;
    for (size_t i = 0; i < kSeconds * kFramesPerSecond; ++i) {
        bits.push_back(encoding.next().size() * 8);
    }
    const double wanted = GetParam() * 1000.0;
    const auto firstSecond = std::accumulate(bits.begin(), bits.begin() + kFramesPerSecond, size_t{0});
    const auto all = std::accumulate(bits.begin(), bits.end(), size_t{0});
    EXPECT_LT(static_cast<double>(firstSecond), 1.5 * wanted);
    EXPECT_NEAR(static_cast<double>(all) / kSeconds, wanted, 0.15 * wanted);
}

}  // namespace
