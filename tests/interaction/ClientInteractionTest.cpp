#include "interaction/ClientInteraction.h"

#include "harness/CallTest.h"
#include "util/guid.h"
#include "util/identifiers.h"

namespace {

using namespace Quenvale::Interceptor::SDK;
using Util::String;

struct ClientInteractionTest : harness::CallTest {};

TEST_F(ClientInteractionTest, WithoutAServerItIsAFlowOfItsOwn) {
    auto client = newClient();
    EXPECT_EQ(client->itsFlowID.length(), 24u);
    EXPECT_EQ(client->itsInteractionID.length(), 24u);
    EXPECT_NE(client->itsFlowID, client->itsInteractionID);
    EXPECT_TRUE(client->itsParentID.empty());
    EXPECT_TRUE(client->itsCreateFlag);
    client->itsParentID = "parent";
    const std::unique_ptr<SiteStub> stub(client->split());
    EXPECT_TRUE(client->itIsSplit);
    EXPECT_EQ(client->itsState, 0);
    EXPECT_EQ(stub->itsParentID, "parent") << "a split keeps it";
}

TEST_F(ClientInteractionTest, TakesOnItsServersFlow) {
    auto server = newServer();
    server->itsUrl = "http://host/shop/cart";
    server->itsFlowAttr1 = "attribute";
    server->itsPathID = "path";
    server->itsPlatformType = 7;
    server->getCheckpoints(true)->addIncomingCheckpoint("paid", 1);
    auto client = newClient();
    EXPECT_EQ(reports(), "request ") << "the server's, whose client goes out";
    EXPECT_EQ(client->itsFlowID, server->itsFlowID);
    EXPECT_EQ(client->itsParentID, server->itsInteractionID);
    EXPECT_EQ(client->itsFlowAttr1 + client->itsPPathID, "attributepath");
    EXPECT_TRUE(client->itsPathID.empty());
    EXPECT_EQ(client->itsLocus, server->itsOpID);
    EXPECT_FALSE(client->itsLocus.empty());
    EXPECT_EQ(client->itsPlatformType, 7);
    EXPECT_EQ(client->itsCheckpoints, server->itsCheckpoints);
    EXPECT_NE(client->itsUplinkData, nullptr);

    const auto before = Util::counter.load();
    auto sibling = newClient();
    EXPECT_EQ(Util::counter - before, 2u) << "the flow's id counts also where none is needed";
    EXPECT_EQ(reports(), "");
    EXPECT_EQ(sibling->itsSequenceNumber, client->itsSequenceNumber + 1);
    sibling->end();
    client->end();
    server->end();

    server = newServer();
    server->itIsInternal = true;
    client = newClient();
    EXPECT_FALSE(client->itsFlowID.empty());
    EXPECT_EQ(client->itsFlowID, server->itsFlowID) << "also where the server reports nothing";
    EXPECT_TRUE(client->itsParentID.empty()) << "the server's id as it stands";
}

TEST_F(ClientInteractionTest, OneKeyMakesAnEntryTwoDoNot) {
    const auto makesEntry = [](const char* key, const char* clientKey) {
        auto server = newServer("k");
        auto inner = newServer();
        auto client = newClient(key, clientKey);
        EXPECT_EQ(client->itsFlowID == server->itsFlowID, key != nullptr)
            << "the parent is the key's server also without an entry";
        EXPECT_EQ(Interaction::get("c", true), nullptr);
        return Interaction::get("k", true) == client.get();
    };
    EXPECT_TRUE(makesEntry("k", nullptr));
    EXPECT_FALSE(makesEntry("k", "c"));
    EXPECT_FALSE(makesEntry(nullptr, "c"));
}

TEST_F(ClientInteractionTest, ThePathIsComputedOnce) {
    auto withParent = newClient();
    withParent->itsPPathID = "parent";
    withParent->itsUrl = "http://host/shop/cart";
    withParent->loadFromCache();
    const String path = Util::pathID("parent", "peer", withParent->itsOpID.c_str());
    withParent->setPeerAddr("peer");
    EXPECT_EQ(withParent->_getPathID(true), path) << "true does not mean as it stands";
    withParent->setPeerAddr("elsewhere");
    EXPECT_EQ(withParent->_getPathID(true), path);

    auto without = newClient();
    EXPECT_TRUE(without->_getPathID(false).empty());
    without->itsPPathID = "parent";
    EXPECT_TRUE(without->_getPathID(false).empty()) << "that it has none is kept too";
}

TEST_F(ClientInteractionTest, ManagedExternallyItLeavesTheThreadOnce) {
    auto below = newClient();
    auto client = newClient();
    client->manageExternally();
    EXPECT_TRUE(client->itIsSplit);
    EXPECT_EQ(onThread(true), below.get());
    // On top again, so that a second pop would show.
    client->storeLocalKey("k");
    harness::onThreads([&] { client->end(); });
    EXPECT_EQ(client->itsState, 3);
    EXPECT_EQ(Interaction::get("k", true), client.get());
    EXPECT_EQ(onThread(true), client.get());
    EXPECT_EQ(reports(), "whole ");
}

TEST_F(ClientInteractionTest, SiblingsOnTwoThreadsShareWhatTheServerMakes) {
    for (int i = 0; i < 400; ++i) {
        auto server = newServer("parent");
        const char* const start = i % 2 == 0 ? nullptr : "";
        server->setFlowID(start);
        server->setInteractionID(start);
        server->itsUrl = "http://host/shop/cart";
        server->itIsInternal = true;  // A report would make the ids.
        server->requestAnalyzed();
        server->itComputesPath = true;
        String seen[2];
        std::atomic<int> missing{2};
        const auto work = [&](String& ids) {
            --missing;
            while (missing > 0) continue;
            ids = server->getFlowID() + server->getInteractionID() + server->_getPathID(false);
            return newClient("parent", "none");
        };
        Client clients[2];
        harness::onThreads([&] { clients[0] = work(seen[0]); },
                           [&] { clients[1] = work(seen[1]); });
        ASSERT_EQ(seen[0], seen[1]);
        for (auto& client : clients)
            EXPECT_EQ(client->itsFlowID + client->itsParentID + client->itsPPathID, seen[0]);
        EXPECT_NE(clients[0]->itsSequenceNumber, clients[1]->itsSequenceNumber);
    }
}

}  // namespace
