/* Where each field of each record stands, as C sees it. Interceptors that were built long ago read
 * and write these places. */
#include <stddef.h>

#include "capi/QZInt-c.h"

/* C99 has no static assertion: an array of -1 stops the compiler. */
#define CHECK(name, fact) typedef char name[(fact) ? 1 : -1]
#define RECORD(type, bytes) CHECK(sizeof_##type, sizeof(type) == (bytes))
#define FIELD(type, field, at, bytes) \
    CHECK(type##_##field, offsetof(type, field) == (at) && sizeof(((type*)0)->field) == (bytes))

RECORD(FlowStubStruct, 64);
FIELD(FlowStubStruct, flowID, 0, 8);
FIELD(FlowStubStruct, parentID, 8, 8);
FIELD(FlowStubStruct, flowAttr1, 16, 8);
FIELD(FlowStubStruct, flowAttr2, 24, 8);
FIELD(FlowStubStruct, subNode, 32, 8);
FIELD(FlowStubStruct, pathID, 40, 8);
FIELD(FlowStubStruct, pPathID, 48, 8);
FIELD(FlowStubStruct, impl, 56, 8);

RECORD(SiteStubStruct, 112);
FIELD(SiteStubStruct, opName, 0, 8);
FIELD(SiteStubStruct, opID, 8, 8);
FIELD(SiteStubStruct, groupName, 16, 8);
FIELD(SiteStubStruct, groupID, 24, 8);
FIELD(SiteStubStruct, serviceName, 32, 8);
FIELD(SiteStubStruct, serviceID, 40, 8);
FIELD(SiteStubStruct, url, 48, 8);
FIELD(SiteStubStruct, siteAttr, 56, 8);
FIELD(SiteStubStruct, peerAddr, 64, 8);
FIELD(SiteStubStruct, localAddr, 72, 8);
FIELD(SiteStubStruct, upstreamOpID, 80, 8);
FIELD(SiteStubStruct, peerType, 88, 2);
FIELD(SiteStubStruct, appType, 90, 2);
FIELD(SiteStubStruct, svcType, 92, 2);
FIELD(SiteStubStruct, opType, 94, 2);
FIELD(SiteStubStruct, continuation, 96, 4);
FIELD(SiteStubStruct, flow, 104, 8);

RECORD(InteractionStubStruct, 176);
FIELD(InteractionStubStruct, failure, 0, 8);
FIELD(InteractionStubStruct, securityID, 8, 8);
FIELD(InteractionStubStruct, securityAttr1, 16, 8);
FIELD(InteractionStubStruct, securityAttr2, 24, 8);
FIELD(InteractionStubStruct, locus, 32, 8);
FIELD(InteractionStubStruct, debugInfo, 40, 8);
FIELD(InteractionStubStruct, trustSignature, 48, 8);
FIELD(InteractionStubStruct, callerAddr, 56, 8);
FIELD(InteractionStubStruct, calleeAddr, 64, 8);
FIELD(InteractionStubStruct, payloadContentType, 72, 8);
FIELD(InteractionStubStruct, size, 80, 8);
FIELD(InteractionStubStruct, sizeB, 88, 8);
FIELD(InteractionStubStruct, sizeC, 96, 8);
FIELD(InteractionStubStruct, sizeD, 104, 8);
FIELD(InteractionStubStruct, trustTimestamp, 112, 8);
FIELD(InteractionStubStruct, state, 120, 4);
FIELD(InteractionStubStruct, lowPriority, 124, 4);
FIELD(InteractionStubStruct, internal, 128, 4);
FIELD(InteractionStubStruct, createFlag, 132, 4);
FIELD(InteractionStubStruct, eventFlag, 136, 4);
FIELD(InteractionStubStruct, failed, 140, 4);
FIELD(InteractionStubStruct, oneWay, 144, 4);
FIELD(InteractionStubStruct, clientFlag, 148, 4);
FIELD(InteractionStubStruct, split, 152, 4);
FIELD(InteractionStubStruct, reserved, 156, 12);
FIELD(InteractionStubStruct, site, 168, 8);

RECORD(InteractionStruct, 8);
FIELD(InteractionStruct, stub, 0, 8);
RECORD(ServerInteractionStruct, 8);
FIELD(ServerInteractionStruct, interaction, 0, 8);
RECORD(ClientInteractionStruct, 8);
FIELD(ClientInteractionStruct, interaction, 0, 8);

RECORD(PayloadStruct, 16);
FIELD(PayloadStruct, data, 0, 8);
FIELD(PayloadStruct, size, 8, 4);
