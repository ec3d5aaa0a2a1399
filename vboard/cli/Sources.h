#pragma once

#include <list>
#include <string>
#include <vector>

#include "board/Board.h"
#include "cli/BoardFiles.h"
#include "cli/ChildProcess.h"
#include "cli/CommandLine.h"

namespace cli {

/// The decoders behind cameras that show files or V4L2 devices: one ffmpeg each, writing raw NV12 of 720x480
/// into the pipe "camera<N>" of the board's folder. What it complains of is in "camera<N>.log" beside it. A
/// clip needs no decoder: the board finds it by the link "camera<N>.nv12".
///
/// Lifetime: the decoders end with this. The pipes are kept open for reading and writing, so that a decoder
///           waits, and does not end, while the program restarts.
/// Threads:  one.
class Sources {
public:
    Sources() = default;

    /// What cannot be decoded for certain, before a board is made for it; empty when nothing.
    static std::string check(const BoardOptions& options);

    /// Starts what the cameras need; what went wrong, empty when nothing.
    std::string start(const BoardOptions& options, board::Board& board);

    /// Looks which decoders have ended; their cameras deliver no more, and that is said once.
    void watch();

private:
    struct Source {
        size_t camera;  ///< index
        Descriptor pipe;
        ChildProcess decoder;
    };

    std::string startOne(size_t camera, const CameraSource& source);
    std::string linkClip(size_t camera, const CameraSource& source) const;

    board::Board* board_ = nullptr;
    std::list<Source> sources_;
    std::vector<Descriptor> ended_;  // pipes without a decoder
};

}  // namespace cli
