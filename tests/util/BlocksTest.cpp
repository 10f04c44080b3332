#include "util/blocks.h"

#include <malloc.h>

#include "harness/test.h"

namespace Quenvale::Interceptor::SDK::Util {
namespace {

TEST(Blocks, HoldWhatWasAskedForAndMixWithMalloc) {
    std::vector<std::size_t> sizes = {0, 1, 2000, 70000};
    for (std::size_t step = 16; step <= 1040; step += 16)
        sizes.insert(sizes.end(), {step - 1, step, step + 1});
    for (const std::size_t size : sizes) {
        // What comes back is taken again, and has to hold what its class holds.
        for (int i = 0; i < 3; ++i) {
            void* block = allocate(size);
            ASSERT_NE(block, nullptr);
            ASSERT_GE(malloc_usable_size(block), size);
            std::memset(block, 0x5a, size);
            if (i == 1)
                releaseBlock(block, size);
            else
                release(block);
            void* foreign = std::malloc(size);
            release(foreign);
        }
        std::free(allocate(size));
        auto* zeroed = static_cast<unsigned char*>(allocateZeroed(size));
        for (std::size_t i = 0; i < size; ++i) ASSERT_EQ(zeroed[i], 0);
        release(zeroed);
    }
    release(nullptr);
}

TEST(Blocks, AThreadsBlocksGoWhenItEnds) {
    const auto run = [] {
        harness::onThreads([] {
            std::vector<void*> blocks;
            for (int i = 0; i < 400; ++i) blocks.push_back(allocate(24U << (i % 6)));
            for (void* block : blocks) release(block);
        });
    };
    run();
    const std::size_t before = mallinfo2().uordblks;
    for (int i = 0; i < 100; ++i) run();
    EXPECT_LT(mallinfo2().uordblks, before + 200000) << "a hundred caches would be millions";
}

}  // namespace
}  // namespace Quenvale::Interceptor::SDK::Util
