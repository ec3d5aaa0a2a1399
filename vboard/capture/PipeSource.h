#pragma once

#include "capture/PictureSource.h"

namespace board {

/// Pictures that another process writes, raw, into the pipe "camera<N>" (1 to 4) of the board's folder.
///
/// The pipe is opened at the first picture. The launcher keeps a writing end open and says in
/// Camera::sourceLost when the process that fills it has ended; a wait for a picture notices that within
/// 100 ms. When frames were dropped, the pictures for them are left out, so that a film keeps its pace; what
/// is late is caught up with at two pictures a frame.
///
/// Threads: one at a time for each source. Two sources of one camera in a process take whole pictures in
///          turn.
class PipeSource : public PictureSource {
public:
    PipeSource(const Board& board, uint32_t camera);
    ~PipeSource() override;
    PipeSource(const PipeSource&) = delete;
    PipeSource& operator=(const PipeSource&) = delete;

    bool draw(uint64_t frameNumber, uint8_t* nv12) override;

private:
    bool ensureOpen();
    bool catchUp(uint64_t frameNumber, uint8_t* scratch);
    bool readPicture(uint8_t* nv12);
    /// Waits until bytes can be read; false when none will come.
    bool waitForBytes() const;

    const Board& board_;
    const uint32_t camera_;
    int pipe_ = -1;
    uint64_t nextFrame_ = 0;  // the number that follows the last one drawn, 0 before the first
    uint64_t behind_ = 0;     // pictures that are still to be left out
};

}  // namespace board
