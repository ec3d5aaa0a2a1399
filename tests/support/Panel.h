#pragma once

#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "Child.h"
#include "Folder.h"
#include "Pictures.h"
#include "Protocol.h"
#include "Queues.h"
#include "Report.h"

namespace support {

/// Reads what the daemon reports as it comes, as the controlling process on the device does, so that the
/// daemon never finds its queue full.
///
/// Threads:  made, asked and destroyed by one; a thread of its own reads.
/// Lifetime: reads until it goes; the queue may appear later than the watch.
class StatusWatch {
public:
    explicit StatusWatch(const std::string& queueName);
    ~StatusWatch();
    StatusWatch(const StatusWatch&) = delete;
    StatusWatch& operator=(const StatusWatch&) = delete;

    struct Seen {
        control::Status status;
        Clock::time_point when;
        size_t number = 0;  ///< of reports before it
    };
    using Condition = std::function<bool(const control::Status&)>;

    /// The first status that came after `since` and meets the condition; waits for it.
    std::optional<Seen> await(const Condition& condition, Clock::time_point since,
                              Duration limit = kGenerous);
    /// How many start-up announcements came.
    int announcements();

private:
    void read();
    void note(const control::Frame& frame);

    const std::string queueName_;
    std::mutex lock_;
    std::condition_variable news_;
    std::vector<Seen> seen_;
    int announcements_ = 0;
    bool stop_ = false;
    std::thread reader_;
};

/// A panel computer of one test's own: a virtual board in a temporary folder on which the daemon (or what the
/// test gives instead) runs as a child process, with the controlling side of its queues.
///
/// Threads:  the test's.
/// Lifetime: start() as often as wanted, end() in between; what still runs at the end is killed, the queues
///           are removed, the folder goes.
/// Errors:   the results say; output() and the report tell more.
class Panel {
public:
    Panel();
    ~Panel();
    Panel(const Panel&) = delete;
    Panel& operator=(const Panel&) = delete;

    enum class Reader { kWatch, kNone };

    /// Lays out the board's files without running anything of the daemon's, so that they can be changed.
    bool layOut(const Command& options = {});
    /// The same, with a program in the media player's place.
    bool layOutWithPlayer(const std::string& program);
    /// Starts the daemon (or another program) with options of the launcher.
    void start(const Command& options = {}, const Command& programAndArguments = {program("velcamd")},
               Reader reader = Reader::kWatch);
    /// Waits until the daemon reports; false when it ended or did not come up.
    bool awaitUp();
    /// Lets the control loop make so many passes, by the reports that end them.
    bool awaitReports(int count);
    /// Waits until a status from now on says whether the daemon records.
    bool awaitRecording(bool records);
    void interrupt();
    /// Interrupts the daemon and waits for its end: its exit status, nothing when it hangs.
    std::optional<int> end(Duration limit = kGenerous);
    /// Waits for an end that comes by itself.
    std::optional<int> awaitEnd(Duration limit = kGenerous);
    bool running();

    bool request(const control::Packet& packet);
    bool send(const control::Frame& frame);  ///< any bytes
    /// Asks for a state and waits until it is reported.
    std::optional<StatusWatch::Seen> enter(control::MediaState state, const control::Channels& channels = {});
    StatusWatch& watch() { return *watch_; }

    /// Waits until standard output holds the text.
    bool awaitOutput(const std::string& text, Duration limit = kGenerous);
    std::string output() const;  ///< standard output so far
    bool said(const std::string& text) const { return output().find(text) != std::string::npos; }
    std::string errors() const;  ///< standard error so far
    Report report() const;       ///< after the end

    /// What the panel shows now; empty pixels when no picture was made.
    Png snapshot();
    /// Asks for snapshots until one meets the condition.
    bool awaitSnapshot(const std::function<bool(const Png&)>& condition, Duration limit = kGenerous);

    /// A file of the board, by its path on the board.
    std::string file(const std::string& path) const { return board_ + "/root" + path; }
    std::string recording() const { return file("/velmarine/f/camrecord/cam.avi"); }
    std::string queueName(const char* name) const;
    const std::string& board() const { return board_; }

private:
    void removeQueues() const;

    Folder folder_;
    std::string board_;
    std::unique_ptr<Child> launcher_;
    std::unique_ptr<StatusWatch> watch_;
};

}  // namespace support
