#include "capture/PatternSource.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "capture/PatternCode.h"
#include "capture/Scramble.h"

namespace board {
namespace {

constexpr uint32_t kCanvasWidth = 2 * kPictureWidth;
constexpr uint32_t kHorizon = PatternCode::kTop;
constexpr uint32_t kShore = PatternCode::kBottom;
constexpr uint32_t kBars = 456;  // first line of the colour bars
constexpr uint64_t kLoopFrames = uint64_t{kPictureWidth} * 64;

static_assert(PatternCode::kPictureWidth == kPictureWidth && PatternCode::kPictureHeight == kPictureHeight);

struct Colour {
    float y, u, v;  // video range
};

/// Shares of red, green and blue in a component, and what is added: the matrix of standard definition.
struct Weights {
    float red, green, blue, base;

    constexpr float of(float r, float g, float b) const { return base + red * r + green * g + blue * b; }
};
constexpr Weights kLumaWeights{65.5F, 128.6F, 25.0F, 16.0F};
constexpr Weights kBlueWeights{-37.8F, -74.2F, 112.0F, 128.0F};
constexpr Weights kRedWeights{112.0F, -93.8F, -18.2F, 128.0F};

/// Each of red, green and blue is 0 to 1.
constexpr Colour rgb(float red, float green, float blue)
{
    return {kLumaWeights.of(red, green, blue), kBlueWeights.of(red, green, blue),
            kRedWeights.of(red, green, blue)};
}

constexpr Colour mix(const Colour& from, const Colour& to, float share)
{
    return {from.y + (to.y - from.y) * share, from.u + (to.u - from.u) * share,
            from.v + (to.v - from.v) * share};
}

constexpr Colour kWhite = rgb(1.0F, 1.0F, 1.0F);

/// What makes each camera's view its own.
struct View {
    Colour zenith, haze, hills, water, accent;
    bool drivesLeft;
};

constexpr std::array<View, kCameras> kViews{{
    {rgb(.16F, .38F, .72F), rgb(.80F, .88F, .94F), rgb(.20F, .36F, .30F), rgb(.07F, .25F, .42F),
     rgb(.10F, .35F, .75F), false},
    {rgb(.42F, .25F, .45F), rgb(.99F, .72F, .45F), rgb(.32F, .20F, .24F), rgb(.36F, .20F, .26F),
     rgb(.85F, .38F, .12F), true},
    {rgb(.06F, .34F, .36F), rgb(.72F, .92F, .74F), rgb(.10F, .30F, .20F), rgb(.04F, .30F, .28F),
     rgb(.08F, .52F, .30F), false},
    {rgb(.14F, .12F, .38F), rgb(.82F, .62F, .84F), rgb(.22F, .16F, .36F), rgb(.16F, .12F, .36F),
     rgb(.50F, .20F, .62F), true},
}};

constexpr std::array<Colour, 8> kBarColours{rgb(.75F, .75F, .75F), rgb(.75F, .75F, 0),   rgb(0, .75F, .75F),
                                            rgb(0, .75F, 0),       rgb(.75F, 0, .75F),   rgb(.75F, 0, 0),
                                            rgb(0, 0, .75F),       rgb(.06F, .06F, .06F)};

struct Point {
    float x, y;
};
using Strokes = std::array<Point, 16>;

/// One line of points for each digit, in a box of 1 by 1; the last point repeats to the end.
constexpr std::array<Strokes, kCameras> kDigits{{
    {{{.32F, .26F}, {.54F, .10F}, {.54F, .90F}}},
    {{{.22F, .32F},
      {.26F, .19F},
      {.37F, .11F},
      {.51F, .09F},
      {.65F, .13F},
      {.74F, .23F},
      {.74F, .36F},
      {.67F, .48F},
      {.22F, .90F},
      {.80F, .90F}}},
    {{{.23F, .22F},
      {.33F, .12F},
      {.49F, .09F},
      {.65F, .14F},
      {.72F, .27F},
      {.67F, .39F},
      {.55F, .46F},
      {.42F, .47F},
      {.57F, .49F},
      {.71F, .57F},
      {.76F, .70F},
      {.69F, .83F},
      {.53F, .91F},
      {.35F, .89F},
      {.22F, .79F}}},
    {{{.64F, .90F}, {.64F, .10F}, {.18F, .66F}, {.84F, .66F}}},
}};

float smooth(float share)
{
    constexpr float kSquare = 3.0F, kCube = 2.0F;  // level at both ends
    share = std::clamp(share, 0.0F, 1.0F);
    return share * share * (kSquare - kCube * share);
}

float lerp(float from, float to, float share)
{
    return from + (to - from) * share;
}

/// Smooth random values, 0 to 1, on a grid that repeats after the picture's width.
struct Noise {
    uint32_t cellWidth, cellHeight;  // the width divides the picture's
    uint32_t seed;

    float at(uint32_t x, uint32_t y) const
    {
        const uint32_t column = x / cellWidth;
        const uint32_t row = y / cellHeight;
        const float right = smooth(static_cast<float>(x % cellWidth) / static_cast<float>(cellWidth));
        const float down = smooth(static_cast<float>(y % cellHeight) / static_cast<float>(cellHeight));
        return lerp(lerp(corner(column, row), corner(column + 1, row), right),
                    lerp(corner(column, row + 1), corner(column + 1, row + 1), right), down);
    }

private:
    float corner(uint32_t column, uint32_t row) const
    {
        constexpr uint32_t kRowStep = 1024;
        constexpr uint32_t kSeedStep = 1U << 21;
        constexpr uint32_t kMask = 0xFFFF;
        const uint32_t wrapped = column % (kPictureWidth / cellWidth);
        return static_cast<float>(scramble(wrapped + row * kRowStep + seed * kSeedStep) & kMask) / kMask;
    }
};

Colour skyAt(const View& view, uint32_t seed, uint32_t x, uint32_t y)
{
    const Noise large{120, 48, seed}, middle{45, 20, seed + 1}, fine{16, 8, seed + 2};
    constexpr float kLarge = .55F, kMiddle = .3F, kFine = .15F;
    constexpr float kCloudsFrom = .46F, kCloudsOver = .30F, kMostCloud = .85F;
    const float height = static_cast<float>(y) / static_cast<float>(kHorizon);
    const float density = kLarge * large.at(x, y) + kMiddle * middle.at(x, y) + kFine * fine.at(x, y);
    const float cloud = kMostCloud * smooth((density - kCloudsFrom) / kCloudsOver);
    return mix(mix(view.zenith, view.haze, smooth(height)), kWhite, cloud);
}

Colour hillsAt(const View& view, uint32_t seed, uint32_t x, uint32_t y)
{
    const Noise trees{3, 2, seed + 3}, slopes{24, 16, seed + 4};
    constexpr float kHaze = .25F, kTreeContrast = 26.0F, kHalf = .5F;
    Colour colour = mix(view.hills, view.haze, kHaze * slopes.at(x, y));
    colour.y += kTreeContrast * (trees.at(x, y) - kHalf);
    return colour;
}

/// First line of the hills in a column.
uint32_t ridge(uint32_t seed, uint32_t x)
{
    const Noise mountains{90, 1, seed + 5}, crests{24, 1, seed + 6};
    constexpr float kMountains = 46.0F, kCrests = 14.0F, kFoot = 8.0F;
    return kHorizon -
           static_cast<uint32_t>(kFoot + kMountains * mountains.at(x, 0) + kCrests * crests.at(x, 0));
}

Colour waterAt(const View& view, uint32_t seed, uint32_t x, uint32_t y)
{
    const Noise swell{36, 6, seed + 7}, waves{12, 3, seed + 8}, sparkle{4, 2, seed + 9};
    constexpr float kFarHaze = .55F, kSwell = 34.0F, kWaves = 30.0F, kHalf = .5F;
    constexpr float kSparkleFrom = .66F, kSparkleOver = .3F, kSparkle = 74.0F;
    const float near = static_cast<float>(y - kShore) / static_cast<float>(kBars - kShore);
    const float crest = waves.at(x, y);
    Colour colour = mix(view.water, view.haze, kFarHaze * (1.0F - smooth(near)));
    colour.y += kSwell * (swell.at(x, y) - kHalf) + kWaves * (crest - kHalf);
    colour.y += kSparkle * crest * smooth((sparkle.at(x, y) - kSparkleFrom) / kSparkleOver);
    return colour;
}

Colour sceneAt(uint32_t camera, uint32_t x, uint32_t y)
{
    constexpr uint32_t kSeeds = 32;
    const View& view = kViews[camera];
    const uint32_t seed = camera * kSeeds;
    if (y >= kBars) {
        return kBarColours[x * kBarColours.size() / kPictureWidth];
    }
    if (y >= kHorizon) {
        return waterAt(view, seed, x, std::max(y, kShore));  // between them lies the mark
    }
    return y < ridge(seed, x) ? skyAt(view, seed, x, y) : hillsAt(view, seed, x, y);
}

uint8_t toByte(float value)
{
    constexpr float kLowest = 16.0F, kHighest = 235.0F, kRound = .5F;
    return static_cast<uint8_t>(std::clamp(value, kLowest, kHighest) + kRound);
}

float distanceTo(const Strokes& strokes, size_t points, const Point& place)
{
    float nearest = 1.0F;
    for (size_t i = 0; i + 1 < points; ++i) {
        const Point from = strokes[i];
        const Point way{strokes[i + 1].x - from.x, strokes[i + 1].y - from.y};
        const float along =
            ((place.x - from.x) * way.x + (place.y - from.y) * way.y) / (way.x * way.x + way.y * way.y);
        const float share = std::clamp(along, 0.0F, 1.0F);
        nearest =
            std::min(nearest, std::hypot(place.x - from.x - share * way.x, place.y - from.y - share * way.y));
    }
    return nearest;
}

/// Fills a sprite from a function of its pixels; rows of a pair share the outline of `reach`, the opaque half
/// width at a line.
template <typename ColourAt, typename Reach>
PatternSource::Sprite makeSprite(uint32_t width, uint32_t height, ColourAt colourAt, Reach reach)
{
    PatternSource::Sprite sprite{width, height, {}, {}, {}};
    sprite.luma.resize(size_t{width} * height);
    sprite.chroma.resize(size_t{width} * height / 2);
    for (uint32_t y = 0; y < height; ++y) {
        for (uint32_t x = 0; x < width; ++x) {
            const Colour colour = colourAt(x, y);
            sprite.luma[size_t{y} * width + x] = toByte(colour.y);
            if (x % 2 == 0 && y % 2 == 0) {
                const size_t at = size_t{y / 2} * width + x;
                sprite.chroma[at] = toByte(colour.u);
                sprite.chroma[at + 1] = toByte(colour.v);
            }
        }
    }
    for (uint32_t pair = 0; pair < height / 2; ++pair) {
        const uint32_t half = std::min(width / 2, reach(pair * 2)) / 2 * 2;
        sprite.spans.push_back({width / 2 - half, width / 2 + half});
    }
    return sprite;
}

constexpr uint32_t kBadgeWidth = 112, kBadgeHeight = 144;
constexpr uint32_t kBadgeX = 40, kBadgeY = 36;
constexpr uint32_t kBallSize = 64;

PatternSource::Sprite makeBadge(uint32_t camera)
{
    constexpr float kStroke = .085F, kSoftEdge = .014F, kShade = .30F;
    constexpr uint32_t kCorner = 16;
    constexpr Colour kDark = rgb(0, 0, 0);
    const Strokes& strokes = kDigits[camera];
    const auto end = std::find_if(strokes.begin(), strokes.end(), [](const Point& p) { return p.x == 0; });
    const auto points = static_cast<size_t>(end - strokes.begin());
    const auto colourAt = [&](uint32_t x, uint32_t y) {
        const Point place{static_cast<float>(x) / kBadgeWidth, static_cast<float>(y) / kBadgeHeight};
        const float ink = smooth((kStroke + kSoftEdge - distanceTo(strokes, points, place)) / kSoftEdge);
        return mix(mix(kViews[camera].accent, kDark, kShade * place.y), kWhite, ink);
    };
    return makeSprite(kBadgeWidth, kBadgeHeight, colourAt, [](uint32_t y) {
        const uint32_t fromEdge = std::min(y, kBadgeHeight - 1 - y);
        const uint32_t missing = fromEdge < kCorner ? kCorner - fromEdge : 0;
        return kBadgeWidth / 2 - missing * missing / kCorner;
    });
}

PatternSource::Sprite makeBall(uint32_t camera)
{
    constexpr float kRadius = kBallSize / 2.0F, kSectors = 6.0F, kTurn = 6.2831853F, kShade = .45F;
    constexpr Colour kDark = rgb(0, 0, 0);
    const auto colourAt = [&](uint32_t x, uint32_t y) {
        const Point place{(static_cast<float>(x) - kRadius) / kRadius,
                          (static_cast<float>(y) - kRadius) / kRadius};
        const float angle = std::atan2(place.y, place.x) / kTurn + 1.0F;
        const bool bright = static_cast<int>(angle * kSectors) % 2 == 0;
        const float shade = kShade * smooth((place.x + place.y + 1.0F) / 2.0F);
        return mix(bright ? kWhite : kViews[camera].accent, kDark, shade);
    };
    return makeSprite(kBallSize, kBallSize, colourAt, [](uint32_t y) {
        const float down = static_cast<float>(y) + 1.0F - kRadius;
        return static_cast<uint32_t>(std::sqrt(std::max(0.0F, kRadius * kRadius - down * down)));
    });
}

/// `x` and `y` are even.
void lay(const PatternSource::Sprite& sprite, uint32_t x, uint32_t y, uint8_t* nv12)
{
    uint8_t* luma = nv12 + size_t{y} * kPictureWidth + x;
    uint8_t* chroma = nv12 + size_t{kPictureWidth} * (kPictureHeight + y / 2) + x;
    for (uint32_t row = 0; row < sprite.height; ++row) {
        const PatternSource::Sprite::Span span = sprite.spans[row / 2];
        const uint8_t* from = sprite.luma.data() + size_t{row} * sprite.width;
        std::memcpy(luma + size_t{row} * kPictureWidth + span.first, from + span.first,
                    span.last - span.first);
    }
    for (uint32_t pair = 0; pair < sprite.height / 2; ++pair) {
        const PatternSource::Sprite::Span span = sprite.spans[pair];
        const uint8_t* from = sprite.chroma.data() + size_t{pair} * sprite.width;
        std::memcpy(chroma + size_t{pair} * kPictureWidth + span.first, from + span.first,
                    span.last - span.first);
    }
}

void layBall(const PatternSource::Sprite& ball, uint64_t frameNumber, uint32_t camera, uint8_t* nv12)
{
    constexpr uint32_t kBounceFrames = 36, kBounceHeight = 112, kStep = 6, kApart = 37;
    constexpr uint32_t kWay = kPictureWidth - kBallSize;
    constexpr uint32_t kGround = kBars - kBallSize - 4;
    const auto frame = static_cast<uint32_t>(frameNumber % kLoopFrames) + camera * kApart;
    const uint32_t run = frame * kStep % (2 * kWay);
    const uint32_t phase = frame % kBounceFrames;
    const uint32_t height =
        4 * kBounceHeight * phase * (kBounceFrames - phase) / (kBounceFrames * kBounceFrames);
    lay(ball, std::min(run, 2 * kWay - run), (kGround - height) / 2 * 2, nv12);
}

}  // namespace

bool PatternSource::draw(uint64_t frameNumber, uint8_t* nv12)
{
    if (luma_.empty()) {
        paint();
    }
    copyRows(frameNumber, nv12);
    layBall(ball_, frameNumber, camera_, nv12);
    lay(badge_, kBadgeX, kBadgeY, nv12);
    PatternCode::paint(nv12, {camera_ + 1, static_cast<uint32_t>(frameNumber % PatternCode::kFrames)});
    return true;
}

void PatternSource::paint()
{
    luma_.resize(size_t{kCanvasWidth} * kPictureHeight);
    chroma_.resize(size_t{kCanvasWidth} * kPictureHeight / 2);
    for (uint32_t y = 0; y < kPictureHeight; ++y) {
        uint8_t* luma = luma_.data() + size_t{y} * kCanvasWidth;
        uint8_t* chroma = chroma_.data() + size_t{y / 2} * kCanvasWidth;
        for (uint32_t x = 0; x < kPictureWidth; ++x) {
            const Colour colour = sceneAt(camera_, x, y);
            luma[x] = toByte(colour.y);
            if (x % 2 == 0 && y % 2 == 0) {
                chroma[x] = toByte(colour.u);
                chroma[x + 1] = toByte(colour.v);
            }
        }
        std::memcpy(luma + kPictureWidth, luma, kPictureWidth);
        std::memcpy(chroma + kPictureWidth, chroma, kPictureWidth);
    }
    badge_ = makeBadge(camera_);
    ball_ = makeBall(camera_);
}

void PatternSource::copyRows(uint64_t frameNumber, uint8_t* nv12) const
{
    uint8_t* chroma = nv12 + size_t{kPictureWidth} * kPictureHeight;
    for (uint32_t pair = 0; pair < kPictureHeight / 2; ++pair) {
        const uint32_t offset = offsetOf(pair, frameNumber);
        const size_t row = size_t{pair} * 2;
        for (size_t y = row; y < row + 2; ++y) {
            std::memcpy(nv12 + y * kPictureWidth, luma_.data() + y * kCanvasWidth + offset, kPictureWidth);
        }
        std::memcpy(chroma + size_t{pair} * kPictureWidth,
                    chroma_.data() + size_t{pair} * kCanvasWidth + offset, kPictureWidth);
    }
}

uint32_t PatternSource::offsetOf(uint32_t rowPair, uint64_t frameNumber) const
{
    constexpr uint32_t kStep = 2;           // pixels a frame, even for the chroma's sake
    constexpr uint32_t kGlitterFrames = 6;  // how long a row of water keeps its look
    const auto frame = static_cast<uint32_t>(frameNumber % kLoopFrames);
    const uint32_t row = rowPair * 2;
    if (row >= kBars) {
        return 0;
    }
    uint32_t way = kStep * frame;
    if (row >= kShore) {
        const uint32_t look = (frame + scramble(rowPair) % kGlitterFrames) / kGlitterFrames;
        way = 2 * kStep * frame + 2 * (scramble(look * kPictureHeight + rowPair) % kPictureWidth);
    }
    way %= kPictureWidth;
    return kViews[camera_].drivesLeft && way != 0 ? kPictureWidth - way : way;
}

}  // namespace board
