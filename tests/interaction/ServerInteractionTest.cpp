#include "interaction/ServerInteraction.h"

#include <gtest/gtest.h>

#include <memory>
#include <thread>

#include "harness/RecordingUplink.h"
#include "interaction/ClientInteraction.h"
#include "util/Vector.h"
#include "util/guid.h"
#include "util/identifiers.h"

using namespace Quenvale::Interceptor::SDK;
using harness::RecordingUplink;
using Util::String;

namespace {

const String kNone;

class ServerInteractionTest : public testing::Test {
protected:
    using Server = std::unique_ptr<ServerInteraction>;

    void SetUp() override { reports(); }
    static std::string reports() { return RecordingUplink::instance().kinds(); }

    static Server create(const char* key = nullptr) {
        Server server(ServerInteraction::create(key));
        server->itsGroupName = "shop";
        return server;
    }
    static std::unique_ptr<SiteStub> splitOf(const Server& server) {
        return std::unique_ptr<SiteStub>(server->split());
    }
};

TEST_F(ServerInteractionTest, StartsWithAParentAndWithoutIds) {
    auto server = create("k");
    EXPECT_EQ(server->itsParentID.length(), 24u);
    EXPECT_TRUE(server->itsFlowID.empty());
    EXPECT_TRUE(server->itsInteractionID.empty());
    EXPECT_EQ(Interaction::get("k", false), server.get());
    EXPECT_EQ(Interaction::get(kNone, false), server.get());
    server->itsUpstreamInteractionID = "up";
    EXPECT_EQ(server->getUpstreamInteractionID(), "up");
}

TEST_F(ServerInteractionTest, IdsAreMadeWhenTheyAreReadAndMissing) {
    const struct {
        const char* why;
        String given;
        bool isMade;
    } rows[] = {
        {"none", nullptr, true},
        {"blank, as from a header item without a value", "", true},
        {"from a header", "given", false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        auto server = create();
        server->setFlowID(row.given);
        server->setInteractionID(row.given);
        const auto before = Util::counter.load();
        const String flowID = server->getFlowID();
        const String id = server->getInteractionID();
        EXPECT_EQ(flowID == row.given, !row.isMade);
        EXPECT_EQ(server->getFlowID(), flowID);
        EXPECT_EQ(server->getInteractionID(), id);
        EXPECT_EQ(flowID == id, !row.isMade);
        EXPECT_EQ(Util::counter - before, row.isMade ? 2u : 0u);
    }
}

TEST_F(ServerInteractionTest, TwoThreadsSeeOneId) {
    for (const char* start : {static_cast<const char*>(nullptr), ""}) {
        for (int i = 0; i < 200; ++i) {
            auto server = create();
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
            std::thread other(read, std::ref(ids[1]));
            read(ids[0]);
            other.join();
            ASSERT_EQ(ids[0], ids[1]);
        }
    }
}

TEST_F(ServerInteractionTest, ASplitWithoutANameIsContinuedInSilence) {
    auto split = create();
    split->itsUrl = "http://host/shop/cart";
    auto stub = splitOf(split);
    EXPECT_EQ(reports(), "request ");
    std::thread([&] {
        Server next(ServerInteraction::begin(stub.get(), kNone, kNone));
        EXPECT_TRUE(next->itIsContinuation);
        EXPECT_EQ(next->getFlowID(), split->getFlowID());
        EXPECT_EQ(next->getInteractionID(), split->getInteractionID());
        EXPECT_NE(next->itsParentID, split->itsInteractionID) << "a join keeps the parent";
        EXPECT_EQ(next->itsUrl, split->itsUrl);
        EXPECT_EQ(next->itsPeerType, stub->itsPeerType) << "the site's, not the join's";
        next->requestAnalyzed();
        next->end();
    }).join();
    EXPECT_EQ(reports(), "");
    split->end();
}

TEST_F(ServerInteractionTest, ASplitUnderANewNameReports) {
    auto split = create();
    split->itsUrl = "http://host/shop/cart";
    split->itsOpName = "first";
    auto stub = splitOf(split);
    reports();
    std::thread([&] {
        Server next(ServerInteraction::begin(stub.get(), "k", "second"));
        EXPECT_EQ(Interaction::get("k", false), next.get());
        EXPECT_FALSE(next->itIsContinuation);
        EXPECT_FALSE(next->itIsLoaded);
        EXPECT_EQ(next->itsOpID, split->itsOpID);
        next->requestAnalyzed();
        EXPECT_NE(next->itsOpID, split->itsOpID) << "identified again";
        next->end();
    }).join();
    EXPECT_EQ(reports(), "request reply ");
    split->end();
}

TEST_F(ServerInteractionTest, InternalOnesNeverReport) {
    Server server(ServerInteraction::beginInternal(kNone, true));
    server->itsGroupName = "shop";
    server->requestAnalyzed();
    EXPECT_EQ(ServerInteraction::beginInternal(kNone, true), nullptr) << "past the request stage";
    Server next(ServerInteraction::beginInternal(kNone, false));
    EXPECT_NE(next, nullptr);
    next->itsGroupName = "shop";
    next->end();
    server->end();
    EXPECT_EQ(reports(), "");
}

TEST_F(ServerInteractionTest, AClientUnderTheKeyIsNotTakenForAServer) {
    std::unique_ptr<ClientInteraction> client(ClientInteraction::create("k", kNone, false, false));
    Server server(ServerInteraction::beginInternal("k", false));
    EXPECT_NE(static_cast<Interaction*>(server.get()), client.get());
    EXPECT_TRUE(server->isServer());
    EXPECT_EQ(client->itsRefCount, 1);
}

TEST_F(ServerInteractionTest, JoiningAFlowKeepsTheParent) {
    auto server = create();
    const String parentID = server->itsParentID;
    FlowStub flow;
    flow.itsFlowID = "flow";
    flow.itsParentID = "other parent";
    server->join(&flow);
    EXPECT_EQ(server->itsFlowID, "flow");
    EXPECT_EQ(server->itsParentID, parentID);
    EXPECT_EQ(server->itsPeerType, -252);
    server->join(static_cast<FlowStub*>(server.get()));
    EXPECT_EQ(server->itsFlowID, "flow");
}

TEST_F(ServerInteractionTest, JoiningAnInteractionTakesItsIdentity) {
    std::unique_ptr<ClientInteraction> client(
        ClientInteraction::create(kNone, kNone, false, false));
    client->itsLocus = "locus";
    client->itsCalleeAddr = "callee";
    std::unique_ptr<InteractionStub> stub(client->toStub());
    auto joined = create();
    joined->join(stub.get());
    EXPECT_EQ(joined->getInteractionID(), client->itsInteractionID);
    EXPECT_EQ(joined->itsFlowID, client->itsFlowID);
    EXPECT_EQ(joined->itsParentID, client->itsParentID);
    EXPECT_EQ(joined->itsLocus, "locus");
    EXPECT_EQ(joined->itsCalleeAddr, "callee");
    EXPECT_EQ(joined->itsPeerType, 0);
}

TEST_F(ServerInteractionTest, ThePathIsComputedWhereTheConfigurationWantsIt) {
    const struct {
        const char* why;
        const char* given;
        bool computes;
        bool asIs;
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
        auto server = create();
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
    auto server = create();
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
