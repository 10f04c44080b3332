#include "interaction/Checkpoints.h"

#include "harness/values.h"
#include "interaction/FlowStub.h"

namespace {

using namespace Quenvale::Interceptor::SDK;
using harness::incoming;
using harness::Names;

std::string newNames(Checkpoints& checkpoints) {
    auto* names = checkpoints.getNewCheckpoints();
    if (names == nullptr) return "none";
    std::string text;
    for (int i = 0; i < names->size(); ++i) text += std::string(names->at(i).c_str()) + " ";
    return text;
}

TEST(Checkpoints, NamesCountAsOftenAsTheyComeAndAreListedOnce) {
    Checkpoints checkpoints;
    EXPECT_EQ(incoming(&checkpoints), "none");
    checkpoints.addIncomingCheckpoint("a", 1);
    checkpoints.addIncomingCheckpoint("b", 2);
    checkpoints.addIncomingCheckpoint("a", 3);
    EXPECT_EQ(incoming(&checkpoints), "a=3 b=2 ");
    checkpoints.addIncomingCheckpoint("late", 4);
    EXPECT_EQ(incoming(&checkpoints), "a=3 b=2 ") << "the map is built once";
    Names names{"n"};
    checkpoints.setNewCheckpoints(&names);
    EXPECT_EQ(checkpoints.getIncomingCheckpointsCount(), 4);
    EXPECT_EQ(checkpoints.getTotalCheckpointsCount(), 5);
    checkpoints.clear();
    EXPECT_EQ(checkpoints.getTotalCheckpointsCount(), 0);
    EXPECT_EQ(incoming(&checkpoints) + newNames(checkpoints), "nonenone");
}

TEST(Checkpoints, NewNamesAreCopiedAndReplaced) {
    Checkpoints checkpoints;
    {
        Names names{"x", "", "x"};
        checkpoints.setNewCheckpoints(&names);
    }
    EXPECT_EQ(newNames(checkpoints), "x  x ") << "an empty name is a name";
    auto* first = checkpoints.getNewCheckpoints();
    Names others{"y"};
    checkpoints.setNewCheckpoints(&others);
    EXPECT_EQ(newNames(checkpoints), "y ");
    EXPECT_EQ(first->size(), 3) << "another thread may still walk it";
    checkpoints.setNewCheckpoints(first);
    EXPECT_EQ(checkpoints.getNewCheckpoints(), first) << "equal names make no further list";
    checkpoints.setNewCheckpoints(nullptr);
    EXPECT_EQ(newNames(checkpoints), "none");
}

TEST(Checkpoints, EmptyOnesAreGivenOnlyToWhoCreates) {
    FlowStub stub;
    EXPECT_EQ(stub.getCheckpoints(false), nullptr);
    Checkpoints* checkpoints = stub.getCheckpoints(true);
    EXPECT_EQ(stub.getCheckpoints(true), checkpoints);
    checkpoints->addIncomingCheckpoint("", 1);
    EXPECT_EQ(stub.getCheckpoints(false), nullptr) << "an empty name is dropped";
    checkpoints->addIncomingCheckpoint("a", 1);
    EXPECT_EQ(stub.getCheckpoints(false), checkpoints);
}

TEST(CheckpointsDeathTest, EmptyNameIsAnErrorWhenDebugging) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    setenv("QUENVALE_LOG_LEVEL", "4", 1);
    const auto add = [] {
        const auto error = harness::thrown([] { Checkpoints().addIncomingCheckpoint("", 1); });
        std::fprintf(stderr, "[%s]\n", error.c_str());
        std::_Exit(0);
    };
    EXPECT_EXIT(add(), testing::ExitedWithCode(0),
                "\\[IllegalArgumentException: A checkpoint must have a name.\\]");
    unsetenv("QUENVALE_LOG_LEVEL");
}

TEST(Checkpoints, TwoThreadsShareOne) {
    FlowStub server;
    server.getCheckpoints(true)->addIncomingCheckpoint("a", 1);
    auto stub = std::make_unique<FlowStub>();
    stub->setFlowStubFields(&server);
    const auto work = [](FlowStub& holder, const char* name) {
        Checkpoints& checkpoints = *holder.getCheckpoints(true);
        Names names{name, "both"};
        for (int i = 0; i < 500; ++i) {
            checkpoints.itsBaseline = i;
            checkpoints.setNewCheckpoints(&names);
            EXPECT_EQ(newNames(checkpoints).size(), 7U);
            EXPECT_EQ(incoming(&checkpoints), "a=1 ");
            checkpoints.addIncomingCheckpoint("b", 1);
        }
    };
    std::thread continuation([&] {
        work(*stub, "s");
        stub.reset();
    });
    work(server, "c");
    continuation.join();
    EXPECT_EQ(server.getCheckpoints(true)->getIncomingCheckpointsCount(), 1001);
}

}  // namespace
