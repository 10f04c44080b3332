#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <fstream>
#include <memory>
#include <string>

#include "config/DecisionCache.h"
#include "util/blockCache.h"

namespace {

using namespace Quenvale::Interceptor::SDK;

EntryRef newEntry() {
    return std::make_shared<const ConfigEntry>("group", "service", "operation", nullptr, false,
                                               false);
}

// While one lives the process gets hardly any further memory.
class Shortage {
public:
    Shortage() {
        rlim_t pages = 0;
        std::ifstream("/proc/self/statm") >> pages;
        getrlimit(RLIMIT_AS, &itsLimit);
        rlimit limit = itsLimit;
        limit.rlim_cur = pages * static_cast<rlim_t>(sysconf(_SC_PAGESIZE)) + (4U << 20);
        setrlimit(RLIMIT_AS, &limit);
    }
    ~Shortage() { setrlimit(RLIMIT_AS, &itsLimit); }
    Shortage(const Shortage&) = delete;
    Shortage& operator=(const Shortage&) = delete;

private:
    rlimit itsLimit;
};

TEST(DecisionCache, WhatFoundNoMemoryForItsTextsIsNotFound) {
#ifdef QZ_PLAIN_BLOCKS
    GTEST_SKIP() << "a sanitizer ends the process where there is no memory";
#endif
    const Util::String large(std::string(40U << 20, 'x').c_str());
    const struct {
        const char* why;
        const Util::String url, operation;
    } rows[] = {{"of the URL", large, "op"}, {"of the operation", "/url", large}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        DecisionCache cache(2);
        {
            const Shortage shortage;
            ASSERT_EQ(Util::String(large).c_str(), nullptr);
            cache.insert(row.url, row.operation, newEntry());
        }
        EXPECT_EQ(cache.find(row.url, row.operation), nullptr);
        EXPECT_EQ(cache.find(row.url, nullptr), nullptr);
        const EntryRef entry = newEntry();
        cache.insert(row.url, row.operation, entry);
        EXPECT_EQ(cache.find(row.url, row.operation), entry);
    }
}

TEST(DecisionCache, IsEmptyButServesAfterManyWereDropped) {
    DecisionCache cache(2);
    const auto name = [](int i) { return Util::String(("op" + std::to_string(i)).c_str()); };
    for (int round = 0; round < 3; ++round) {
        const EntryRef entry = newEntry();
        for (int i = 0; i < 1000; ++i) {
            EXPECT_EQ(cache.find("/url", name(i)), nullptr);
            cache.insert("/url", name(i), entry);
        }
        for (int i = 0; i < 1000; ++i) EXPECT_EQ(cache.find("/url", name(i)), entry);
        cache.clear();
        EXPECT_EQ(entry.use_count(), 1) << "nothing keeps what was dropped";
    }
}

}  // namespace
