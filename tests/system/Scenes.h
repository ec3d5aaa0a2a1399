#pragma once

#include <gtest/gtest.h>

#include <ostream>
#include <string>
#include <vector>

#include "Panel.h"

/// What the tests of the whole daemon share: where its pictures lie, and what a good recording is.
namespace scenes {

/// How much slower than the shipped build this one may be.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__) || defined(__arm__)  // in an emulator
constexpr int kSlowness = 5;
#else
constexpr int kSlowness = 1;
#endif
struct Layout {
    const char* cpu;
    int width, height;
    std::vector<support::Rectangle> tiles;  ///< of cameras 1, 2...
};
/// For a test's name: the address would be another one each time.
inline void PrintTo(const Layout* layout, std::ostream* stream)
{
    *stream << layout->cpu;
}
const Layout& quad();
const Layout& dualLite();

/// Panes of the overlay on the panel, which stands at (x, y).
support::Rectangle onePane(int x, int y);
support::Rectangle leftPane(int x, int y);
support::Rectangle rightPane(int x, int y);
constexpr int kCameraX = 15, kCameraY = 75;   ///< where the camera view stands
constexpr int kBackupX = 115, kBackupY = 40;  ///< where the backup camera stands

/// The number of the camera shown there, 0 for none.
int cameraIn(const support::Png& picture, const support::Rectangle& pane);

/// The date and time in a recorded picture, as "12/31/26 23:59:59", by the font that they were drawn with;
/// empty without the font.
std::string readClock(const support::Luma& picture, const std::string& font);

/// What was seen of a recording.
struct Reading {
    std::string fault;  ///< the first thing that was wrong, empty when nothing was
    uint32_t frames = 0;
    uint32_t firstFrame = 0, lastFrame = 0;  ///< numbers in the first tile
};
/// Decodes all of it: each tile shows its own camera, and its frame numbers run on without a gap or repeat.
Reading readUnbroken(const std::string& file, const Layout& layout);

}  // namespace scenes
