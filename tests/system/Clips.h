#pragma once

#include <cstdint>
#include <string>

#include "Pictures.h"

/// Videos whose pictures a machine can tell from each other, made by FFmpeg as they are needed.
namespace clips {

enum class Sound { kSilence, kNone };  ///< a sound track that nobody hears, or none

constexpr int kShort = 15;  ///< pictures that a test waits for

struct Clip {
    int number = 1;  ///< 1 to 4, coded in each picture as a camera's would be
    int pictures = kShort;
    const char* rate = "10";  ///< pictures a second, as FFmpeg takes it
    Sound sound = Sound::kSilence;
};

/// Writes a clip; its codecs follow the name's ending: avi, mp4 or mkv. False when that failed.
bool make(const Clip& clip, const std::string& file);

/// A second of silence and no picture.
bool makeSound(const std::string& file);

/// Gives a video a sound track of silence; nothing is encoded anew.
bool addSilence(const std::string& video, const std::string& file);

/// Where the player shows a picture of this size on the panel: as large as the overlay allows, in its middle.
support::Rectangle placeOnPanel(int width, int height);

/// Which clip, and which of its pictures, the panel shows.
std::optional<support::Shown> shownOn(const support::Png& panel);

}  // namespace clips
