#include "capi/records.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>

namespace Quenvale::Interceptor::SDK {
namespace {

TEST(Records, NewOnesNestAndAreEmpty) {
    InteractionStubStruct* stub = newInteractionStub();
    const SiteStubStruct* site = stub->site;
    const FlowStubStruct* flow = site->flow;
    InteractionStubStruct none = {};
    none.site = stub->site;
    EXPECT_EQ(std::memcmp(stub, &none, sizeof none), 0);
    EXPECT_EQ(site->opName, nullptr);
    EXPECT_EQ(flow->impl, nullptr);
    freeInteractionStub(stub);
    freeServerInteraction(newServerInteraction());
    freeClientInteraction(newClientInteraction());
    freeServerInteraction(nullptr);
    freeClientInteraction(nullptr);
    freeInteraction(nullptr);
    freeInteractionStub(nullptr);
    freeSiteStub(nullptr);
    freeFlowStub(nullptr);
}

TEST(Records, AssignKeepsEqualTextsAndStoresNoEmptyOne) {
    char* text = nullptr;
    assignStr(&text, "abc");
    const char* first = text;
    assignStr(&text, "abc");
    EXPECT_EQ(text, first);
    assignStr(&text, "");
    EXPECT_EQ(text, nullptr);
    assignStr(&text, Util::String::NIL);
    EXPECT_EQ(text, nullptr);
}

TEST(Records, AStandAloneSiteOwnsItsObject) {
    SiteStubStruct* record = newSiteStub();
    record->opName = qz_strdup("get");
    record->groupID = qz_strdup("a group id that is far longer than the 32 characters allowed");
    record->continuation = 5;
    record->svcType = -3;
    record->flow->pPathID = qz_strdup("p");
    SiteStub* object = toSiteStub(record, nullptr);
    EXPECT_EQ(record->flow->impl, static_cast<FlowStub*>(object));
    EXPECT_EQ(toSiteStub(record, nullptr), object);
    EXPECT_TRUE(object->itsOpName == "get" && object->itsPPathID == "p");
    EXPECT_TRUE(object->itsGroupID == record->groupID) << "a direct store, not checked";
    EXPECT_TRUE(object->itIsContinuation);
    EXPECT_EQ(object->itsSvcType, -3);
    freeSiteStub(record);
}

// Every field goes over and comes back, the two that the record does not carry excepted.
TEST(Records, EveryFieldTravelsBothWays) {
    ClientInteractionStruct* in = newClientInteraction();
    InteractionStubStruct* stub = in->interaction->stub;
    int number = 0;
    auto fill = [&](char** first, int count) {
        for (int i = 0; i < count; ++i)
            first[i] = qz_strdup(("t" + std::to_string(++number)).c_str());
    };
    fill(&stub->failure, 10);
    fill(&stub->site->opName, 11);
    fill(&stub->site->flow->flowID, 7);
    for (long long* size :
         {&stub->size, &stub->sizeB, &stub->sizeC, &stub->sizeD, &stub->trustTimestamp})
        *size = 1LL << (40 + number++);
    stub->state = 2;
    for (int* flag : {&stub->lowPriority, &stub->internal, &stub->createFlag, &stub->eventFlag,
                      &stub->failed, &stub->oneWay, &stub->clientFlag, &stub->split})
        *flag = 1;
    stub->site->peerType = 11;
    stub->site->appType = 12;
    stub->site->svcType = 13;
    stub->site->opType = 14;
    stub->site->continuation = 1;

    SiteStub bare;
    InteractionStub object;
    toInteractionStub(stub, &object);
    EXPECT_EQ(object.itsPayloadContentType.c_str(), nullptr) << "through the accessors only";
    InteractionStubStruct* out = fromInteractionStub(&object, nullptr);
    Util::nullify(&stub->payloadContentType, true);
    EXPECT_EQ(out->payloadContentType, nullptr);
    auto same = [](char* const* a, char* const* b, int count) {
        for (int i = 0; i < count; ++i) EXPECT_STREQ(a[i], b[i]) << "text " << i;
    };
    same(&stub->failure, &out->failure, 10);
    same(&stub->site->opName, &out->site->opName, 11);
    same(&stub->site->flow->flowID, &out->site->flow->flowID, 7);
    EXPECT_EQ(
        std::memcmp(&stub->size, &out->size,
                    offsetof(InteractionStubStruct, site) - offsetof(InteractionStubStruct, size)),
        0);
    EXPECT_EQ(std::memcmp(&stub->site->peerType, &out->site->peerType, 12), 0);
    EXPECT_EQ(out->site->flow->impl, static_cast<FlowStub*>(&object));
    freeInteractionStub(out);
    freeClientInteraction(in);
}

}  // namespace
}  // namespace Quenvale::Interceptor::SDK
