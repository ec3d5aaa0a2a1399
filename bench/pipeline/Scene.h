#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace pipeline {

constexpr size_t kWidth = 720, kHeight = 480;
constexpr size_t kPictureBytes = kWidth * kHeight * 3 / 2;  // NV12
constexpr unsigned kClipFrames = 60;                        // the scene repeats after so many

using Picture = std::vector<uint8_t>;

/// What one camera sees: textured ground that sways as on a vehicle, textured things that circle before it, a
/// little noise. The same camera and instant always give the same picture.
///
/// Threads: one at a time.
class Scene {
public:
    explicit Scene(unsigned camera);

    /// The whole picture at one instant; `field` counts half frames.
    void drawInstant(unsigned field, Picture& nv12) const;
    /// A frame of two fields, as an interlaced camera takes it: the even lines at instant 2 * frame, the odd
    /// ones half a frame later, in the chroma too.
    void drawInterlaced(unsigned frame, Picture& nv12) const;

private:
    struct Texture {
        size_t width, height;
        std::vector<uint8_t> luma, u, v;  // of full size each, so that all are sampled alike
    };
    struct Thing {
        Texture texture;
        double x, y, radius, turns, phase;
    };

    static Texture makeTexture(size_t width, size_t height, uint32_t seed, int contrast);
    static void lay(const Texture& texture, double x, double y, bool everywhere, Picture& nv12);
    static void addNoise(uint32_t seed, Picture& nv12);

    unsigned camera_;
    Texture ground_;
    std::vector<Thing> things_;
};

}  // namespace pipeline
