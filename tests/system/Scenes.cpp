#include "Scenes.h"

#include <ft2build.h>
#include FT_FREETYPE_H

#include <limits>
#include <optional>

namespace scenes {
namespace {

constexpr int kTileWidth = 720;
constexpr int kTileHeight = 480;
constexpr int kUpperRow = 30;
constexpr int kLowerRow = 510;

constexpr int kOverlayWidth = 800;
constexpr int kOverlayHeight = 500;
constexpr int kPaneWidth = 400;
constexpr int kPaneHeight = 266;
constexpr int kPaneTop = 117;

using support::Rectangle;
using support::Shown;

/// What is wrong with a tile of a frame, given what the tile showed before.
std::string checkTile(int camera, const std::optional<Shown>& shown, const std::optional<Shown>& before)
{
    if (!shown) {
        return "shows nothing that can be read";
    }
    if (shown->camera != camera) {
        return "shows camera " + std::to_string(shown->camera);
    }
    if (before && shown->frame != before->frame + 1) {
        return "goes from " + std::to_string(before->frame) + " to " + std::to_string(shown->frame);
    }
    return "";
}

/// The tiles of a recording, followed from frame to frame.
class Tiles {
public:
    explicit Tiles(const Layout& layout) : layout_(layout), before_(layout.tiles.size()) {}

    /// The first thing that is wrong in this frame, empty when nothing is.
    std::string check(const support::Luma& picture)
    {
        for (size_t i = 0; i < layout_.tiles.size(); ++i) {
            const auto shown = support::shownIn(picture, layout_.tiles[i]);
            const std::string wrong = checkTile(static_cast<int>(i) + 1, shown, before_[i]);
            if (!wrong.empty()) {
                return "tile " + std::to_string(i + 1) + " " + wrong;
            }
            before_[i] = shown;
        }
        return "";
    }

    /// The frame's number, by the first tile.
    uint32_t number() const { return before_[0] ? before_[0]->frame : 0; }

private:
    const Layout& layout_;
    std::vector<std::optional<Shown>> before_;
};

}  // namespace

const Layout& quad()
{
    static const Layout layout{"quad",
                               1440,
                               990,
                               {{0, kUpperRow, kTileWidth, kTileHeight},
                                {kTileWidth, kUpperRow, kTileWidth, kTileHeight},
                                {0, kLowerRow, kTileWidth, kTileHeight},
                                {kTileWidth, kLowerRow, kTileWidth, kTileHeight}}};
    return layout;
}

const Layout& dualLite()
{
    static const Layout layout{
        "dual-lite",
        1440,
        510,
        {{0, kUpperRow, kTileWidth, kTileHeight}, {kTileWidth, kUpperRow, kTileWidth, kTileHeight}}};
    return layout;
}

Rectangle onePane(int x, int y)
{
    return {x, y, kOverlayWidth, kOverlayHeight};
}

Rectangle leftPane(int x, int y)
{
    return {x, y + kPaneTop, kPaneWidth, kPaneHeight};
}

Rectangle rightPane(int x, int y)
{
    return {x + kPaneWidth, y + kPaneTop, kPaneWidth, kPaneHeight};
}

int cameraIn(const support::Png& picture, const Rectangle& pane)
{
    const auto shown = support::shownIn(picture.luma(), pane);
    return shown ? shown->camera : 0;
}

namespace {

/// The clock's glyphs, which stand side by side, each centred in the band.
class ClockReader {
public:
    explicit ClockReader(const std::string& font)
    {
        usable_ = FT_Init_FreeType(&library_) == 0 && FT_New_Face(library_, font.c_str(), 0, &face_) == 0 &&
                  FT_Set_Pixel_Sizes(face_, 0, kSize) == 0;
    }
    ~ClockReader() { FT_Done_FreeType(library_); }
    ClockReader(const ClockReader&) = delete;
    ClockReader& operator=(const ClockReader&) = delete;

    std::string read(const support::Luma& picture)
    {
        std::string text;
        int x = 0;
        for (const char* form = "00/00/00 00:00:00"; usable_ && *form != '\0'; ++form) {
            const char best = *form == '0' ? digitAt(picture, x) : *form;
            text += best;
            x += best == ' ' ? kSize : widthOf(best) + 2 * kSideMargin;
        }
        return text;
    }

private:
    static constexpr int kSize = 25, kTopMargin = 3, kSideMargin = 2;  // pixels

    const FT_Bitmap& glyph(char character)
    {
        FT_Load_Char(face_, static_cast<FT_ULong>(character), FT_LOAD_RENDER);
        return face_->glyph->bitmap;
    }
    int widthOf(char character) { return static_cast<int>(glyph(character).width); }

    char digitAt(const support::Luma& picture, int x)
    {
        char best = '?';
        double least = std::numeric_limits<double>::max();
        for (char digit = '0'; digit <= '9'; ++digit) {
            const double difference = differenceFrom(glyph(digit), picture, x + kSideMargin);
            if (difference < least) {
                least = difference;
                best = digit;
            }
        }
        return best;
    }

    /// For each pixel of the glyph and its margin to the right, which is black.
    static double differenceFrom(const FT_Bitmap& glyph, const support::Luma& picture, int left)
    {
        const int rows = static_cast<int>(glyph.rows);
        const int width = static_cast<int>(glyph.width);
        const int top = (kSize - rows) / 2 + kTopMargin;
        double sum = 0;
        for (int y = 0; y < rows; ++y) {
            for (int x = 0; x < width + kSideMargin; ++x) {
                const int ink = x < width ? glyph.buffer[y * glyph.pitch + x] : 0;
                sum += std::abs(ink - picture.at(left + x, top + y));
            }
        }
        return sum / (rows * (width + kSideMargin));
    }

    FT_Library library_ = nullptr;
    FT_Face face_ = nullptr;
    bool usable_ = false;
};

}  // namespace

std::string readClock(const support::Luma& picture, const std::string& font)
{
    return ClockReader(font).read(picture);
}

Reading readUnbroken(const std::string& file, const Layout& layout)
{
    support::FrameReader reader(file, layout.width, layout.height);
    support::Frame frame;
    Tiles tiles(layout);
    Reading reading;
    for (; reading.fault.empty() && reader.next(frame); ++reading.frames) {
        const std::string wrong = tiles.check(frame.luma);
        reading.fault = wrong.empty() ? "" : "picture " + std::to_string(reading.frames) + ", " + wrong;
        reading.firstFrame = reading.frames == 0 ? tiles.number() : reading.firstFrame;
        reading.lastFrame = tiles.number();
    }
    if (reading.fault.empty()) {
        reading.fault = reader.complaints();
    }
    return reading;
}

}  // namespace scenes
