// The parts of the whole-pipeline benchmark that are programs: the deterministic input, the yardsticks, the
// quality of de-interlacing. pipeline.sh runs them.

#include <CLI/CLI.hpp>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <iterator>

#include "Bare.h"
#include "Scene.h"
#include "ipu/Deinterlace.h"

namespace {

using pipeline::kClipFrames;
using pipeline::kPictureBytes;
using pipeline::Picture;

struct Files {
    std::string first, second;
};

bool append(std::ofstream& file, const Picture& picture)
{
    return file
        .write(reinterpret_cast<const char*>(picture.data()), static_cast<std::streamsize>(picture.size()))
        .good();
}

/// FOLDER/camera1.nv12 ... camera4.nv12, and what a perfect de-interlacer would make of the first:
/// whole1.nv12.
std::string writeClips(const std::string& folder)
{
    Picture picture;
    for (unsigned camera = 1; camera <= 4; ++camera) {
        const pipeline::Scene scene(camera);
        std::ofstream fields(folder + "/camera" + std::to_string(camera) + ".nv12", std::ios::binary);
        std::ofstream whole;
        if (camera == 1) {
            whole.open(folder + "/whole1.nv12", std::ios::binary);
        }
        for (unsigned frame = 0; frame < kClipFrames; ++frame) {
            scene.drawInterlaced(frame, picture);
            bool written = append(fields, picture);
            if (camera == 1) {
                scene.drawInstant(2 * frame, picture);
                written = append(whole, picture) && written;
            }
            if (!written) {
                return "cannot write into " + folder;
            }
        }
    }
    return {};
}

Picture readAll(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

std::string deinterlace(const Files& files)
{
    constexpr uint8_t kNoise = 8;  // what the board takes for noise when the daemon asks for low motion
    Picture clip = readAll(files.first);
    std::ofstream made(files.second, std::ios::binary);
    Picture picture(kPictureBytes);
    board::Deinterlacer deinterlacer;
    const board::PixelFormat& format = *board::findPixelFormat(board::kNv12);
    const auto view = [&](uint8_t* data) {
        constexpr uint32_t kWidth = pipeline::kWidth, kHeight = pipeline::kHeight;
        return board::viewPicture(data, format, {kWidth, kHeight}, {0, 0, kWidth, kHeight});
    };
    for (size_t at = 0; at + kPictureBytes <= clip.size(); at += kPictureBytes) {
        const board::PictureView previous = view(clip.data() + (at == 0 ? 0 : at - kPictureBytes));
        deinterlacer.run(view(clip.data() + at), &previous, board::FieldOrder::kTopFirst, kNoise,
                         view(picture.data()));
        append(made, picture);
    }
    return made.good() && !clip.empty() ? "" : "cannot read " + files.first + " or write " + files.second;
}

/// Of the luma, over the pictures both have but the first, which has none before it.
std::string comparePictures(const Files& files)
{
    const Picture one = readAll(files.first), other = readAll(files.second);
    const size_t pictures = std::min(one.size(), other.size()) / kPictureBytes;
    double sum = 0, count = 0;
    for (size_t picture = 1; picture < pictures; ++picture) {
        for (size_t i = 0; i < pipeline::kWidth * pipeline::kHeight; ++i) {
            const int difference = one[picture * kPictureBytes + i] - other[picture * kPictureBytes + i];
            sum += difference * difference;
        }
        count += static_cast<double>(pipeline::kWidth * pipeline::kHeight);
    }
    if (count == 0) {
        return "no pictures to compare";
    }
    constexpr double kPeak = 255.0 * 255.0;
    std::printf("%.2f\n", 10 * std::log10(kPeak / (sum / count)));
    return {};
}

}  // namespace

int main(int argc, char** argv)
{
    CLI::App app{"Yardsticks for the whole pipeline on the virtual board", "pipeline_bench"};
    app.require_subcommand(1);
    std::string folder;
    Files files;
    pipeline::BareRun bare{pipeline::BareRun::Work::kNone, 4, 1, kClipFrames, "ultrafast", {}, "/dev/null"};
    auto& clips = *app.add_subcommand("clips", "Write the cameras' pictures");
    clips.add_option("FOLDER", folder)->required();
    auto& fields = *app.add_subcommand("deinterlace", "De-interlace a clip as the virtual board does");
    auto& psnr = *app.add_subcommand("psnr", "How much alike two clips are, in dB");
    for (CLI::App* verb : {&fields, &psnr}) {
        verb->add_option("FIRST", files.first)->required();
        verb->add_option("SECOND", files.second)->required();
    }
    auto& floor = *app.add_subcommand("floor", "x264 alone");
    auto& tight = *app.add_subcommand("tight", "The same pixel work in plain loops");
    for (CLI::App* verb : {&floor, &tight}) {
        verb->add_option("--clips", bare.clips)->required();
        verb->add_option("--cameras", bare.cameras)->check(CLI::IsMember({2, 4}));
        verb->add_option("--threads", bare.threads)->check(CLI::Range(1, 64));
        verb->add_option("--frames", bare.frames);
        verb->add_option("--preset", bare.preset);
        verb->add_option("--output", bare.output);
    }
    CLI11_PARSE(app, argc, argv);
    bare.work = tight.parsed() ? pipeline::BareRun::Work::kTight : pipeline::BareRun::Work::kNone;
    const std::string wrong = clips.parsed()    ? writeClips(folder)
                              : fields.parsed() ? deinterlace(files)
                              : psnr.parsed()   ? comparePictures(files)
                                                : pipeline::run(bare);
    if (!wrong.empty()) {
        std::cerr << "pipeline_bench: " << wrong << '\n';
    }
    return wrong.empty() ? 0 : 1;
}
