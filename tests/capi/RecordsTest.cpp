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
using Stub = InteractionStub;
using Text = Util::String Stub::*;
using Size = long long Stub::*;
using Type = short Stub::*;
using Flag = bool Stub::*;
const Text kCallTexts[] = {&Stub::itsFailure,        &Stub::itsSecurityID, &Stub::itsSecurityAttr1,
                           &Stub::itsSecurityAttr2,  &Stub::itsLocus,      &Stub::itsDebugInfo,
                           &Stub::itsTrustSignature, &Stub::itsCallerAddr, &Stub::itsCalleeAddr};
const Text kSiteTexts[] = {&Stub::itsOpName,    &Stub::itsOpID,        &Stub::itsGroupName,
                           &Stub::itsGroupID,   &Stub::itsServiceName, &Stub::itsServiceID,
                           &Stub::itsUrl,       &Stub::itsSiteAttr,    &Stub::itsPeerAddr,
                           &Stub::itsLocalAddr, &Stub::itsUpstreamOpID};
const Text kFlowTexts[] = {&Stub::itsFlowID,    &Stub::itsParentID, &Stub::itsFlowAttr1,
                           &Stub::itsFlowAttr2, &Stub::itsSubNode,  &Stub::itsPathID,
                           &Stub::itsPPathID};
const Size kSizes[] = {&Stub::itsMsgSize, &Stub::itsSizeB, &Stub::itsSizeC, &Stub::itsSizeD,
                       &Stub::itsTrustTimestamp};
const Type kTypes[] = {&Stub::itsPeerType, &Stub::itsAppType, &Stub::itsSvcType, &Stub::itsOpType};
const Flag kFlags[] = {&Stub::itIsLowPriority, &Stub::itIsInternal, &Stub::itsCreateFlag,
                       &Stub::itsEventFlag,    &Stub::itIsFailed,   &Stub::itIsOneWay,
                       &Stub::itsClientFlag,   &Stub::itIsSplit};

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
    for (int i = 0; i < 5; ++i)
        EXPECT_TRUE(object.*kSizes[i] == 1LL << (40 + i) && (&out->size)[i] == 1LL << (40 + i));
    for (int i = 0; i < 4; ++i)
        EXPECT_TRUE(object.*kTypes[i] == -11 - i && (&out->site->peerType)[i] == -11 - i);
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
