#pragma once

#include <sys/types.h>

#include <string>

/// The player of stored videos: another program's process, which draws into the overlay and plays the sound.
///
/// Threads:  one at a time; start() may be called while other threads run.
/// Lifetime: a player that still runs when its owner goes is left to itself, see end().
/// Errors:   a player that cannot play, or does not exist, is one that ends at once.
class PlayerProcess {
public:
    PlayerProcess() = default;
    PlayerProcess(const PlayerProcess&) = delete;
    PlayerProcess(PlayerProcess&&) = delete;
    PlayerProcess& operator=(const PlayerProcess&) = delete;
    PlayerProcess& operator=(PlayerProcess&&) = delete;
    ~PlayerProcess() = default;

    /// Whether there is a player, be it one that has ended and was not collected yet.
    bool isThere() const { return videoplay_pid >= 1; }

    /// Starts a player on a file; to be called when there is none. False when no process could be made.
    bool start(const std::string& file);

    /// Looks after a player that has ended; true once for each. Does not wait.
    bool collect();

    /// Asks the player, if there is one, to end; collect() sees it happen.
    void interrupt() const;

    /// Asks it to end and waits a moment for that; one that takes longer is left to itself.
    void end();

private:
    pid_t videoplay_pid = -1;  ///< -1: no player
};
