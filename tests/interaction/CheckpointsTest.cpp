#include "interaction/Checkpoints.h"

#include "harness/values.h"
#include "interaction/FlowStub.h"

namespace {

using namespace Quenvale::Interceptor::SDK;
using harness::incoming;
using harness::Names;

std::string newNames(Checkpoints* checkpoints) {
    auto* names = checkpoints->getNewCheckpoints();
    if (names == nullptr) return "none";
    std::string text;
    for (int i = 0; i < names->size(); ++i) text += std::string(names->at(i).c_str()) + " ";
    return text;
}

TEST(Checkpoints, IncomingOnesCountAsOftenAsTheyComeAndAreListedOnce) {
    FlowStub stub;
    EXPECT_EQ(stub.getCheckpoints(false), nullptr);
    Checkpoints* checkpoints = stub.getCheckpoints(true);
    checkpoints->addIncomingCheckpoint("", 1);
    EXPECT_EQ(stub.getCheckpoints(false), nullptr) << "an empty name is dropped";
    EXPECT_EQ(incoming(checkpoints), "none");
    checkpoints->addIncomingCheckpoint("a", 1);
    EXPECT_EQ(stub.getCheckpoints(false), checkpoints);
    EXPECT_EQ(stub.getCheckpoints(true), checkpoints);
    checkpoints->addIncomingCheckpoint("b", 2);
    checkpoints->addIncomingCheckpoint("a", 3);
    EXPECT_EQ(incoming(checkpoints), "a=3 b=2 ");
    checkpoints->addIncomingCheckpoint("late", 4);
    EXPECT_EQ(incoming(checkpoints), "a=3 b=2 ") << "the map is built once";
    checkpoints->setNewCheckpoints(Names{"n"}.list());
    EXPECT_EQ(checkpoints->getIncomingCheckpointsCount(), 4);
    EXPECT_EQ(checkpoints->getTotalCheckpointsCount(), 5);
    checkpoints->clear();
    EXPECT_EQ(checkpoints->getTotalCheckpointsCount(), 0);
    EXPECT_EQ(incoming(checkpoints) + newNames(checkpoints), "nonenone");
}

TEST(Checkpoints, NewNamesAreCopiedAndReplaced) {
    Checkpoints checkpoints;
    checkpoints.setNewCheckpoints(Names{"x", "", "x"}.list());
    EXPECT_EQ(newNames(&checkpoints), "x  x ") << "an empty name is a name";
    auto* first = checkpoints.getNewCheckpoints();
    checkpoints.setNewCheckpoints(Names{"y", "", "x"}.list());
    EXPECT_EQ(newNames(&checkpoints), "y  x ");
    EXPECT_EQ(first->size(), 3) << "another thread may still walk it";
    checkpoints.setNewCheckpoints(first);
    EXPECT_EQ(checkpoints.getNewCheckpoints(), first) << "equal names make no further list";
    checkpoints.setNewCheckpoints(nullptr);
    EXPECT_EQ(newNames(&checkpoints), "none");
}

TEST(Checkpoints, TwoThreadsShareOne) {
    FlowStub server;
    server.getCheckpoints(true)->addIncomingCheckpoint("a", 1);
    auto stub = std::make_unique<FlowStub>();
    stub->setFlowStubFields(&server);
    const auto work = [](FlowStub& holder, const char* name) {
        Checkpoints* checkpoints = holder.getCheckpoints(true);
        for (int i = 0; i < 500; ++i) {
            checkpoints->itsBaseline = i;
            checkpoints->setNewCheckpoints(Names{name, "both"}.list());
            EXPECT_EQ(newNames(checkpoints).size(), 7U);
            EXPECT_EQ(incoming(checkpoints), "a=1 ");
            checkpoints->addIncomingCheckpoint("b", 1);
        }
    };
    harness::onThreads(
        [&] {
            work(*stub, "s");
            stub.reset();
        },
        [&] { work(server, "c"); });
    EXPECT_EQ(server.getCheckpoints(true)->getIncomingCheckpointsCount(), 1001);
}

}  // namespace
