// Headers, splits, joins and sub-requests through the C interface.
#include "capi/Fixture.h"

namespace {

using namespace Quenvale::Interceptor::SDK;

struct Propagation : harness::RecordTest {};

TEST_F(Propagation, AHeaderJoinsTwoHopsAndAJoinTakesTheIdentityToo) {
    ServerInteractionStruct* front = server();
    ClientInteractionStruct* client = qz_beginClient();
    ciSetUrl(client, "http://back.example/db/rows");
    qz_clientAnalyzed(client);
    char* header = qz_writeHeader(client, 0);
    harness::onThreads([&] {
        ServerInteractionStruct* back = server();
        EXPECT_EQ(qz_readHeader(header, back), 1);
        EXPECT_STREQ(flow(back)->flowID, flow(front)->flowID);
        EXPECT_TRUE(static_cast<ServerInteraction*>(objectOf(back))->getUpstreamInteractionID() ==
                    objectOf(client)->getInteractionID());
        EXPECT_STREQ(stub(back)->calleeAddr, "back.example");
        qz_serverAnalyzed(back);
        EXPECT_EQ(qz_readHeader("Flow=other;", back), 0) << "too late";
        end(back);
    });
    qz_free(header);
    ServerInteractionStruct* joined = qz_createServer();
    siSetGroupName(joined, "g");
    qz_serverJoin(joined, front->interaction);
    EXPECT_STREQ(flow(joined)->flowID, flow(front)->flowID);
    EXPECT_TRUE(objectOf(joined)->getInteractionID() == objectOf(front)->getInteractionID());
    qz_serverJoin(joined, nullptr);
    end(joined);
    qz_endClient(client);
    EXPECT_EQ(qz_writeHeader(client, 0), nullptr);
    freeClientInteraction(client);
    end(front);
}

TEST_F(Propagation, ASplitGoesOnElsewhereAndReportsNothing) {
    ServerInteractionStruct* record = server();
    char* block = qz_splitServer(record, nullptr);
    ASSERT_NE(block, nullptr) << "who needs no size gets the block all the same";
    EXPECT_EQ(objectOf(record)->itsState, 1);
    EXPECT_EQ(stub(record)->state, 0) << "the record is not refreshed";
    EXPECT_EQ(kinds(), "request ");
    const std::string id = objectOf(record)->getInteractionID().c_str();
    harness::onThreads([&] {
        ServerInteractionStruct* other = qz_beginServerSplit2(block);
        EXPECT_STREQ(flow(other)->flowID, flow(record)->flowID);
        EXPECT_TRUE(objectOf(other)->getInteractionID() == id.c_str());
        ClientInteractionStruct* client = qz_beginClient();
        ciSetUrl(client, "http://h/a/b");
        EXPECT_STREQ(flow(client)->parentID, id.c_str());
        end(client);
        end(other);
    });
    EXPECT_EQ(kinds(), "whole ") << "the client's event is the only one";
    qz_free(block);
    end(record);
    EXPECT_EQ(kinds(), "reply ");
}

TEST_F(Propagation, ASiteTravelsAsOneBlock) {
    SiteStubStruct* site = newSiteStub();
    site->opName = qz_strdup("op");
    site->opID = qz_strdup("left behind");
    site->svcType = -2;
    site->continuation = 1;
    site->flow->pPathID = qz_strdup("last");
    unsigned size = 0;
    char* block = serializeSiteStub(site, &size);
    EXPECT_EQ(size, 27U + 6);
    SiteStubStruct* back = deserializeSiteStub(block, nullptr);
    EXPECT_STREQ(back->opName, "op");
    EXPECT_EQ(back->opID, nullptr);
    EXPECT_STREQ(back->url, "") << "null comes back empty";
    EXPECT_EQ(back->svcType, -2);
    EXPECT_EQ(back->continuation, 1);
    EXPECT_STREQ(back->flow->pPathID, "last");
    qz_free(block);
    freeSiteStub(site);
    freeSiteStub(back);
    EXPECT_EQ(serializeSiteStub(nullptr, &size), nullptr);
    EXPECT_EQ(strlencustom(nullptr), 0U);
}

TEST_F(Propagation, ASubRequestIsAPairInsideItsServer) {
    void* client = &client;
    void* inner = &inner;
    qz_createSubRequest("op", &client, &inner);
    EXPECT_TRUE(client == nullptr && inner == nullptr) << "no server on the thread";
    ServerInteractionStruct* record = server();
    siSetPeerAddr(record, "peer");
    qz_createSubRequest("sub", &client, &inner);
    auto* pair = static_cast<ServerInteraction*>(inner);
    EXPECT_TRUE(pair->getUpstreamInteractionID() ==
                static_cast<ClientInteraction*>(client)->getInteractionID());
    EXPECT_TRUE(pair->getFlowID() == flow(record)->flowID);
    EXPECT_TRUE(pair->getOpName() == "sub");
    EXPECT_TRUE(pair->itsOpID == static_cast<ClientInteraction*>(client)->itsOpID)
        << "both halves derive the id of the name they were given";
    EXPECT_FALSE(pair->itsOpID == objectOf(record)->itsOpID);
    qz_endSubRequest(client, inner);
    end(record);
    EXPECT_EQ(kinds(), "request request request reply reply reply ");
}

TEST_F(Propagation, ASubRequestThatThrowsLeavesWhatCanBeEnded) {
    ServerInteractionStruct* record = server();
    qz_serverAnalyzed(record);
    EXPECT_THROW(siSetGroupID(record, std::string(40, 'x').c_str()), Util::APIException*);
    qz_applyCallerToRealServerInteraction(record);
    void* client = nullptr;
    void* inner = &inner;
    EXPECT_THROW(qz_createSubRequest("sub", &client, &inner), Util::APIException*);
    ASSERT_NE(client, nullptr);
    EXPECT_EQ(inner, nullptr);
    ClientInteractionStruct* made = qz_getClient();
    EXPECT_NE(made, nullptr);
    qz_endSubRequest(client, inner);
    EXPECT_EQ(qz_getClient(), nullptr);
    freeClientInteraction(made);
    end(record);
    EXPECT_EQ(kinds(), "request whole reply ");
}

}  // namespace
