#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <future>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace harness {

/// What a thread may take at most; only a test that hangs meets it.
constexpr std::chrono::seconds kLimit{60};

/// The lowest so many bytes of a number, the highest of them first.
inline std::string bigEndian(long long value, std::size_t width) {
    std::string bytes;
    while (width-- > 0) bytes += static_cast<char>(value >> (8 * width));
    return bytes;
}

/// Runs `actions` at once on threads of their own and waits for their end.
template <class... F>
void onThreads(F... actions) {
    std::thread threads[] = {std::thread(actions)...};
    for (std::thread& thread : threads) thread.join();
}

/// A thread that has run `first` when it is made, and runs `last` when the test goes on to end().
class Beside {
public:
    template <class First, class Last>
    Beside(First first, Last last) {
        itsThread = std::thread([=] {
            first();
            itIsReady.set_value();
            EXPECT_EQ(itsEnd.get_future().wait_for(kLimit), std::future_status::ready);
            last();
        });
        EXPECT_EQ(itIsReady.get_future().wait_for(kLimit), std::future_status::ready);
    }
    void end() {
        itsEnd.set_value();
        itsThread.join();
    }

private:
    std::promise<void> itIsReady, itsEnd;
    std::thread itsThread;
};

}  // namespace harness
