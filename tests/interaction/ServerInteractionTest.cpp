#include "interaction/ServerInteraction.h"

#include "harness/CallTest.h"
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
        EXPECT_EQ(server->getFlowID() == given, !isMade);
        EXPECT_EQ(server->getFlowID() == server->getInteractionID(), !isMade);
        EXPECT_EQ(Util::counter - before, isMade ? 2u : 0u);
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
        EXPECT_EQ(next->itsFlowID, split->itsFlowID);
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
    ASSERT_NE(next, nullptr);
    next->itsGroupName = "shop";
    next->end();
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
    joined->join(static_cast<FlowStub*>(joined.get()));
    EXPECT_EQ(joined->itsFlowID, client->itsFlowID);
    EXPECT_EQ(joined->itsParentID, parentID);
    EXPECT_EQ(joined->itsPeerType, -252);

    joined = newServer();
    joined->join(static_cast<InteractionStub*>(client.get()));
    EXPECT_EQ(joined->getInteractionID(), client->itsInteractionID);
    EXPECT_EQ(joined->itsFlowID, client->itsFlowID);
    EXPECT_EQ(joined->itsParentID, "client's parent");
    EXPECT_EQ(joined->itsLocus + joined->itsCalleeAddr, "locuscallee");
    EXPECT_EQ(joined->itsPeerType, 0);
}

TEST_F(ServerInteractionTest, ThePathIsComputedWhereTheConfigurationWantsIt) {
    const auto path = [](const char* given, bool computes, bool asIs, const char* localAddr) {
        auto server = newServer();
        server->itsUrl = "http://other/shop/cart";
        server->loadFromCache();
        server->itsOpID = "op";
        server->itsLocalAddr = localAddr;
        server->itComputesPath = computes;
        server->itsPathID = given;
        return server->_getPathID(asIs);
    };
    EXPECT_EQ(path("p", true, false, "h"), "p");
    EXPECT_TRUE(path(nullptr, true, true, "h").empty()) << "as it stands";
    EXPECT_TRUE(path(nullptr, false, false, "h").empty()) << "not wanted";
    EXPECT_EQ(path(nullptr, true, false, "h"), Util::pathID(nullptr, "h", "op"));
    EXPECT_EQ(path(nullptr, true, false, ""),
              Util::pathID(nullptr, Interaction::ourHostname.c_str(), "op"))
        << "of the host where there is no address";
}

}  // namespace
