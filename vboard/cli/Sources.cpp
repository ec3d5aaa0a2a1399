#include "cli/Sources.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <system_error>

#include "board/Real.h"

namespace cli {
namespace {

using Kind = CameraSource::Kind;

constexpr mode_t kFileMode = 0666;
constexpr int kPipeBytes = 1 << 20;  // room for a whole picture

bool isDecoded(const CameraSource& source)
{
    return source.kind == Kind::kFile || source.kind == Kind::kV4l2;
}

bool isRead(const CameraSource& source)
{
    return isDecoded(source) || source.kind == Kind::kClip;
}

std::string problem(size_t camera, const std::string& text, int error)
{
    return "camera " + std::to_string(camera + 1) + ": " + text + ": " +
           std::generic_category().message(error);
}

/// Makes pictures as a camera has them, and as many a second: a film of another rate is not to run faster.
std::string filterFor(uint32_t frameRateMilli)
{
    const std::string size = "scale=720:480";
    return frameRateMilli == 0 ? size : "fps=" + std::to_string(frameRateMilli) + "/1000," + size;
}

Command decoderFor(const CameraSource& source, uint32_t frameRateMilli)
{
    Command command{"ffmpeg", "-nostdin", "-v", "error"};
    const Command input = source.kind == Kind::kFile
                              ? Command{"-stream_loop", "-1", "-i", "file:" + source.path}
                              : Command{"-f", "v4l2", "-i", source.path};
    command.insert(command.end(), input.begin(), input.end());
    command.insert(command.end(), {"-map", "0:v:0", "-vf", filterFor(frameRateMilli), "-pix_fmt", "nv12",
                                   "-f", "rawvideo", "pipe:1"});
    return command;
}

}  // namespace

std::string Sources::check(const BoardOptions& options)
{
    for (size_t i = 0; i < options.cameras.size(); ++i) {
        const CameraSource& source = options.cameras[i];
        if (isRead(source) && ::access(source.path.c_str(), R_OK) == -1) {
            return problem(i, "cannot read " + source.path, errno);
        }
    }
    return {};
}

std::string Sources::start(const BoardOptions& options, board::Board& board)
{
    board_ = &board;
    for (size_t i = 0; i < options.cameras.size(); ++i) {
        const CameraSource& source = options.cameras[i];
        std::string wrong = isDecoded(source)            ? startOne(i, source)
                            : source.kind == Kind::kClip ? linkClip(i, source)
                                                         : std::string();
        if (!wrong.empty()) {
            return wrong;
        }
    }
    return {};
}

std::string Sources::linkClip(size_t camera, const CameraSource& source) const
{
    const std::string link = board_->file("camera") + std::to_string(camera + 1) + ".nv12";
    std::error_code error;
    std::filesystem::remove(link, error);
    std::filesystem::create_symlink(std::filesystem::absolute(source.path), link, error);
    return error ? problem(camera, "cannot make " + link, error.value()) : std::string();
}

std::string Sources::startOne(size_t camera, const CameraSource& source)
{
    const std::string path = board_->file("camera") + std::to_string(camera + 1);
    real::unlink(path.c_str());  // what an earlier run left unread is not to be seen
    Descriptor pipe(::mkfifo(path.c_str(), kFileMode) == 0 ? ::open(path.c_str(), O_RDWR | O_CLOEXEC) : -1);
    const Descriptor log(
        ::open((path + ".log").c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, kFileMode));
    if (!pipe.isOpen() || !log.isOpen()) {
        return problem(camera, "cannot make " + path, errno);
    }
    ::fcntl(pipe.get(), F_SETPIPE_SZ, kPipeBytes);  // a smaller one works, with more switching

    ChildSetup setup;
    setup.command = decoderFor(source, board_->state().frameRateMilli);
    setup.output = pipe.get();
    setup.error = log.get();
    setup.signalAtLaunchersEnd = SIGKILL;
    int error = 0;
    auto decoder = ChildProcess::start(setup, error);
    if (!decoder) {
        return problem(camera, "cannot start ffmpeg (install the package of that name)", error);
    }
    sources_.push_back(Source{camera, std::move(pipe), std::move(*decoder)});
    return {};
}

void Sources::watch()
{
    for (auto source = sources_.begin(); source != sources_.end();) {
        if (!source->decoder.status()) {
            ++source;
            continue;
        }
        const size_t number = source->camera + 1;
        std::fprintf(stderr, "vboard: the source of camera %zu has ended, see %s%zu.log\n", number,
                     board_->file("camera").c_str(), number);
        board_->state().cameras[source->camera].sourceLost = 1;
        // The pipe stays open: what is left in it is still shown.
        ended_.push_back(std::move(source->pipe));
        source = sources_.erase(source);
    }
}

}  // namespace cli
