#include "types/AThread.h"

#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <functional>
#include <memory>
#include <random>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "Stdout.h"
#include "Wait.h"
#include "types/CancelWindow.h"

namespace {

using support::waitUntil;

/// Does something when its scope is left, also when a cancelled thread is unwound.
struct AtEnd {
    explicit AtEnd(std::function<void()> what) : what_(std::move(what)) {}
    ~AtEnd() { what_(); }
    AtEnd(const AtEnd&) = delete;
    AtEnd& operator=(const AtEnd&) = delete;
    const std::function<void()> what_;
};

/// A thread with a body of the test's, which notes its coming and its going.
class Worker : public AThread {
public:
    using AThread::reap;
    using AThread::threadId;
    using Body = std::function<void(const Worker&)>;

    explicit Worker(Body body) : body_(std::move(body)) {}
    ~Worker() override { reap(); }

    void run() override
    {
        const AtEnd trace([this] { *unwound = true; });
        id = ::syscall(SYS_gettid);
        ++entered;
        body_(*this);
    }

    bool startAndAwait()
    {
        start();
        return waitUntil([&] { return entered == 1; });
    }
    bool collected() const { return _thread == pthread_t{}; }
    bool halted() const { return haltThread; }

    /// Whether the body's thread has left the process, so that a join cannot have to wait.
    bool leftProcess() const
    {
        return id != 0 && ::access(("/proc/self/task/" + std::to_string(id)).c_str(), F_OK) != 0;
    }

    std::atomic<int> entered{0};
    std::atomic<long> id{0};
    /// Outlives the worker.
    const std::shared_ptr<std::atomic<bool>> unwound = std::make_shared<std::atomic<bool>>(false);

private:
    const Body body_;
};

void poll(const Worker& worker)
{
    while (!worker.halted()) {
        sched_yield();
    }
}

void block(const Worker& /*worker*/)
{
    for (;;) {
        ::pause();
    }
}

/// Opens a window in each round of its work, as the daemon's bodies do.
void work(const Worker& worker)
{
    const CancelShield shield;
    while (!worker.halted()) {
        const std::string text(40, 'w');  // more than a string holds without memory of its own
        const CancelWindow window;
        ::usleep(50);
    }
}

TEST(AThread, HaltDoesNotReachTheBodyOrStopLeavesAFinishedThreadUncollected)
{
    Worker worker(poll);
    worker.threadId = "SystemManager";
    const unit::Stdout output;
    worker.stop();
    EXPECT_EQ(output.text(), "") << "nothing runs yet";
    ASSERT_TRUE(worker.startAndAwait());
    EXPECT_FALSE(worker.halted());
    worker.sendHalt();
    ASSERT_TRUE(waitUntil([&] { return worker.leftProcess(); }));
    EXPECT_TRUE(worker.isInit()) << "only stop() ends that";
    worker.stop();
    EXPECT_EQ(output.text(), "Stopping Thread: SystemManager\n");
    EXPECT_TRUE(worker.collected());
    EXPECT_FALSE(worker.isInit());
}

TEST(AThread, ASecondStartMakesAThreadOrStopLeavesABlockedOne)
{
    Worker worker(block);
    ASSERT_TRUE(worker.startAndAwait());
    const long first = worker.id;
    worker.start();
    EXPECT_TRUE(worker.isInit());
    {
        const unit::Stdout output;
        worker.stop();
        EXPECT_EQ(output.text(), "Stopping Thread: \n") << "an unnamed thread";
    }
    EXPECT_FALSE(worker.isInit());
    EXPECT_FALSE(worker.halted()) << "stop() cancels, it does not halt";
    EXPECT_TRUE(waitUntil([&] { return worker.unwound->load(); }));
    EXPECT_EQ(worker.entered, 1);
    EXPECT_EQ(worker.id, first);
}

TEST(CancelWindow, ACancelActsBehindTheShieldOrIsWaitedForOrGetsLost)
{
    std::atomic<bool> go{false};
    std::atomic<bool> workDone{false};
    std::atomic<bool> passedWindow{false};
    Worker worker([&](const Worker& /*worker*/) {
        const CancelShield shield;
        while (!go) {
            ::usleep(50);  // where an unshielded body would be cancelled
        }
        workDone = true;
        {
            const CancelWindow window;
            ::pause();
        }
        passedWindow = true;
    });
    EXPECT_TRUE(worker.startAndAwait());
    worker.stop();  // returns although the body waits for the test
    EXPECT_FALSE(worker.isInit());
    EXPECT_FALSE(*worker.unwound);
    go = true;
    worker.reap();
    EXPECT_TRUE(workDone);
    EXPECT_TRUE(*worker.unwound);
    EXPECT_FALSE(passedWindow);
}

TEST(CancelWindow, LeavesAnotherStateThanItFound)
{
    std::vector<int> states(3, -1);
    {
        const CancelShield shield;
        {
            const CancelWindow window;
            pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, &states[0]);
        }
        pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &states[1]);
    }
    pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, &states[2]);
    EXPECT_EQ(states,
              (std::vector<int>{PTHREAD_CANCEL_ENABLE, PTHREAD_CANCEL_DISABLE, PTHREAD_CANCEL_ENABLE}));
}

TEST(AThread, AThreadOutlivesAnObjectThatReaps)
{
    auto polling = std::make_unique<Worker>(poll);
    polling->start();
    polling.reset();  // never returns if the body is neither halted nor cancelled

    auto blocking = std::make_unique<Worker>(block);
    ASSERT_TRUE(blocking->startAndAwait());
    const auto unwound = blocking->unwound;
    blocking->stop();
    blocking.reset();
    EXPECT_TRUE(*unwound) << "cancelled before, and not waited for";
}

TEST(AThread, AnOrderOfHaltStopAndEndHangsOrLeavesTheThread)
{
    const int cycles = support::isLong() ? 20'000 : 1'000;
    constexpr unsigned kLongest = 150;  // us: bodies are met before, in and after their work
    const Worker::Body bodies[] = {poll, block, work};
    std::minstd_rand random(3);
    const unit::Stdout output;
    for (int cycle = 0; cycle < cycles; ++cycle) {
        Worker worker(bodies[cycle % 3]);
        worker.start();
        ASSERT_TRUE(worker.isInit()) << "cycle " << cycle;
        for (unsigned step = random() % 4; step > 0; --step) {
            ::usleep(static_cast<useconds_t>(random() % kLongest));
            random() % 2 == 0 ? worker.sendHalt() : worker.stop();
        }
        // A cancel cannot end a body that only polls.
        worker.sendHalt();
        if (random() % 2 == 0) {
            worker.reap();
            EXPECT_TRUE(worker.collected());
        }
    }
    std::fprintf(stderr, "%d threads ended\n", cycles);  // standard output is being captured
}

TEST(CancelWindow, AnExceptionAndACancelTogetherEndTheProcessOrLoseEither)
{
    enum Instant { kBeforeTheThrow, kWhileUnwinding, kInTheHandler };
    for (const Instant cancelledAt : {kBeforeTheThrow, kWhileUnwinding, kInTheHandler}) {
        std::atomic<bool> waiting{false};
        std::atomic<bool> cancelled{false};
        std::atomic<bool> handled{false};
        const auto meet = [&](Instant instant) {
            waiting = waiting || instant == cancelledAt;
            while (instant == cancelledAt && !cancelled) {
                ::usleep(50);  // where an unshielded body would be cancelled
            }
        };
        Worker worker([&](const Worker& /*worker*/) {
            const CancelShield shield;
            try {
                const AtEnd unwinding([&] { meet(kWhileUnwinding); });
                meet(kBeforeTheThrow);
                throw std::length_error("basic_string::append");
            } catch (const std::length_error&) {
                meet(kInTheHandler);
                handled = true;
            }
            const CancelWindow window;
            ::pause();
        });
        worker.start();
        EXPECT_TRUE(waitUntil([&] { return waiting.load(); }));
        worker.stop();
        cancelled = true;
        worker.reap();
        EXPECT_TRUE(handled);
        EXPECT_TRUE(*worker.unwound);
    }
}

TEST(AThread, AnExceptionThatNobodyHandlesLeavesADaemonWithoutItsThread)
{
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    EXPECT_DEATH(
        {
            Worker worker([](const Worker& /*worker*/) { throw std::length_error("basic_string::append"); });
            worker.start();
            ::pause();
        },
        "basic_string::append");
}

}  // namespace
