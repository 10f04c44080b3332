// The calls of the C interface down to the uplink.
#include "capi/Fixture.h"

#include <cerrno>

namespace {

using namespace Quenvale::Interceptor::SDK;
using harness::RecordingUplink;

const unsigned char kOne[] = "one", kReply[] = "reply";

struct Calls : harness::RecordTest {};

TEST_F(Calls, AServerReportsRequestAndReply) {
    ServerInteractionStruct* record = server();
    EXPECT_NE(flow(record)->flowID, nullptr) << "the first record holds a flow id";
    qz_serverAnalyzed(record);
    EXPECT_EQ(stub(record)->state, 1);
    EXPECT_EQ(taken(siGetGroupName(record)), "shop");
    EXPECT_EQ(taken(siGetOpID(record)).size(), 24U) << "the ids come back to the record";
    siSetSize(record, 1LL << 33);
    siSetFailure(record, "bad");
    qz_free(stub(record)->site->url);
    stub(record)->site->url = qz_strdup("changed too late");
    qz_endServer(record);
    const auto got = reports();
    ASSERT_EQ(got.size(), 2U);
    EXPECT_EQ(got[0].kind() + " " + got[1].kind() + " " + got[1].failure, "request reply bad");
    EXPECT_EQ(got[1].msgSize, 1LL << 33);
    EXPECT_EQ(got[1].url, "http://h/shop/cart");
    EXPECT_EQ(flow(record)->impl, nullptr);
    EXPECT_EQ(siGetSize(record, nullptr), 1LL << 33) << "the record still answers";
    siSetUrl(record, "x");
    EXPECT_EQ(taken(siGetUrl(record)), "changed too late");
    siSetFailure(record, "late");
    EXPECT_EQ(taken(siGetFailure(record)), "late") << "this one needs no object";
    qz_serverAnalyzed(record);
    end(record);
    EXPECT_EQ(kinds(), "");
}

TEST_F(Calls, AClientInsideAServerPushesItsRequestOut) {
    ServerInteractionStruct* record = server();
    ClientInteractionStruct* client = qz_beginClient();
    ciSetUrl(client, "http://back/db/rows");
    EXPECT_STREQ(flow(client)->flowID, flow(record)->flowID);
    qz_clientAnalyzed(client);
    end(client);
    // The record was not told that the stage was passed, so pushing it takes the object back.
    qz_serverAnalyzed(record);
    end(record);
    EXPECT_EQ(kinds(), "request request reply request reply ");
}

TEST_F(Calls, TwoBeginsInTheRequestStageShareTheObject) {
    ServerInteractionStruct* first = server();
    ServerInteractionStruct* second = qz_beginServer();
    EXPECT_EQ(objectOf(first), objectOf(second));
    EXPECT_EQ(qz_getServer(), second) << "the map holds the later record";
    end(second);
    EXPECT_EQ(kinds(), "") << "the end that comes first ends the object without a report";
    EXPECT_EQ(qz_getServer(), nullptr) << "nothing leads to it any more";
    freeServerInteraction(first);
}

TEST_F(Calls, CreateIsNewAndGetFindsTheInnermost) {
    ServerInteractionStruct* outer = server();
    ServerInteractionStruct* inner = qz_createServer();
    stub(inner)->failure = qz_strdup("unpushed");
    EXPECT_EQ(qz_getServer(), inner);
    EXPECT_EQ(stub(inner)->failure, nullptr) << "a refresh overwrites what was not pushed";
    harness::onThreads([] { EXPECT_EQ(qz_getServer(), nullptr); });
    siSetUrl(inner, "http://h/a/b");
    end(inner);
    EXPECT_EQ(qz_getServer(), outer);
    ClientInteractionStruct* client = qz_createClient();
    EXPECT_EQ(qz_getClient(), client) << "neither kind hides the other";
    EXPECT_EQ(qz_getServer(), outer);
    ciSetGroupName(client, "g");
    end(client);
    end(outer);

    ServerInteraction* object = ServerInteraction::create(Util::String::NIL);
    ServerInteractionStruct* made = qz_getServer();
    EXPECT_EQ(objectOf(made), object) << "a record that is missing is made";
    EXPECT_EQ(qz_getServer(), made);
    siSetGroupName(made, "g");
    end(made);
}

TEST_F(Calls, WhatWasWrittenDirectlyIsAppliedOnDemandAndAtTheEnd) {
    ServerInteractionStruct* record = server();
    Interaction* object = objectOf(record);
    // As a caller without our helpers does it.
    std::free(stub(record)->site->url);
    stub(record)->site->url = ::strdup("http://h/other/page");
    qz_applyCallerToRealServerInteraction(record);
    EXPECT_TRUE(object->getUrl() == "http://h/other/page");
    stub(record)->site->opName = qz_strdup("direct");
    qz_endServer(record);
    qz_applyCallerToRealServerInteraction(record);
    freeServerInteraction(record);
    const auto got = reports();
    ASSERT_EQ(got.size(), 1U);
    EXPECT_EQ(got[0].kind() + " " + got[0].opName, "whole direct");
}

TEST_F(Calls, AGroupThatCannotBeNamedIsThrownAndTheObjectStays) {
    ServerInteractionStruct* record = qz_beginServer();
    for (auto call : {qz_serverAnalyzed, qz_endServer, qz_endServer}) {
        try {
            call(record);
            FAIL() << "nothing thrown";
        } catch (const char* text) {
            EXPECT_STREQ(text, "You must provide a name for the application.");
        }
    }
    EXPECT_EQ(kinds(), "");
    siSetGroupName(record, "g");
    end(record);
    EXPECT_EQ(kinds(), "whole ");

    record = qz_beginServer();
    siSetPayload(record, kOne, 3);
    EXPECT_THROW(siSetPayload(record, kReply, 5), const char*) << "it reports the request";
    EXPECT_EQ(heldBy(record), "one");
    siSetGroupName(record, "g");
    end(record);
    record = qz_beginServer();
    EXPECT_THROW(qz_createClient(), const char*) << "so does this";
    siSetGroupName(record, "g");
    end(record);
}

TEST_F(Calls, ASecondPayloadSendsTheRequestWithTheFirst) {
    ServerInteractionStruct* record = server();
    siSetPayload(record, kOne, 3);
    EXPECT_EQ(siGetSize(record, nullptr), 3);
    siSetPayload(record, kReply, 5);
    const auto got = reports();
    ASSERT_EQ(got.size(), 1U);
    EXPECT_EQ(got[0].payload, "one");
    EXPECT_EQ(heldBy(record), "reply");
    siSetPayload(record, kReply, 0);
    EXPECT_EQ(siGetPayload(record), nullptr);
    EXPECT_EQ(siGetSize(record, nullptr), 0);
    end(record);
    // The record's stage was never refreshed, so the end call goes by the object's.
    EXPECT_EQ(kinds(), "reply ");
}

TEST_F(Calls, NullRecordsAndNullTexts) {
    ServerInteractionStruct* none = nullptr;
    qz_serverAnalyzed(none);
    qz_endServer(none);
    qz_serverJoin(none, nullptr);
    siSetUrl(none, "x");
    siSetSize(none, 1);
    siSetPayload(none, nullptr, 0);
    siSetMsgField(none, "a", "b", 1);
    EXPECT_EQ(siGetUrl(none), nullptr);
    EXPECT_EQ(siGetPeerType(none), 0);
    EXPECT_EQ(siGetSize(none, nullptr), 0);
    EXPECT_EQ(siGetPayload(none), nullptr);
    EXPECT_EQ(siGetMsgField(none, "a"), nullptr);
    EXPECT_EQ(qz_readHeader("Flow=a;", none), 0);
    EXPECT_EQ(qz_writeHeader(nullptr, 1), nullptr);
    EXPECT_EQ(qz_split(nullptr, nullptr), nullptr);
    EXPECT_EQ(qz_splitServer(none, nullptr), nullptr);
    qz_freePayload(nullptr);
    freeServerInteraction(nullptr);
    freeClientInteraction(nullptr);
    freeInteraction(nullptr);
    freeInteractionStub(nullptr);
    freeSiteStub(nullptr);
    freeFlowStub(nullptr);

    ServerInteractionStruct* record = server();
    siSetUrl(record, nullptr);
    EXPECT_EQ(siGetUrl(record), nullptr);
    EXPECT_EQ(objectOf(record)->getUrl().c_str(), nullptr);
    siSetGroupName(record, "g");
    siSetMsgField(record, nullptr, "v", 1);
    EXPECT_EQ(siGetMsgField(record, nullptr), nullptr);
    end(record);
}

TEST_F(Calls, AccessorsWriteRecordAndObjectTogether) {
    ServerInteractionStruct* record = server();
    Interaction* object = objectOf(record);
    siSetOneWay(record, 7);
    EXPECT_TRUE(siGetOneWay(record) == 7 && object->itIsOneWay);
    siSetSvcType(record, 0x1ffff);
    EXPECT_TRUE(siGetSvcType(record) == -1 && object->itsSvcType == -1);
    siSetPayloadContentType(record, "text/plain");
    EXPECT_EQ(siGetPayloadContentType(record), stub(record)->payloadContentType);
    siSetMsgField(record, "name", "first", 0);
    siSetMsgField(record, "name", "second", 0);
    EXPECT_EQ(taken(siGetMsgField(record, "name")), "first");
    siSetMsgField(record, "name", "", 1);
    EXPECT_EQ(taken(siGetMsgField(record, "name")), "first");
    EXPECT_EQ(siGetMsgField(record, "other"), nullptr);
    siAddFlowFieldToPropagate(record, "f", "v", 1);
    EXPECT_EQ(taken(siGetFlowFieldToPropagate(record, "f")), "v");
    EXPECT_THROW(siSetGroupID(record, "a\tb"), Util::APIException*);
    EXPECT_EQ(taken(siGetGroupID(record)), "a\tb") << "the record holds the refused text";
    EXPECT_TRUE(object->itsGroupID.empty());
    siSetGroupID(record, "ok");
    end(record);
}

// What the analysed call brings back is all that a whole refresh would.
TEST_F(Calls, AnAnalysedCallLeavesNothingToRefresh) {
    ServerInteractionStruct* outer = server();
    ClientInteractionStruct* record = qz_beginClient();
    InteractionStubStruct* held = stub(record);
    ciSetUrl(record, "http://h/shop/cart");
    ciSetPayload(record, kOne, 3);
    held->sizeC = 5;
    ciSetOneWay(record, 7);
    ciSetLowPriority(record, -2);
    held->split = held->internal = held->createFlag = held->site->continuation = 3;
    qz_free(flow(record)->flowID);
    flow(record)->flowID = nullptr;
    qz_clientAnalyzed(record);

    const InteractionStubStruct before = *held;
    const SiteStubStruct site = *held->site;
    const FlowStubStruct flowBefore = *flow(record);
    fromClientInteraction(static_cast<ClientInteraction*>(objectOf(record)), record);
    EXPECT_EQ(std::memcmp(&before, held, sizeof before), 0);
    EXPECT_EQ(std::memcmp(&site, held->site, sizeof site), 0);
    EXPECT_EQ(std::memcmp(&flowBefore, flow(record), sizeof flowBefore), 0);
    EXPECT_EQ(ciGetOneWay(record) + ciGetLowPriority(record) + held->split, 3);
    EXPECT_EQ(held->sizeC, 0);
    end(record);
    end(outer);
}

TEST_F(Calls, OneCallCanTakeTheQueueOfAnother) {
    // Made first, so that it inherits nothing.
    ClientInteractionStruct* client = qz_createClient();
    ciSetUrl(client, "http://h/a/b");
    ServerInteractionStruct* parent = server();
    qz_copyUplinkToClient(parent, client);
    EXPECT_EQ(objectOf(client)->itsUplinkData, nullptr) << "nothing is attached before a report";
    qz_serverAnalyzed(parent);
    qz_copyUplinkToClient(parent, client);
    ServerInteractionStruct* other = qz_createServer();
    siSetUrl(other, "http://h/a/b");
    qz_copyUplinkToServer(client, other);
    end(other);
    end(parent);
    qz_endClient(client);
    qz_copyUplinkToClient(client, client);
    freeClientInteraction(client);
    const auto got = reports();
    ASSERT_EQ(got.size(), 4U);
    for (const auto& report : got) EXPECT_EQ(report.queue, got[0].queue);

    const int before = RecordingUplink::instance().flushes;
    errno = 77;
    qz_flushUplink();
    EXPECT_EQ(errno, 77) << "a flush keeps it";
    EXPECT_EQ(RecordingUplink::instance().flushes, before + 1);
}

}  // namespace
