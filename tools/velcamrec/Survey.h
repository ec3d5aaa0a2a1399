#pragma once

#include <functional>
#include <string>

#include "Console.h"
#include "RecordingReader.h"

namespace recording {

/// Something in a recording that velcamd does not write.
struct Finding {
    off_t offset = 0;  ///< of the first byte it concerns
    off_t length = 0;
    std::string what;
    std::string loss;  ///< what a player loses there
};

/// What a recording holds, as far as it was walked.
struct Summary {
    off_t bytes = 0;
    Format format = usualFormat();
    bool formatKnown = false;  ///< by its header
    bool headerSound = true;
    uint64_t frames = 0;
    uint64_t skippedFrames = 0;  ///< by the encoder, so that there is no picture in their place
    uint64_t keyFrames = 0;
    uint64_t sessions = 0;  ///< starts of the writer
    uint64_t findings = 0;
    uint64_t badBytes = 0;      ///< bytes that belong to no whole frame and no header
    bool beingWritten = false;  ///< its last chunk was not complete, and the file grows

    double seconds(uint64_t frameCount) const
    {
        return static_cast<double>(frameCount) / format.framesPerSecond;
    }
    double seconds() const { return seconds(frames + skippedFrames); }
};

/// Walks a recording, hands its events on, and keeps account of them.
///
/// Threads:  one.
/// Lifetime: reader and progress outlive it. The sink is called with a finding when all is known about it: at
///           the next key frame, at the next finding, or at the end.
class Survey {
public:
    using Sink = std::function<void(const Finding&)>;

    Survey(RecordingReader& reader, Progress& progress, Sink sink);

    /// The next event; nothing at the end or when interrupted.
    std::optional<Event> next();
    /// To the end.
    void walk();

    const Summary& summary() const { return summary_; }

private:
    void account(const HeaderEvent& event);
    void account(const Chunk& chunk);
    void account(const Damage& damage);
    void accountSkipped(const Chunk& chunk);
    void judgeSession(const Chunk& chunk);
    void note(Finding finding, bool losesFrame);
    void settle(bool atEnd);

    RecordingReader& reader_;
    Progress& progress_;
    Sink sink_;
    Summary summary_;
    std::optional<Finding> open_;  // its loss is not known yet
    uint64_t remnants_ = 0;        // frames since the open finding
    bool counting_ = false;        // they build on a lost one
    bool opening_ = false;     // a session whose first frame was skipped: the next one is to be a key frame
    bool swallowing_ = false;  // the next frame is lost too, to a player that takes a torn chunk for whole
};

}  // namespace recording
