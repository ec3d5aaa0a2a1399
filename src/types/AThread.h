#pragma once

#include <pthread.h>

#include <string>

#include "types/SharedWord.h"

/// One worker thread: a subclass supplies the body by overriding run(), which polls `haltThread` and returns
/// when it is set.
///
/// Threads:  start(), stop(), isInit() and reap() belong to the one thread that controls the worker;
///           sendHalt() may be called by any thread; run() is the worker itself.
/// Lifetime: the base's destructor neither halts, cancels nor joins. A subclass whose object can die before
///           its thread calls reap() first thing in its destructor: only there are its own members and its
///           run() still in place. A thread is not meant to be started again: `haltThread` is never cleared.
/// Cancel:   stop() cancels a body that has not returned. A body with objects to destroy disables
///           cancellation for itself and opens it around its blocking calls only (types/CancelWindow.h).
/// Errors:   a thread that could not be created leaves isInit() false, silently.
class AThread {
public:
    AThread() = default;
    AThread(const AThread&) = default;
    AThread(AThread&&) = default;
    AThread& operator=(const AThread&) = default;
    AThread& operator=(AThread&&) = default;
    virtual ~AThread() = default;

    virtual void run() {}

    /// Creates the thread. Does nothing when one has been created and not yet stopped.
    void start();

    /// True from a start() that worked until stop(); says nothing about whether the body has returned
    /// meanwhile.
    bool isInit() const { return threadInit; }

    /// Asks the body to return. Does not wait.
    void sendHalt() { haltThread = true; }

    /// Collects the thread if it has finished, cancels it if it has not, and never waits. Prints "Stopping
    /// Thread: " and the thread's name, or nothing when there is no thread. For an orderly end: sendHalt(), a
    /// pause, then stop().
    void stop();

protected:
    /// Waits until the thread is gone, after halting and cancelling it if nobody has. For destructors of
    /// subclasses: when it returns, nothing runs in the object any more. Waits without a limit for a body
    /// that neither polls nor blocks.
    void reap();

    SharedWord<bool> haltThread{false};  ///< any thread sets it, the worker reads it
    bool threadInit = false;
    std::string threadId;  ///< for stop()'s message; a subclass may set it before start()
    pthread_t _thread{};   ///< 0: no thread left to collect

private:
    static void* runEntryFunct(void* object);
};
