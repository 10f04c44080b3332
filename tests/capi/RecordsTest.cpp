#include "capi/records.h"

#include "harness/test.h"

namespace Quenvale::Interceptor::SDK {
namespace {

TEST(Records, EqualTextsStayEmptyOnesAreNoneAndAStandAloneSiteOwnsItsObject) {
    char* text = nullptr;
    assignStr(&text, "abc");
    const char* first = text;
    assignStr(&text, "abc");
    EXPECT_EQ(text, first);
    assignStr(&text, "");
    EXPECT_EQ(text, nullptr);
    assignStr(&text, Util::String::NIL);
    EXPECT_EQ(text, nullptr);

    SiteStubStruct* record = newSiteStub();
    record->groupID = qz_strdup("a group id that is far longer than the 32 characters allowed");
    SiteStub* object = toSiteStub(record, nullptr);
    EXPECT_EQ(record->flow->impl, static_cast<FlowStub*>(object));
    EXPECT_EQ(toSiteStub(record, nullptr), object);
    EXPECT_TRUE(object->itsGroupID == record->groupID) << "a direct store, not checked";
    freeSiteStub(record);
}

// The fields of an object in the order of the record's. Only that tells two fields that were
// swapped in both directions.
using Text = Util::String InteractionStub::*;
using Size = long long InteractionStub::*;
using Type = short InteractionStub::*;
using Flag = bool InteractionStub::*;
const Text kCallTexts[] = {&InteractionStub::itsFailure,        &InteractionStub::itsSecurityID,
                           &InteractionStub::itsSecurityAttr1,  &InteractionStub::itsSecurityAttr2,
                           &InteractionStub::itsLocus,          &InteractionStub::itsDebugInfo,
                           &InteractionStub::itsTrustSignature, &InteractionStub::itsCallerAddr,
                           &InteractionStub::itsCalleeAddr};
const Text kSiteTexts[] = {
    &SiteStub::itsOpName,    &SiteStub::itsOpID,        &SiteStub::itsGroupName,
    &SiteStub::itsGroupID,   &SiteStub::itsServiceName, &SiteStub::itsServiceID,
    &SiteStub::itsUrl,       &SiteStub::itsSiteAttr,    &SiteStub::itsPeerAddr,
    &SiteStub::itsLocalAddr, &SiteStub::itsUpstreamOpID};
const Text kFlowTexts[] = {&FlowStub::itsFlowID,    &FlowStub::itsParentID, &FlowStub::itsFlowAttr1,
                           &FlowStub::itsFlowAttr2, &FlowStub::itsSubNode,  &FlowStub::itsPathID,
                           &FlowStub::itsPPathID};
const Size kSizes[] = {&InteractionStub::itsMsgSize, &InteractionStub::itsSizeB,
                       &InteractionStub::itsSizeC, &InteractionStub::itsSizeD,
                       &InteractionStub::itsTrustTimestamp};
const Type kTypes[] = {&SiteStub::itsPeerType, &SiteStub::itsAppType, &SiteStub::itsSvcType,
                       &SiteStub::itsOpType};
const Flag kFlags[] = {&InteractionStub::itIsLowPriority, &InteractionStub::itIsInternal,
                       &InteractionStub::itsCreateFlag,   &InteractionStub::itsEventFlag,
                       &InteractionStub::itIsFailed,      &InteractionStub::itIsOneWay,
                       &InteractionStub::itsClientFlag,   &InteractionStub::itIsSplit};

TEST(Records, EveryFieldTravelsBothWays) {
    InteractionStubStruct* in = newInteractionStub();
    InteractionStub object;
    int number = 0;
    auto fill = [&](char** first, int count) {
        for (int i = 0; i < count; ++i)
            first[i] = qz_strdup(("t" + std::to_string(++number)).c_str());
    };
    fill(&in->failure, 10);
    fill(&in->site->opName, 11);
    fill(&in->site->flow->flowID, 7);
    for (int i = 0; i < 5; ++i) (&in->size)[i] = 1LL << (40 + i);
    for (short i = 0; i < 4; ++i) (&in->site->peerType)[i] = static_cast<short>(-11 - i);
    in->state = 2;
    in->site->continuation = 7;
    toInteractionStub(in, &object);
    InteractionStubStruct* out = fromInteractionStub(&object, nullptr);

    auto same = [&](char* const* from, const auto& fields, char* const* to) {
        for (const Text field : fields) {
            EXPECT_STREQ((object.*field).c_str(), *from);
            EXPECT_STREQ(*to++, *from++);
        }
    };
    same(&in->failure, kCallTexts, &out->failure);
    same(&in->site->opName, kSiteTexts, &out->site->opName);
    same(&in->site->flow->flowID, kFlowTexts, &out->site->flow->flowID);
    EXPECT_EQ(object.itsPayloadContentType.c_str(), nullptr) << "through the accessors only";
    EXPECT_EQ(out->payloadContentType, nullptr);
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(object.*kSizes[i], 1LL << (40 + i));
        EXPECT_EQ((&out->size)[i], 1LL << (40 + i));
    }
    for (int i = 0; i < 4; ++i) {
        EXPECT_EQ(object.*kTypes[i], -11 - i);
        EXPECT_EQ((&out->site->peerType)[i], -11 - i);
    }
    EXPECT_TRUE(object.itsState == 2 && out->state == 2);
    EXPECT_TRUE(object.itIsContinuation);
    EXPECT_EQ(out->site->continuation, 1);
    EXPECT_EQ(out->site->flow->impl, static_cast<FlowStub*>(&object));

    for (int set = 0; set < 8; ++set) {
        SCOPED_TRACE(set);
        for (int i = 0; i < 8; ++i) (&in->lowPriority)[i] = i == set ? -5 : 0;
        toInteractionStub(in, &object);
        fromInteractionStub(&object, out);
        for (int i = 0; i < 8; ++i) {
            EXPECT_EQ(object.*kFlags[i], i == set);
            EXPECT_EQ((&out->lowPriority)[i], i == set ? 1 : 0);
        }
    }
    freeInteractionStub(out);
    freeInteractionStub(in);
}

}  // namespace
}  // namespace Quenvale::Interceptor::SDK
