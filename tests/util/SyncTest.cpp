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

struct Body : Runnable, std::function<void()> {
    using function::function;
    void run() override { (*this)(); }
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
    constexpr int kEach = 20000;
    qzlatch latch;
    int inside = 0;
    int passed = 0;
    const auto pass = [&] {
        for (int i = 0; i < kEach; ++i) {
            const LatchGuard guard(latch);
            EXPECT_EQ(++inside, 1);
            // Some hold it for longer than others look.
            if (i % 64 == 0) std::this_thread::yield();
            --inside;
            ++passed;
        }
    };
    harness::onThreads(pass, pass, pass, pass);
    EXPECT_EQ(passed, 4 * kEach);
}

TEST(QzWait, TheDeadlineDoesNotCarryIntoTheSeconds) {
    const auto deadline = [](timeval now, unsigned long timeout) {
        const timespec time = waitDeadline(now, timeout);
        return std::pair(time.tv_sec, time.tv_nsec);
    };
    EXPECT_EQ(deadline({100, 998999}, 1), std::pair(100L, 999999000L)) << "last before a carry";
    EXPECT_EQ(deadline({100, 999999}, 2), std::pair(100L, 1999000L)) << "the carry is lost";
    EXPECT_EQ(deadline({100, 0}, kWaitForever - 1), std::pair(18446744073709651L, 614000000L));
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
    qzevent there(false, true), back(false, false);
    const auto play = [](qzevent& first, qzevent& second) {
        for (int i = 0; i < 5000; ++i) {
            first.wait(kWaitForever);
            second.signal();
        }
    };
    harness::onThreads([&] { play(there, back); }, [&] { play(back, there); });
}

TEST(QzSemaphoreDeathTest, ReleaseFillsTheRoomThereIsAndMisuseAborts) {
    const std::size_t rows[][4] = {
        {0, 0, false, 0}, {0, 1, true, 1}, {1, 5, true, 3}, {2, ~0UL, true, 3}, {3, 1, false, 3}};
    for (const auto& [initial, count, result, taken] : rows) {
        SCOPED_TRACE(testing::Message() << count << " into a room of " << 3 - initial);
        qzsemaphore semaphore(initial, 3);
        EXPECT_EQ(semaphore.release(count), result != 0);
        for (std::size_t i = 0; i < taken; ++i) EXPECT_EQ(semaphore.wait(0), 0U);
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

TEST(QzThread, StartIsRefusedOnItsOwnThreadAndByTheSystem) {
    qzthread* own = nullptr;
    bool nested = true;
    Body body([&] { nested = own->start(); });
    qzthread thread(&body);
    own = &thread;
    for (int i = 0; i < 2; ++i) {
        ASSERT_TRUE(thread.start());
        thread.join();
        thread.join();  // There is nothing left to wait for.
        EXPECT_FALSE(nested);
    }

    pthread_attr_t usual, endless;
    ASSERT_EQ(pthread_getattr_default_np(&usual), 0);
    pthread_attr_init(&endless);
    pthread_attr_setstacksize(&endless, std::size_t{1} << 47);
    ASSERT_EQ(pthread_setattr_default_np(&endless), 0);
    EXPECT_FALSE(thread.start());
    thread.join();
    pthread_setattr_default_np(&usual);
    EXPECT_TRUE(thread.start());
    thread.join();
}

TEST(QzThread, TheObjectMayGoBeforeItsThread) {
    qzevent goOn(true, false), over(true, false);
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

TEST(QzThreadDeathTest, AnExceptionEndsTheThreadAndNothingElse) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto end = [] {
        setenv("QUENVALE_LOG_LEVEL", "1", 1);
        Body body([] { throw std::runtime_error("out of run()"); });
        qzthread thread(&body);
        thread.start();
        thread.join();
        _exit(7);
    };
    EXPECT_EXIT(end(), testing::ExitedWithCode(7), "working thread aborted!\n");
}
