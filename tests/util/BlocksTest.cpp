#include "util/blocks.h"

#include <gtest/gtest.h>
#include <malloc.h>

#include <cstdlib>
#include <cstring>
#include <thread>
#include <vector>

namespace Quenvale::Interceptor::SDK::Util {
namespace {

TEST(Blocks, HoldWhatWasAskedForAndMixWithMalloc) {
    for (std::size_t size : {0U, 1U, 31U, 32U, 33U, 64U, 65U, 1023U, 1024U, 1025U, 70000U}) {
        void* block = allocate(size);
        ASSERT_NE(block, nullptr);
        std::memset(block, 0x5a, size);
        release(block);
        std::free(allocate(size));
        void* foreign = std::malloc(size);
        release(foreign);
        auto* zeroed = static_cast<unsigned char*>(allocateZeroed(size));
        for (std::size_t i = 0; i < size; ++i) ASSERT_EQ(zeroed[i], 0);
        release(zeroed);
    }
    release(nullptr);
}

TEST(Blocks, AThreadsBlocksGoWhenItEnds) {
    const auto run = [] {
        std::thread([] {
            std::vector<void*> blocks;
            for (int i = 0; i < 400; ++i) blocks.push_back(allocate(24U << (i % 6)));
            for (void* block : blocks) release(block);
        }).join();
    };
    run();
    const std::size_t before = mallinfo2().uordblks;
    for (int i = 0; i < 100; ++i) run();
    EXPECT_LT(mallinfo2().uordblks, before + 200000) << "a hundred caches would be millions";
}

}  // namespace
}  // namespace Quenvale::Interceptor::SDK::Util
