#include "types/AThread.h"

#include <cstdio>
#include <ctime>

void AThread::start()
{
    if (threadInit) {
        return;
    }
    pthread_t created = {};
    if (pthread_create(&created, nullptr, runEntryFunct, this) == 0) {
        _thread = created;
        threadInit = true;
    }
}

void AThread::stop()
{
    if (!threadInit) {
        return;
    }
    std::printf("Stopping Thread: %s\n", threadId.c_str());

    // An absolute time that is always past: collects a thread that has finished and never waits for one that
    // has not.
    const timespec deadline = {2, 0};
    if (pthread_timedjoin_np(_thread, nullptr, &deadline) == 0) {
        _thread = {};  // the id is void from here on, a cancel on it would be undefined
    } else {
        pthread_cancel(_thread);
    }
    threadInit = false;
}

void AThread::reap()
{
    if (_thread == pthread_t{}) {
        return;
    }
    if (threadInit) {
        sendHalt();
        pthread_cancel(_thread);
        threadInit = false;
    }
    pthread_join(_thread, nullptr);
    _thread = {};
}

// Leaves cancellation as it is by default, so that stop() also ends a plain body that blocks.
void* AThread::runEntryFunct(void* object)
{
    static_cast<AThread*>(object)->run();
    return nullptr;
}
