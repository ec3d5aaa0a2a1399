#pragma once

#include <pthread.h>

// A cancelled thread is unwound from the call it blocks in, and that must not happen inside a destructor or a
// noexcept function: the process would end. So a thread's body runs behind a CancelShield, and opens a
// CancelWindow around each blocking call that stop() has to be able to end, and around nothing else:
//
//     void Worker::run()
//     {
//         const CancelShield shield;
//         while (!haltThread) {
//             ssize_t length = -1;
//             {
//                 const CancelWindow window;
//                 length = mq_receive(...);
//             }
//             ...
//         }
//     }
//
// Cancellation stays deferred (the default type): neither class is itself a cancellation point. A request
// that arrived behind the shield is kept, and acts in the blocking call of the next window, before that call
// has done anything. A request that arrives while the call is finishing may drop the call's result: put only
// calls there whose result may be lost at the end.

/// Sets the calling thread's cancellation state for a scope and restores the former one.
template <int state>
class CancelState {
public:
    CancelState() { pthread_setcancelstate(state, &former_); }
    CancelState(const CancelState&) = delete;
    CancelState(CancelState&&) = delete;
    CancelState& operator=(const CancelState&) = delete;
    CancelState& operator=(CancelState&&) = delete;
    ~CancelState() { pthread_setcancelstate(former_, nullptr); }

private:
    int former_ = PTHREAD_CANCEL_ENABLE;
};

/// The thread cannot be cancelled while this stands.
using CancelShield = CancelState<PTHREAD_CANCEL_DISABLE>;

/// The thread can be cancelled while this stands.
using CancelWindow = CancelState<PTHREAD_CANCEL_ENABLE>;
