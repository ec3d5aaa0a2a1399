#include "Clips.h"

#include <filesystem>
#include <fstream>
#include <map>
#include <vector>

#include "Scenes.h"
#include "capture/PatternCode.h"

namespace clips {
namespace {

using board::PatternCode;
using support::Command;
using support::operator+;

constexpr const char* kSilence = "anullsrc=r=48000";
constexpr int kOverlayWidth = 800;
constexpr int kOverlayHeight = 500;

Command encodersFor(const std::string& file)
{
    static const std::map<std::string, Command> byEnding{
        {".avi", {"-c:v", "mpeg4", "-q:v", "3", "-c:a", "libmp3lame"}},
        {".mp4", {"-c:v", "libx264", "-preset", "ultrafast", "-c:a", "aac"}},
        {".mkv", {"-c:v", "libx264", "-preset", "ultrafast", "-c:a", "libvorbis"}},
    };
    return byEnding.at(std::filesystem::path(file).extension());
}

bool runFfmpeg(const Command& arguments)
{
    const support::Outcome outcome =
        support::runToEnd(Command{"/usr/bin/ffmpeg", "-nostdin", "-v", "error", "-y"} + arguments);
    EXPECT_EQ(outcome.status, 0) << outcome.error;
    return outcome.status == 0;
}

bool writePictures(const Clip& clip, const std::string& file)
{
    constexpr size_t kPixels = size_t{PatternCode::kPictureWidth} * PatternCode::kPictureHeight;
    constexpr uint8_t kGrey = 128;
    std::vector<uint8_t> picture(kPixels + kPixels / 2, kGrey);
    std::ofstream raw(file, std::ios::binary);
    for (int number = 0; number < clip.pictures; ++number) {
        PatternCode::paint(picture.data(),
                           {static_cast<unsigned>(clip.number), static_cast<uint32_t>(number)});
        raw.write(reinterpret_cast<const char*>(picture.data()),
                  static_cast<std::streamsize>(picture.size()));
    }
    return raw.flush().good();
}

}  // namespace

bool make(const Clip& clip, const std::string& file)
{
    const support::Folder folder;
    const std::string raw = folder.file("pictures");
    if (!writePictures(clip, raw)) {
        return false;
    }
    const std::string size =
        std::to_string(PatternCode::kPictureWidth) + "x" + std::to_string(PatternCode::kPictureHeight);
    Command command{"-f", "rawvideo",   "-pix_fmt", "nv12", "-video_size",
                    size, "-framerate", clip.rate,  "-i",   raw};
    if (clip.sound == Sound::kSilence) {
        command.insert(command.end(), {"-f", "lavfi", "-i", kSilence, "-shortest"});
    }
    return runFfmpeg(command + encodersFor(file) + Command{"-pix_fmt", "yuv420p", "file:" + file});
}

bool makeSound(const std::string& file)
{
    return runFfmpeg({"-f", "lavfi", "-i", kSilence, "-t", "1", "-c:a", "aac", "file:" + file});
}

bool addSilence(const std::string& video, const std::string& file)
{
    return runFfmpeg({"-i", video, "-f", "lavfi", "-i", kSilence, "-shortest", "-c:v", "copy", "-c:a", "aac",
                      "file:" + file});
}

support::Rectangle placeOnPanel(int width, int height)
{
    const bool wide = width * kOverlayHeight > height * kOverlayWidth;
    const int shownWidth = wide ? kOverlayWidth : width * kOverlayHeight / height;
    const int shownHeight = wide ? height * kOverlayWidth / width : kOverlayHeight;
    return {scenes::kBackupX + (kOverlayWidth - shownWidth) / 2,
            scenes::kBackupY + (kOverlayHeight - shownHeight) / 2, shownWidth, shownHeight};
}

std::optional<support::Shown> shownOn(const support::Png& panel)
{
    return support::shownIn(panel.luma(),
                            placeOnPanel(PatternCode::kPictureWidth, PatternCode::kPictureHeight));
}

}  // namespace clips
