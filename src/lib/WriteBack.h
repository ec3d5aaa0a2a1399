#pragma once

#include <sys/types.h>

#include <memory>
#include <string>

#include "types/AThread.h"
#include "types/SharedWord.h"

/// Brings a file that others append to onto its medium, and the folder's names with it, so that a power cut
/// loses only the last moment.
///
/// It goes by the file's name alone: it has a descriptor of its own, shares nothing with the writer and never
/// keeps it waiting. A file that is renamed away (rotated) gets its last bytes saved before the next one is
/// followed; one that no longer grows is let go, so that its medium can be unmounted.
///
/// Bound:    a pause of kPauseMs between two passes. What was written, created or renamed before a pass is on
///           the medium when that pass ends.
/// Threads:  start(), finish() and retire() the main thread; failing() any; run() is the worker, the only
///           thread that waits for the medium.
/// Lifetime: retire() ends it, after one more pass. A medium that does not answer keeps nobody: then thread
///           and object are left to the end of the process.
/// Errors:   failing() until a pass has worked; each pass tries again.
class WriteBack final : public AThread {
public:
    static constexpr int kPauseMs = 1000;
    static constexpr int kFarewellMs = 500;  ///< what the last pass gets of the process's time to end

    /// `folder` ends in "/".
    WriteBack(std::string folder, const std::string& name);
    WriteBack(const WriteBack&) = delete;
    WriteBack(WriteBack&&) = delete;
    WriteBack& operator=(const WriteBack&) = delete;
    WriteBack& operator=(WriteBack&&) = delete;

    /// Waits for a pass that is under way, however long that takes: see retire().
    ~WriteBack() override;

    void run() override;

    /// Asks for the last pass. Does not wait.
    void finish();

    /// Ends the thread and destroys the object, or leaves both behind when the last pass takes too long.
    static void retire(std::unique_ptr<WriteBack> object);

    /// Whether the medium refused something in the last pass.
    bool failing() const { return failing_; }

    /// Saves what is new. Called by run().
    void pass();

private:
    /// Which file a name leads to, and how much is in it.
    struct Place {
        dev_t device = 0;
        ino_t inode = 0;
        off_t bytes = kNothing;
    };
    static constexpr off_t kNothing = -1;

    Place look() const;
    bool follow(const Place& now);
    bool save(const Place& now);
    bool saveNames();
    bool open();
    void close();
    void rest() const;
    bool leave();

    const std::string folder_;
    const std::string path_;
    int wake_;     ///< readable when the pause is to end early
    int fd_ = -1;  ///< of the file in `saved_`, while it grows
    Place saved_;  ///< what was there when it was last saved
    bool namesSaved_ = false;
    SharedWord<bool> failing_{false};
    SharedWord<bool> ended_{false};
};
