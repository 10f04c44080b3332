#include <csignal>
#include <stdexcept>

#include "harness/test.h"
#include "util/qzevent.h"
#include "util/qzmutex.h"
#include "util/qzsemaphore.h"
#include "util/qzthread.h"
#include "util/qzwait.h"

using namespace Quenvale::Interceptor::SDK;
using namespace Quenvale::Interceptor::SDK::Util;

namespace {

constexpr unsigned long kGenerous = 20000;  // ms

class Body : public Runnable {
public:
    explicit Body(std::function<void()> work) : itsWork(std::move(work)) {}
    void run() override { itsWork(); }

private:
    std::function<void()> itsWork;
};

bool isFree(const qzmutex& lock) {
    bool result = false;
    harness::onThreads([&]() QZ_NO_THREAD_SAFETY_ANALYSIS {
        result = lock.trylock();
        if (result) lock.unlock();
    });
    return result;
}

}  // namespace

TEST(QzMutex, EveryLockOwesOneUnlockHoweverAGuardEnds) {
    qzmutex lock;
    [&]() QZ_NO_THREAD_SAFETY_ANALYSIS {
        MutexGuard outer(lock);
        EXPECT_TRUE(lock.trylock());
        lock.unlock();
        MutexGuard early(lock);
        early.unlock();
        EXPECT_FALSE(isFree(lock));
        outer.unlock();
        EXPECT_TRUE(isFree(lock));
        EXPECT_TRUE(lock.lock());
    }();
    EXPECT_FALSE(isFree(lock)) << "a guard that was unlocked early must not unlock again";
    [&]() QZ_NO_THREAD_SAFETY_ANALYSIS { lock.unlock(); }();
}

TEST(QzLatch, OnlyOneThreadIsInsideAndNobodySleepsForEver) {
    constexpr int kThreads = 4;
    constexpr int kEach = 20000;
    qzlatch latch;
    int inside = 0;
    int passed = 0;
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t)
        threads.emplace_back([&] {
            for (int i = 0; i < kEach; ++i) {
                const LatchGuard guard(latch);
                EXPECT_EQ(++inside, 1);
                // Some hold it for longer than others look.
                if (i % 64 == 0) std::this_thread::yield();
                --inside;
                ++passed;
            }
        });
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(passed, kThreads * kEach);
}

TEST(QzWait, TheDeadlineDoesNotCarryIntoTheSeconds) {
    const struct {
        const char* why;
        timeval now;
        unsigned long timeout;
        timespec deadline;
    } rows[] = {
        {"last before a carry", {100, 998999}, 1, {100, 999999000}},
        {"the carry is lost", {100, 999999}, 2, {100, 1999000}},
        {"longest limited wait", {100, 0}, ~0UL - 1, {18446744073709651, 614000000}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        const timespec deadline = waitDeadline(row.now, row.timeout);
        EXPECT_EQ(deadline.tv_sec, row.deadline.tv_sec);
        EXPECT_EQ(deadline.tv_nsec, row.deadline.tv_nsec);
    }
}

TEST(QzEvent, OnlyAnAutoResetEventIsUsedUpByAWait) {
    for (const bool manual : {false, true}) {
        SCOPED_TRACE(manual);
        qzevent event(manual, true);
        EXPECT_EQ(event.wait(0), 0U);
        EXPECT_EQ(event.wait(0), manual ? 0U : 258U);
        event.signal();
        event.nonsignal();
        EXPECT_EQ(event.wait(1), 258U);
        event.signal();
        EXPECT_EQ(event.wait(kWaitForever), 0U);
    }
}

// Each signal falls anywhere in the other side's wait; one that is missed ends the game for good.
TEST(QzEvent, NoSignalIsMissedByAWaitWithoutALimit) {
    qzevent there(false, false);
    qzevent back(false, false);
    const auto play = [](qzevent& first, qzevent& second) {
        for (int i = 0; i < 5000; ++i) {
            first.wait(kWaitForever);
            second.signal();
        }
    };
    there.signal();
    harness::onThreads([&] { play(there, back); }, [&] { play(back, there); });
}

TEST(QzSemaphoreDeathTest, ReleaseFillsTheRoomThereIsAndMisuseAborts) {
    const struct {
        const char* why;
        std::size_t initial, count;
        bool result;
        int taken;
    } rows[] = {
        {"nothing to add", 0, 0, false, 0},
        {"one", 0, 1, true, 1},
        {"five into a room of two", 1, 5, true, 3},
        {"the largest count does not wrap", 2, ~std::size_t{0}, true, 3},
        {"no room", 3, 1, false, 3},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        qzsemaphore semaphore(row.initial, 3);
        EXPECT_EQ(semaphore.release(row.count), row.result);
        int taken = 0;
        while (semaphore.wait(0) == 0) ++taken;
        EXPECT_EQ(taken, row.taken);
        EXPECT_EQ(semaphore.wait(1), 258U);
    }
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto aborted = testing::KilledBySignal(SIGABRT);
    EXPECT_EXIT(qzsemaphore(0, 0), aborted, "util/qzmutex.*max_count != 0");
    EXPECT_EXIT(qzsemaphore(3, 2), aborted, "util/qzmutex.*initial_count <= max_count");
}

TEST(QzThread, TheThreadTakesNoSignalButFaultsAndCarriesItsName) {
    sigset_t before, inside, after;
    char name[16] = "";
    qzevent started(true, false);
    Body body([&] {
        pthread_sigmask(SIG_SETMASK, nullptr, &inside);
        started.wait(kWaitForever);
        pthread_getname_np(pthread_self(), name, sizeof name);
    });
    pthread_sigmask(SIG_SETMASK, nullptr, &before);
    qzthread thread(&body, "a name of more than fifteen");
    ASSERT_TRUE(thread.start());
    pthread_sigmask(SIG_SETMASK, nullptr, &after);
    started.signal();
    thread.join();

    EXPECT_STREQ(name, "a name of more ");
    for (const int signal : {SIGSEGV, SIGBUS, SIGFPE, SIGILL})
        EXPECT_EQ(sigismember(&inside, signal), 0) << signal;
    for (const int signal : {SIGTERM, SIGPROF, SIGPIPE, SIGCHLD, SIGABRT, SIGRTMAX})
        EXPECT_EQ(sigismember(&inside, signal), 1) << signal;
    EXPECT_EQ(sigismember(&after, SIGTERM), sigismember(&before, SIGTERM)) << "the host's own mask";
}

TEST(QzThread, StartIsRefusedOnItsOwnThreadOnly) {
    qzthread* thread = nullptr;
    bool nested = true;
    Body body([&] { nested = thread->start(); });
    qzthread held(&body);
    thread = &held;
    for (int i = 0; i < 2; ++i) {
        ASSERT_TRUE(held.start());
        held.join();
        held.join();  // There is nothing left to wait for.
        EXPECT_FALSE(nested);
    }
}

TEST(QzThread, TheObjectMayGoBeforeItsThread) {
    qzevent goOn(true, false);
    qzevent over(true, false);
    Body body([&] {
        goOn.wait(kWaitForever);
        over.signal();
    });
    {
        qzthread thread(&body);
        ASSERT_TRUE(thread.start());
        thread.detach();
    }
    goOn.signal();
    EXPECT_EQ(over.wait(kGenerous), 0U);
    // The events are on this stack: the thread must be out of signal() before they go.
    over.nonsignal();
}

TEST(QzThread, AThreadThatTheSystemRefusesIsAFalse) {
    pthread_attr_t usual;
    pthread_attr_t endless;
    ASSERT_EQ(pthread_getattr_default_np(&usual), 0);
    pthread_attr_init(&endless);
    pthread_attr_setstacksize(&endless, std::size_t{1} << 47);
    ASSERT_EQ(pthread_setattr_default_np(&endless), 0);
    Body body([] {});
    qzthread thread(&body);
    EXPECT_FALSE(thread.start());
    thread.join();
    pthread_setattr_default_np(&usual);
    EXPECT_TRUE(thread.start());
    thread.join();
}

TEST(QzThreadDeathTest, AnExceptionEndsTheThreadAndNothingElse) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const char* const rows[][2] = {{"1", "working thread aborted!\n"}, {"0", "^$"}};
    for (const auto& [level, text] : rows)
        EXPECT_EXIT(
            {
                setenv("QUENVALE_LOG_LEVEL", level, 1);
                Body body([] { throw std::runtime_error("out of run()"); });
                qzthread thread(&body);
                thread.start();
                thread.join();
                _exit(7);
            },
            testing::ExitedWithCode(7), text);
}
