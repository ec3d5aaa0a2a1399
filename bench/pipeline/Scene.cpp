#include "Scene.h"

#include <algorithm>
#include <array>
#include <cmath>

#include "capture/Scramble.h"

namespace pipeline {
namespace {

using board::scramble;

constexpr double kTurn = 6.283185307179586;
constexpr size_t kMargin = 24;  // pixels of ground beyond each edge of the picture, to sway into

/// Smooth random values from -1 to 1 on a grid.
float noiseAt(size_t x, size_t y, size_t cell, uint32_t seed)
{
    constexpr uint32_t kRowStep = 4096;
    const auto corner = [&](size_t column, size_t row) {
        constexpr float kScale = 1.0F / 32768.0F;
        const auto key = static_cast<uint32_t>(column + row * kRowStep);
        return static_cast<float>(scramble(scramble(seed) + key) & 0xFFFFU) * kScale - 1.0F;
    };
    const auto smooth = [&](size_t place) {
        const float share = static_cast<float>(place % cell) / static_cast<float>(cell);
        return share * share * (3.0F - 2.0F * share);
    };
    const size_t column = x / cell, row = y / cell;
    const float right = smooth(x), down = smooth(y);
    const float above = corner(column, row) * (1.0F - right) + corner(column + 1, row) * right;
    const float below = corner(column, row + 1) * (1.0F - right) + corner(column + 1, row + 1) * right;
    return above * (1.0F - down) + below * down;
}

uint8_t toByte(float value)
{
    constexpr float kLowest = 16.0F, kHighest = 235.0F;
    return static_cast<uint8_t>(std::clamp(value, kLowest, kHighest) + 0.5F);
}

/// One line of a plane, sampled between four texels; the shares are of 256.
struct Between {
    const uint8_t *upper, *lower;
    uint32_t right, down;
    size_t step;  // texels from sample to sample

    uint8_t at(size_t index) const
    {
        constexpr uint32_t kWhole = 256, kHalf = 32768;
        const size_t place = index * step;
        const uint32_t above = upper[place] * (kWhole - right) + upper[place + 1] * right;
        const uint32_t below = lower[place] * (kWhole - right) + lower[place + 1] * right;
        return static_cast<uint8_t>((above * (kWhole - down) + below * down + kHalf) >> 16);
    }
};

}  // namespace

Scene::Scene(unsigned camera) : camera_(camera)
{
    constexpr uint32_t kSeeds = 64;
    constexpr unsigned kThings = 5;
    constexpr int kGroundContrast = 60, kThingContrast = 80;
    const uint32_t seed = camera * kSeeds;
    ground_ = makeTexture(kWidth + 2 * kMargin, kHeight + 2 * kMargin, seed, kGroundContrast);
    for (unsigned i = 0; i < kThings; ++i) {
        const uint32_t random = scramble(seed + i + 1);
        const auto part = [&](unsigned shift) {
            return static_cast<double>((random >> shift) & 0xFFU) / 255.0;
        };
        const size_t side = 48 + 16 * i;
        const double radius = 12 + 22.0 * i / kThings;
        things_.push_back({makeTexture(side, side * 3 / 4, seed + 8 + 4 * i, kThingContrast),
                           60 + part(0) * (kWidth - 240), 60 + part(8) * (kHeight - 220), radius,
                           i % 2 == 0 ? 1.0 : -1.0, part(16) * kTurn});
    }
}

Scene::Texture Scene::makeTexture(size_t width, size_t height, uint32_t seed, int contrast)
{
    struct Octave {
        size_t cell;
        float share;
    };
    constexpr std::array kOctaves{Octave{64, .5F}, Octave{24, .4F}, Octave{9, .35F}, Octave{4, .3F},
                                  Octave{2, .2F}};
    constexpr float kMiddle = 120.0F, kNeutral = 128.0F, kColour = 28.0F;
    constexpr size_t kColourCell = 40;
    Texture made{width, height, {}, {}, {}};
    for (size_t y = 0; y < height; ++y) {
        for (size_t x = 0; x < width; ++x) {
            float luma = 0;
            for (const Octave& octave : kOctaves) {
                luma += octave.share * noiseAt(x, y, octave.cell, seed + static_cast<uint32_t>(octave.cell));
            }
            made.luma.push_back(toByte(kMiddle + static_cast<float>(contrast) * luma));
            made.u.push_back(toByte(kNeutral + kColour * noiseAt(x, y, kColourCell, seed + 1)));
            made.v.push_back(toByte(kNeutral + kColour * noiseAt(x, y, kColourCell, seed + 2)));
        }
    }
    return made;
}

/// Draws a texture with its top left corner at (x, y), between whole pixels too. `everywhere`: it covers the
/// picture from (-x, -y) of its own on; else it lies inside the picture.
void Scene::lay(const Texture& texture, double x, double y, bool everywhere, Picture& nv12)
{
    constexpr double kShares = 256;
    constexpr size_t kEdge = 2;  // texels that the blending needs beyond the last sample
    const double fromX = everywhere ? -x : std::ceil(x / 2) * 2 - x;
    const double fromY = everywhere ? -y : std::ceil(y / 2) * 2 - y;
    const size_t left = everywhere ? 0 : static_cast<size_t>(std::ceil(x / 2)) * 2;
    const size_t top = everywhere ? 0 : static_cast<size_t>(std::ceil(y / 2)) * 2;
    const size_t columns = everywhere ? kWidth : (texture.width - kEdge - 2) / 2 * 2;
    const size_t lines = everywhere ? kHeight : (texture.height - kEdge - 2) / 2 * 2;
    const auto texelX = static_cast<size_t>(fromX), texelY = static_cast<size_t>(fromY);
    const auto right = static_cast<uint32_t>((fromX - std::floor(fromX)) * kShares);
    const auto down = static_cast<uint32_t>((fromY - std::floor(fromY)) * kShares);
    const auto line = [&](const std::vector<uint8_t>& plane, size_t offset, size_t step) {
        const uint8_t* const upper = plane.data() + (texelY + offset) * texture.width + texelX;
        return Between{upper, upper + texture.width, right, down, step};
    };
    for (size_t i = 0; i < lines; ++i) {
        uint8_t* const luma = nv12.data() + (top + i) * kWidth + left;
        const Between from = line(texture.luma, i, 1);
        for (size_t column = 0; column < columns; ++column) {
            luma[column] = from.at(column);
        }
        if (i % 2 != 0) {
            continue;
        }
        uint8_t* const chroma = nv12.data() + kWidth * (kHeight + (top + i) / 2) + left;
        const Between u = line(texture.u, i, 2), v = line(texture.v, i, 2);
        for (size_t pair = 0; pair < columns / 2; ++pair) {
            chroma[2 * pair] = u.at(pair);
            chroma[2 * pair + 1] = v.at(pair);
        }
    }
}

void Scene::addNoise(uint32_t seed, Picture& nv12)
{
    uint32_t state = scramble(seed) | 1U;
    constexpr uint32_t kFactor = 1664525, kAddend = 1013904223;
    for (size_t i = 0; i < kWidth * kHeight; ++i) {
        state = state * kFactor + kAddend;
        nv12[i] = static_cast<uint8_t>(nv12[i] + (state >> 31) - ((state >> 30) & 1U));  // -1, 0, 0 or 1
    }
}

void Scene::drawInstant(unsigned field, Picture& nv12) const
{
    constexpr double kSwayX = 14.0, kSwayY = 4.0;
    constexpr double kFields = 2.0 * kClipFrames;
    nv12.resize(kPictureBytes);
    const double angle = kTurn * static_cast<double>(field % (2 * kClipFrames)) / kFields;
    lay(ground_, -static_cast<double>(kMargin) - kSwayX * std::sin(angle),
        -static_cast<double>(kMargin) - kSwayY * std::cos(2 * angle), true, nv12);
    for (const Thing& thing : things_) {
        const double turn = thing.turns * angle + thing.phase;
        lay(thing.texture, thing.x + thing.radius * std::cos(turn), thing.y + thing.radius * std::sin(turn),
            false, nv12);
    }
    constexpr uint32_t kCameraStep = 1024;
    addNoise(camera_ * kCameraStep + field, nv12);
}

void Scene::drawInterlaced(unsigned frame, Picture& nv12) const
{
    Picture second;
    drawInstant(2 * frame, nv12);
    drawInstant(2 * frame + 1, second);
    for (size_t line = 1; line < kHeight * 3 / 2; line += 2) {  // the chroma begins on an even line
        std::copy_n(second.begin() + static_cast<ptrdiff_t>(line * kWidth), kWidth,
                    nv12.begin() + static_cast<ptrdiff_t>(line * kWidth));
    }
}

}  // namespace pipeline
