// Cameras that show films: what is recorded of them, compared with the films.

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>

#include "Scenes.h"

namespace {

using support::Command;
using support::Luma;
using support::Panel;
using support::Rectangle;

constexpr int kWidth = 720;
constexpr int kHeight = 480;
constexpr int kClipFrames = 60;  // two seconds

/// Four films that move in different ways, by ffmpeg's sources.
constexpr std::array kFilms{"testsrc2=size=720x480:rate=30",
                            "mandelbrot=size=720x480:rate=30:start_scale=2:end_scale=0.1:end_pts=60",
                            "gradients=size=720x480:rate=30:nb_colors=6:seed=3:speed=0.08,hue=h=60*t",
                            "smptebars=size=720x480:rate=30,rotate=PI*t:c=navy"};

/// A film as a camera has it, in brightness.
using Film = std::vector<Luma>;

Film readFilm(const std::string& file)
{
    support::FrameReader reader(file, kWidth, kHeight);
    support::Frame frame;
    Film film;
    while (reader.next(frame)) {
        film.push_back(frame.luma);
    }
    return film;
}

/// Mean of the squared differences between a tile of a picture and a film's picture; every `step`th line.
double difference(const Luma& picture, const Rectangle& tile, const Luma& original, int step)
{
    uint64_t sum = 0;
    uint64_t count = 0;
    for (int y = 0; y < tile.height; y += step) {
        for (int x = 0; x < tile.width; ++x) {
            const int apart = picture.at(tile.x + x, tile.y + y) - original.at(x, y);
            sum += static_cast<uint64_t>(apart * apart);
        }
        count += static_cast<uint64_t>(tile.width);
    }
    return static_cast<double>(sum) / static_cast<double>(count);
}

double decibel(double meanSquare)
{
    constexpr double kPeak = 255;
    return 10 * std::log10(kPeak * kPeak / std::max(meanSquare, 1e-3));
}

/// Which film's which picture a tile shows best.
struct Match {
    size_t film = 0;
    size_t frame = 0;
    double meanSquare = std::numeric_limits<double>::max();
};

Match bestMatch(const Luma& picture, const Rectangle& tile, const std::vector<Film>& films)
{
    constexpr int kEveryEighth = 8;
    Match best;
    for (size_t film = 0; film < films.size(); ++film) {
        for (size_t frame = 0; frame < films[film].size(); ++frame) {
            const double here = difference(picture, tile, films[film][frame], kEveryEighth);
            best = here < best.meanSquare ? Match{film, frame, here} : best;
        }
    }
    return best;
}

/// The tile of one camera, followed through the recording.
struct Tile {
    Rectangle place;
    size_t number;
    size_t next = 0;  ///< picture of the film that is to come
    double sum = 0;   ///< of the mean squares
    std::array<double, 3>
        nearby{};  ///< the same for the picture before, that picture and the one after, of late
};

class Clips : public testing::Test {
protected:
    void SetUp() override
    {
        for (size_t i = 0; i < kFilms.size(); ++i) {
            const std::string file = folder_.file("film" + std::to_string(i + 1) + ".mkv");
            const auto made = support::runToEnd({"/usr/bin/ffmpeg", "-nostdin", "-v", "error", "-f", "lavfi",
                                                 "-i", kFilms.at(i), "-frames:v", std::to_string(kClipFrames),
                                                 "-pix_fmt", "yuv420p", "-c:v", "ffv1", file});
            ASSERT_EQ(made.status, 0) << made.error;
            files_.push_back(file);
        }
    }

    void record(const std::string& pace, int frames)
    {
        Command options{"--fps", pace, "--frames", std::to_string(frames)};
        for (size_t i = 0; i < files_.size(); ++i) {
            options.insert(options.end(), {"--camera", std::to_string(i + 1) + "=file:" + files_[i]});
        }
        panel_.start(options);
        ASSERT_EQ(panel_.awaitEnd(), 0) << panel_.output() << panel_.errors();
    }

    /// Compares every recorded picture with the one that its camera must have shown; the number of pictures.
    int compare(std::vector<Tile>& tiles)
    {
        std::vector<Film> films;
        for (const std::string& file : files_) {
            films.push_back(readFilm(file));
            EXPECT_EQ(films.back().size(), kClipFrames);
        }
        support::FrameReader reader(panel_.recording(), scenes::quad().width, scenes::quad().height);
        support::Frame frame;
        constexpr int kStretch = 15;
        int frames = 0;
        for (; !HasFailure() && reader.next(frame); ++frames) {
            for (Tile& tile : tiles) {
                SCOPED_TRACE("picture " + std::to_string(frames) + ", tile " +
                             std::to_string(tile.number + 1));
                follow(tile, frame.luma, films, frames == 0);
                if (frames % kStretch == kStretch - 1) {
                    checkStretch(tile);
                }
            }
        }
        return frames;
    }

    static void follow(Tile& tile, const Luma& picture, const std::vector<Film>& films, bool first)
    {
        const Film& film = films[tile.number];
        if (first) {
            const Match match = bestMatch(picture, tile.place, films);
            ASSERT_EQ(match.film, tile.number);
            tile.next = match.frame;
        }
        const auto expected = [&](size_t ahead) -> const Luma& {
            return film[(tile.next + film.size() + ahead - 1) % film.size()];
        };
        constexpr int kEveryFourth = 4;
        for (size_t ahead = 0; ahead < tile.nearby.size(); ++ahead) {
            tile.nearby.at(ahead) += difference(picture, tile.place, expected(ahead), kEveryFourth);
        }
        tile.sum += difference(picture, tile.place, expected(1), 1);
        tile.next = (tile.next + 1) % film.size();
    }

    /// A picture left out or recorded twice shifts all that follow.
    static void checkStretch(Tile& tile)
    {
        EXPECT_LT(tile.nearby[1], tile.nearby[0]) << "a picture was recorded twice";
        EXPECT_LT(tile.nearby[1], tile.nearby[2]) << "a picture was left out";
        tile.nearby = {};
    }

    support::Folder folder_;
    std::vector<std::string> files_;
    Panel panel_;
};

TEST_F(Clips, EveryPictureOfEveryFilmIsRecordedOnceInItsTileAndLooksLikeIt)
{
    constexpr int kLooped = 90;
    constexpr int kFew = 45;  // where a picture takes its time
    constexpr int kTwentySeconds = 600;
    const int asked = support::isLong() ? kTwentySeconds : scenes::kSlowness == 1 ? kLooped : kFew;
    ASSERT_NO_FATAL_FAILURE(record(support::isLong() ? "30" : "max", asked));
    std::vector<Tile> tiles;
    for (const Rectangle& place : scenes::quad().tiles) {
        tiles.push_back({place, tiles.size()});
    }
    const int frames = compare(tiles);
    ASSERT_GE(frames, asked - 3);
    for (const Tile& tile : tiles) {
        constexpr double kRecognisable = 24;
        const double quality = decibel(tile.sum / std::max(frames, 1));
        const std::string camera = std::to_string(tile.number + 1);
        std::printf(
            "camera %s: %.1f dB over %d pictures, %lu dropped\n", camera.c_str(), quality, frames,
            static_cast<unsigned long>(panel_.report().framesDropped(static_cast<int>(tile.number) + 1)));
        EXPECT_GE(quality, kRecognisable);
        EXPECT_EQ(panel_.report().framesDropped(static_cast<int>(tile.number) + 1), 0U);
    }
}

}  // namespace
