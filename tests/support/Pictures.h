#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "Child.h"
#include "Folder.h"

namespace support {

struct Rectangle {
    int x, y, width, height;
};

/// A picture's brightness, a byte a pixel.
struct Luma {
    int width = 0;
    int height = 0;
    std::vector<uint8_t> pixels;

    uint8_t at(int x, int y) const
    {
        return pixels[static_cast<size_t>(y) * static_cast<size_t>(width) + static_cast<size_t>(x)];
    }
};

/// A decoded frame: 4:2:0, chroma planes of half the size.
struct Frame {
    Luma luma;
    std::vector<uint8_t> blue, red;
};

/// Which camera's which frame a part of a picture shows, by the pattern's code, if it can be read.
struct Shown {
    int camera;
    uint32_t frame;
};
std::optional<Shown> shownIn(const Luma& picture, const Rectangle& part);

/// A PNG file in RGB and as brightness; empty pixels when it cannot be read.
struct Png {
    int width = 0;
    int height = 0;
    std::vector<uint8_t> rgb;

    Luma luma() const;
};
Png readPng(const std::string& file);

/// The frames of a recording as an independent decoder sees them, in order, none dropped and none repeated.
class FrameReader {
public:
    FrameReader(const std::string& file, int width, int height);

    /// The next frame; false after the last one.
    bool next(Frame& frame);
    /// After the last frame: what the decoder complained of; empty when all was well.
    std::string complaints();

private:
    bool readPlane(std::vector<uint8_t>& plane, size_t bytes);

    Folder folder_;
    int width_, height_;
    Child decoder_;
};

/// A recording read by the format's own words: what its header says and where its frames lie.
struct Recording {
    struct Chunk {
        size_t offset;  ///< of the chunk's tag in the file
        size_t bytes;   ///< of its data
        bool keyFrame;
        bool parameterSets;  ///< carries the codec header
    };
    bool wellFormed = false;  ///< header and every chunk up to the end of the file
    int width = 0;
    int height = 0;
    std::vector<Chunk> chunks;
};
Recording readRecording(const std::string& file);

}  // namespace support
