#include "interaction/ServerInteraction.h"

#include "harness/CallTest.h"
#include "util/Vector.h"
#include "util/guid.h"
#include "util/identifiers.h"

namespace {

using namespace Quenvale::Interceptor::SDK;
using Util::String;

struct ServerInteractionTest : harness::CallTest {};

TEST_F(ServerInteractionTest, IdsAreMadeWhenTheyAreReadAndMissing) {
    for (const char* given : {static_cast<const char*>(nullptr), "", "from a header"}) {
        SCOPED_TRACE(testing::PrintToString(given));
        const bool isMade = String(given).empty();
        auto server = newServer();
        EXPECT_EQ(server->itsParentID.length(), 24u);
        server->setFlowID(given);
        server->setInteractionID(given);
        const auto before = Util::counter.load();
        const String flowID = server->getFlowID();
        const String id = server->getInteractionID();
        EXPECT_EQ(flowID == given, !isMade);
        EXPECT_EQ(flowID == id, !isMade);
        EXPECT_EQ(server->getFlowID() + server->getInteractionID(), flowID + id);
        EXPECT_EQ(Util::counter - before, isMade ? 2u : 0u);
    }
}

TEST_F(ServerInteractionTest, TwoThreadsSeeOneId) {
    for (int i = 0; i < 400; ++i) {
        auto server = newServer();
        const char* const start = i % 2 == 0 ? nullptr : "";
        server->setFlowID(start);
        server->setInteractionID(start);
        server->itsUrl = "http://host/shop/cart";
        server->itsOpName = "get";
        server->loadFromCache();
        server->itComputesPath = true;
        String ids[2];
        const auto read = [&](String& into) {
            into = server->getFlowID() + server->getInteractionID() + server->_getPathID(false);
        };
        harness::onThreads([&] { read(ids[0]); }, [&] { read(ids[1]); });
        ASSERT_EQ(ids[0], ids[1]);
    }
}

// Without a name a split reports nothing: that is checked through the C interface.
TEST_F(ServerInteractionTest, ASplitUnderANewNameIsACallOfItsOwn) {
    auto split = newServer();
    split->itsUrl = "http://host/shop/cart";
    split->itsOpName = "first";
    const std::unique_ptr<SiteStub> stub(split->split());
    EXPECT_EQ(reports(), "request ");
    EXPECT_EQ(stub->itsParentID, split->itsInteractionID);
    harness::onThreads([&] {
        Server next(ServerInteraction::begin(stub.get(), "k", "second"));
        EXPECT_EQ(Interaction::get("k", false), next.get());
        EXPECT_FALSE(next->itIsContinuation);
        EXPECT_EQ(next->getFlowID(), split->getFlowID());
        EXPECT_NE(next->itsParentID, split->itsInteractionID) << "a join keeps the parent";
        EXPECT_EQ(next->itsPeerType, stub->itsPeerType) << "the site's, not the join's";
        EXPECT_EQ(next->itsOpID, split->itsOpID);
        next->requestAnalyzed();
        EXPECT_NE(next->itsOpID, split->itsOpID) << "identified again";
        next->end();
    });
    EXPECT_EQ(reports(), "request reply ");
    split->end();
}

TEST_F(ServerInteractionTest, InternalOnesNeverReport) {
    Server server(ServerInteraction::beginInternal(nullptr, true));
    server->itsGroupName = "shop";
    server->requestAnalyzed();
    EXPECT_EQ(ServerInteraction::beginInternal(nullptr, true), nullptr) << "past the request stage";
    Server next(ServerInteraction::beginInternal(nullptr, false));
    EXPECT_NE(next, nullptr);
    next->itsGroupName = "shop";
    next->end();
    server->end();
    EXPECT_EQ(reports(), "");
    auto client = newClient("k");
    next.reset(ServerInteraction::beginInternal("k", false));
    EXPECT_NE(static_cast<Interaction*>(next.get()), client.get()) << "no server of the key's";
    EXPECT_EQ(client->itsRefCount, 1);
}

TEST_F(ServerInteractionTest, JoiningAFlowKeepsTheParentAndJoiningACallTakesItsIdentity) {
    auto client = newClient();
    client->itsParentID = "client's parent";
    client->itsLocus = "locus";
    client->itsCalleeAddr = "callee";
    auto joined = newServer();
    const String parentID = joined->itsParentID;
    const std::unique_ptr<FlowStub> flow(client->toFlowStub());
    joined->join(flow.get());
    EXPECT_EQ(joined->itsFlowID, client->itsFlowID);
    EXPECT_EQ(joined->itsParentID, parentID);
    EXPECT_EQ(joined->itsPeerType, -252);
    joined->join(static_cast<FlowStub*>(joined.get()));
    EXPECT_EQ(joined->itsFlowID, client->itsFlowID);

    const std::unique_ptr<InteractionStub> stub(client->toStub());
    joined = newServer();
    joined->join(stub.get());
    EXPECT_EQ(joined->getInteractionID(), client->itsInteractionID);
    EXPECT_EQ(joined->itsFlowID, client->itsFlowID);
    EXPECT_EQ(joined->itsParentID, "client's parent");
    EXPECT_EQ(joined->itsLocus + joined->itsCalleeAddr, "locuscallee");
    EXPECT_EQ(joined->itsPeerType, 0);
}

TEST_F(ServerInteractionTest, ThePathIsComputedWhereTheConfigurationWantsIt) {
    const struct {
        const char *why, *given;
        bool computes, asIs;
        const char* localAddr;
        String path;
    } rows[] = {
        {"as it stands", nullptr, true, true, "h", String()},
        {"given", "p", true, false, "h", "p"},
        {"not wanted", nullptr, false, false, "h", String()},
        {"of the own address", nullptr, true, false, "h", Util::pathID(nullptr, "h", "op")},
        {"of the host where there is none", nullptr, true, false, "",
         Util::pathID(nullptr, Interaction::ourHostname.c_str(), "op")},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        auto server = newServer();
        server->itsUrl = "http://other/shop/cart";
        server->loadFromCache();
        server->itsOpID = "op";
        server->itsLocalAddr = row.localAddr;
        server->itComputesPath = row.computes;
        server->itsPathID = row.given;
        EXPECT_EQ(server->_getPathID(row.asIs), row.path);
    }
}

TEST_F(ServerInteractionTest, CheckpointsComeFromTheDecisionAndTheStart) {
    auto server = newServer();
    const ConfigEntry none("g", "s", "o", new Util::Vector<String>(0, 1), false, false);
    server->loadFromCacheData(&none);
    EXPECT_EQ(server->itsCheckpoints, nullptr);
    auto* names = new Util::Vector<String>(0, 1);
    names->add("paid");
    const ConfigEntry entry("g", "s", "o", names, true, true);
    server->loadFromCacheData(&entry);
    EXPECT_EQ(server->getNewCheckpoints()->size(), 1);
    EXPECT_EQ(server->itsOpID, "o");
    server->itsStartTime = 1234;
    server->prepareCheckpoints();
    EXPECT_EQ(server->itsCheckpoints->itsBaseline, 1234);
}

}  // namespace
