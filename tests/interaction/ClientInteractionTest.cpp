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
    EXPECT_EQ(client->itsSequenceNumber, 0);
    EXPECT_TRUE(client->_getPathID(true).empty());
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
    EXPECT_FALSE(client->itOwnsShared);
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
    client->end();
    server->end();
}

TEST_F(ClientInteractionTest, OneKeyMakesAnEntryTwoDoNot) {
    const struct {
        const char *key, *clientKey;
        bool isFound;
    } rows[] = {{"k", nullptr, true}, {"k", "c", false}, {nullptr, "c", false}};
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::PrintToString(row.clientKey));
        auto server = newServer("k");
        auto inner = newServer();
        auto client = newClient(row.key, row.clientKey);
        EXPECT_EQ(client->itsFlowID == server->itsFlowID, row.key != nullptr)
            << "the parent is the key's server also without an entry";
        EXPECT_EQ(Interaction::get("k", true) == client.get(), row.isFound);
        EXPECT_EQ(Interaction::get("c", true), nullptr);
        client->end();
        inner->end();
        server->end();
    }
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
    EXPECT_EQ(Interaction::get(nullptr, true), below.get());
    // On top again, so that a second pop would show.
    client->storeLocalKey("k");
    std::thread([&] { client->end(); }).join();
    client->itsRefCount = 1;
    EXPECT_EQ(client->itsState, 3);
    EXPECT_EQ(Interaction::get("k", true), client.get());
    EXPECT_EQ(Interaction::get(nullptr, true), client.get());
    EXPECT_EQ(reports(), "whole ");
    below->end();
}

TEST_F(ClientInteractionTest, SiblingsOnTwoThreadsShareWhatTheServerMakes) {
    for (int i = 0; i < 100; ++i) {
        auto server = newServer("parent");
        server->itsUrl = "http://host/shop/cart";
        server->requestAnalyzed();
        server->itComputesPath = true;
        Client clients[2];
        harness::onThreads([&] { clients[0] = newClient("parent", "none"); },
                           [&] { clients[1] = newClient("parent", "none"); });
        EXPECT_EQ(clients[0]->itsFlowID, clients[1]->itsFlowID);
        EXPECT_EQ(clients[0]->itsPPathID, server->itsPathID);
        EXPECT_EQ(clients[1]->itsPPathID, server->itsPathID);
        EXPECT_NE(clients[0]->itsSequenceNumber, clients[1]->itsSequenceNumber);
        for (auto& client : clients) client->end();
        server->end();
    }
}

}  // namespace
