#include "types/AThread.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <semaphore.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <memory>
#include <random>
#include <stdexcept>
#include <string>

#include "Stdout.h"
#include "Wait.h"
#include "types/CancelWindow.h"

namespace {

/// Sets a flag when it goes, also when a cancelled thread is unwound.
class Trace {
public:
    explicit Trace(std::atomic<bool>& gone) : gone_(gone) {}
    ~Trace() { gone_ = true; }
    Trace(const Trace&) = delete;
    Trace& operator=(const Trace&) = delete;

private:
    std::atomic<bool>& gone_;
};

class Worker : public AThread {
public:
    using AThread::reap;
    using AThread::threadId;

    ~Worker() override { reap(); }

    bool collected() const { return _thread == pthread_t{}; }
    bool halted() const { return haltThread; }

    /// Whether the body's thread has left the process, so that a join cannot have to wait.
    bool leftProcess() const
    {
        return id != 0 && ::access(("/proc/self/task/" + std::to_string(id)).c_str(), F_OK) != 0;
    }

    std::atomic<int> entered{0};
    std::atomic<long> id{0};
    std::atomic<bool> unwound{false};

protected:
    void enter()
    {
        id = ::syscall(SYS_gettid);
        ++entered;
    }
};

class Polling : public Worker {
public:
    ~Polling() override { reap(); }

    void run() override
    {
        enter();
        while (!haltThread) {
            sched_yield();
        }
    }
};

class Blocking : public Worker {
public:
    ~Blocking() override { reap(); }

    void run() override
    {
        const Trace trace(unwound);
        enter();
        for (;;) {
            ::pause();
        }
    }
};

/// Works behind a shield, and blocks in a window once the test lets it.
class Shielded : public Worker {
public:
    ~Shielded() override
    {
        sem_post(&go);
        reap();
        sem_destroy(&go);
    }

    void run() override
    {
        const Trace trace(unwound);
        const CancelShield shield;
        enter();
        while (sem_wait(&go) != 0) {
        }
        ::close(::open("/dev/null", O_RDONLY | O_CLOEXEC));  // would end an unshielded body
        workDone = true;
        {
            const CancelWindow window;
            ::pause();
        }
        passedWindow = true;
    }

    sem_t go = [] {
        sem_t made;
        sem_init(&made, 0, 0);
        return made;
    }();
    std::atomic<bool> workDone{false};
    std::atomic<bool> passedWindow{false};
};

TEST(AThread, StopOfAThreadThatNeverRanPrintsOrCancels)
{
    Polling worker;
    const unit::Stdout output;
    worker.stop();
    EXPECT_EQ(output.text(), "");
    EXPECT_FALSE(worker.isInit());
}

TEST(AThread, SecondStartMakesASecondThread)
{
    Blocking worker;
    worker.start();
    ASSERT_TRUE(support::waitUntil([&] { return worker.entered == 1; }));
    const long first = worker.id;
    worker.start();
    EXPECT_TRUE(worker.isInit());
    worker.stop();
    worker.reap();
    EXPECT_EQ(worker.entered, 1);
    EXPECT_EQ(worker.id, first);
}

TEST(AThread, HaltDoesNotReachTheBody)
{
    Polling worker;
    worker.start();
    ASSERT_TRUE(support::waitUntil([&] { return worker.entered == 1; }));
    EXPECT_FALSE(worker.halted());
    worker.sendHalt();
    EXPECT_TRUE(support::waitUntil([&] { return worker.leftProcess(); }));
    EXPECT_TRUE(worker.isInit()) << "only stop() ends that";
}

TEST(AThread, StopLeavesAFinishedThreadUncollected)
{
    Polling worker;
    worker.threadId = "SystemManager";
    worker.start();
    worker.sendHalt();
    ASSERT_TRUE(support::waitUntil([&] { return worker.leftProcess(); }));
    const unit::Stdout output;
    worker.stop();
    EXPECT_EQ(output.text(), "Stopping Thread: SystemManager\n");
    EXPECT_TRUE(worker.collected());
    EXPECT_FALSE(worker.isInit());
}

TEST(AThread, StopDoesNotCancelABlockedBody)
{
    Blocking worker;
    worker.start();
    ASSERT_TRUE(support::waitUntil([&] { return worker.entered == 1; }));
    {
        const unit::Stdout output;
        worker.stop();
        EXPECT_EQ(output.text(), "Stopping Thread: \n") << "an unnamed thread";
    }
    EXPECT_FALSE(worker.isInit());
    EXPECT_FALSE(worker.halted()) << "stop() cancels, it does not halt";
    EXPECT_TRUE(support::waitUntil([&] { return worker.unwound.load(); }));
}

TEST(AThread, StopWaitsForABodyThatCannotBeCancelledYet)
{
    Shielded worker;
    worker.start();
    ASSERT_TRUE(support::waitUntil([&] { return worker.entered == 1; }));
    worker.stop();  // returns although the body waits for the test
    EXPECT_FALSE(worker.isInit());
    EXPECT_FALSE(worker.unwound);
}

TEST(CancelWindow, ACancelActsBehindTheShieldOrGetsLost)
{
    Shielded worker;
    worker.start();
    ASSERT_TRUE(support::waitUntil([&] { return worker.entered == 1; }));
    worker.stop();
    sem_post(&worker.go);
    worker.reap();
    EXPECT_TRUE(worker.workDone);
    EXPECT_TRUE(worker.unwound);
    EXPECT_FALSE(worker.passedWindow);
}

TEST(CancelWindow, LeavesAnotherStateThanItFound)
{
    int state = -1;
    {
        const CancelShield shield;
        {
            const CancelWindow window;
            pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, &state);
            EXPECT_EQ(state, PTHREAD_CANCEL_ENABLE);
        }
        pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &state);
        EXPECT_EQ(state, PTHREAD_CANCEL_DISABLE);
    }
    pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, &state);
    EXPECT_EQ(state, PTHREAD_CANCEL_ENABLE);
}

TEST(AThread, AThreadOutlivesAnObjectThatReaps)
{
    auto polling = std::make_unique<Polling>();
    polling->start();
    polling.reset();  // never returns if the body is neither halted nor cancelled

    std::atomic<bool> unwound{false};
    class Named : public Worker {
    public:
        explicit Named(std::atomic<bool>& gone) : gone_(gone) {}
        ~Named() override { reap(); }
        void run() override
        {
            const Trace trace(gone_);
            enter();
            ::pause();
        }

    private:
        std::atomic<bool>& gone_;
    };
    auto blocking = std::make_unique<Named>(unwound);
    blocking->start();
    ASSERT_TRUE(support::waitUntil([&] { return blocking->entered == 1; }));
    blocking->stop();
    blocking.reset();
    EXPECT_TRUE(unwound) << "cancelled before, and not waited for";
}

/// Opens a window in each round of its work, as the daemon's bodies do.
class Working : public Worker {
public:
    ~Working() override { reap(); }

    void run() override
    {
        const Trace trace(unwound);
        const CancelShield shield;
        enter();
        while (!haltThread) {
            const std::string work(40, 'w');  // more than a string holds without memory of its own
            const CancelWindow window;
            ::usleep(50);
        }
    }
};

bool isLong()
{
    const char* value = std::getenv("VELCAM_LONG");  // NOLINT(concurrency-mt-unsafe): nobody sets it
    return value != nullptr && std::string(value) == "1";
}

TEST(AThread, AnOrderOfHaltStopAndEndHangsOrLeavesTheThread)
{
    const int cycles = isLong() ? 20'000 : 1'000;
    constexpr unsigned kLongest = 150;  // us: bodies are met before, in and after their work
    std::minstd_rand random(3);
    const unit::Stdout output;
    for (int cycle = 0; cycle < cycles; ++cycle) {
        std::unique_ptr<Worker> worker;
        switch (cycle % 3) {
            case 0:
                worker = std::make_unique<Polling>();
                break;
            case 1:
                worker = std::make_unique<Blocking>();
                break;
            default:
                worker = std::make_unique<Working>();
        }
        worker->start();
        ASSERT_TRUE(worker->isInit()) << "cycle " << cycle;
        for (unsigned step = random() % 4; step > 0; --step) {
            ::usleep(static_cast<useconds_t>(random() % kLongest));
            random() % 2 == 0 ? worker->sendHalt() : worker->stop();
        }
        // A cancel cannot end a body that only polls.
        worker->sendHalt();
        if (random() % 2 == 0) {
            worker->reap();
            EXPECT_TRUE(worker->collected());
        }
    }
    std::fprintf(stderr, "%d threads ended\n", cycles);  // standard output is being captured
}

/// Throws behind its shield and handles that, while the test cancels it at one of three instants.
class Throwing : public Worker {
public:
    enum class Instant { kBeforeTheThrow, kWhileUnwinding, kInTheHandler };

    explicit Throwing(Instant instant) : instant_(instant) {}
    ~Throwing() override { reap(); }

    void run() override
    {
        const Trace trace(unwound);
        const CancelShield shield;
        enter();
        try {
            const Unwinding unwinding(*this);
            meet(Instant::kBeforeTheThrow);
            throw std::length_error("basic_string::append");
        } catch (const std::length_error&) {
            meet(Instant::kInTheHandler);
            handled = true;
        }
        const CancelWindow window;
        ::pause();
    }

    std::atomic<bool> waiting{false};
    std::atomic<bool> cancelled{false};
    std::atomic<bool> handled{false};

private:
    struct Unwinding {
        explicit Unwinding(Throwing& body) : body_(body) {}
        ~Unwinding() { body_.meet(Instant::kWhileUnwinding); }
        Unwinding(const Unwinding&) = delete;
        Unwinding& operator=(const Unwinding&) = delete;
        Throwing& body_;
    };

    void meet(Instant instant)
    {
        if (instant != instant_) {
            return;
        }
        waiting = true;
        while (!cancelled) {
            ::usleep(50);  // where an unshielded body would be cancelled
        }
    }

    Instant instant_;
};

TEST(CancelWindow, AnExceptionAndACancelTogetherEndTheProcessOrLoseEither)
{
    for (const auto instant : {Throwing::Instant::kBeforeTheThrow, Throwing::Instant::kWhileUnwinding,
                               Throwing::Instant::kInTheHandler}) {
        Throwing worker(instant);
        worker.start();
        ASSERT_TRUE(support::waitUntil([&] { return worker.waiting.load(); }));
        worker.stop();
        worker.cancelled = true;
        worker.reap();
        EXPECT_TRUE(worker.handled);
        EXPECT_TRUE(worker.unwound);
    }
}

TEST(AThread, AnExceptionThatNobodyHandlesLeavesADaemonWithoutItsThread)
{
    class Failing : public Worker {
    public:
        ~Failing() override { reap(); }
        void run() override { throw std::length_error("basic_string::append"); }
    };
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    EXPECT_DEATH(
        {
            Failing worker;
            worker.start();
            ::pause();
        },
        "basic_string::append");
}

}  // namespace
