#pragma once

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdio>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace bench {

/// The machines that this runs on change their speed by half within seconds. So a program measures
/// in blocks of a few milliseconds, and scripts/bench asks the programs for one block of each case
/// in turn: a ratio of two blocks of one round compares the same moments.
///
/// A program prints the names of its cases, a line each, and "ready". Then it reads the numbers of
/// cases, runs a block for each number, and prints the block's figure.
struct Case {
    const char* name;
    std::function<double()> block;  // ns for each operation, unless the name says otherwise
};

inline int serve(const std::vector<Case>& cases) {
    for (const Case& each : cases) std::printf("%s\n", each.name);
    std::printf("ready\n");
    std::fflush(stdout);
    std::size_t number = 0;
    while (std::scanf("%zu", &number) == 1 && number < cases.size()) {
        std::printf("%.4f\n", cases[number].block());
        std::fflush(stdout);
    }
    return 0;
}

/// Makes the compiler believe that something reads the value.
template <class T>
void use(const T& value) {
    __asm__ __volatile__("" : : "g"(&value) : "memory");
}

inline double nanoseconds() {
    const auto time = std::chrono::steady_clock::now().time_since_epoch();
    return static_cast<double>(std::chrono::duration_cast<std::chrono::nanoseconds>(time).count());
}

inline void nothing() {}

/// A block: a few goes of so many operations, with `after` behind each go, outside of the clock. An
/// operation is told its number, which goes on from block to block. The figure is that of the
/// median go, so that a go that another process has interrupted doesn't count.
constexpr int kGoes = 8;

template <class Go>
double medianOfGoes(Go go, void (*after)()) {
    double figures[kGoes];
    for (double& figure : figures) {
        figure = go();
        after();
    }
    std::nth_element(figures, figures + kGoes / 2, figures + kGoes);
    return figures[kGoes / 2];
}

/// ns for one operation.
template <class Operation>
double timed(unsigned operations, unsigned& number, Operation& operation) {
    const double start = nanoseconds();
    for (unsigned i = 0; i < operations; ++i) operation(number++);
    return (nanoseconds() - start) / operations;
}

template <class Operation>
std::function<double()> block(unsigned operations, Operation operation, void (*after)() = nothing) {
    return [=, number = 0u]() mutable {
        return medianOfGoes([&] { return timed(operations, number, operation); }, after);
    };
}

/// Two threads, the caller and one that lives as long as the process, so that what the library
/// keeps for each thread is as warm as in a server.
class Pair {
public:
    Pair() {
        std::thread([this] { serveGoes(); }).detach();
    }

    /// As bench::block(), on both threads.
    template <class Operation>
    std::function<double()> block(unsigned operations, Operation operation,
                                  void (*after)() = nothing) {
        return [=] {
            const auto go = [&](int thread) {
                unsigned number = 17u * static_cast<unsigned>(thread);
                return timed(operations, number, operation);
            };
            return medianOfGoes([&] { return run(go); }, after);
        };
    }

private:
    /// Runs `go`, which is told its thread's number and gives ns, on both at once; the result is
    /// that of the slower one.
    double run(const std::function<double(int)>& go) {
        itsAtGate = 0;
        {
            const std::lock_guard<std::mutex> guard(itsLock);
            itsGo = &go;
        }
        itsChange.notify_all();
        const double own = runAtOnce(go, 0);
        std::unique_lock<std::mutex> guard(itsLock);
        itsChange.wait(guard, [this] { return itsGo == nullptr; });
        return std::max(own, itsResult);
    }
    [[noreturn]] void serveGoes() {
        std::unique_lock<std::mutex> guard(itsLock);
        for (;;) {
            itsChange.wait(guard, [this] { return itsGo != nullptr; });
            const auto* go = itsGo;
            guard.unlock();
            const double result = runAtOnce(*go, 1);
            guard.lock();
            itsResult = result;
            itsGo = nullptr;
            itsChange.notify_all();
        }
    }
    double runAtOnce(const std::function<double(int)>& go, int thread) {
        ++itsAtGate;
        while (itsAtGate < 2) {
        }
        return go(thread);
    }

    std::mutex itsLock;
    std::condition_variable itsChange;
    const std::function<double(int)>* itsGo = nullptr;
    double itsResult = 0;
    std::atomic<int> itsAtGate{0};
};

}  // namespace bench
