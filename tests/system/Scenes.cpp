#include "Scenes.h"

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
