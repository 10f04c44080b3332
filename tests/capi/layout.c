/* Where each field of each record stands, as C sees it. Interceptors that were built long ago read
 * and write these places. */
#include <stddef.h>

#include "capi/QZInt-c.h"

/* C99 has no static assertion: an array of -1 stops the compiler. */
#define CHECK(name, fact) typedef char name[(fact) ? 1 : -1]
#define RECORD(type, bytes) CHECK(sizeof_##type, sizeof(type) == (bytes))
#define FIELD(type, field, at, bytes) \
    CHECK(type##_##field, offsetof(type, field) == (at) && sizeof(((type*)0)->field) == (bytes))
/* Fields of one width, one behind the other. */
#define TWO(type, bytes, at, a, b) \
    FIELD(type, a, at, bytes);     \
    FIELD(type, b, (at) + (bytes), bytes)
#define FOUR(type, bytes, at, a, b, c, d) \
    TWO(type, bytes, at, a, b);           \
    TWO(type, bytes, (at) + 2 * (bytes), c, d)

RECORD(FlowStubStruct, 64);
FOUR(FlowStubStruct, 8, 0, flowID, parentID, flowAttr1, flowAttr2);
FOUR(FlowStubStruct, 8, 32, subNode, pathID, pPathID, impl);

RECORD(SiteStubStruct, 112);
FOUR(SiteStubStruct, 8, 0, opName, opID, groupName, groupID);
FOUR(SiteStubStruct, 8, 32, serviceName, serviceID, url, siteAttr);
TWO(SiteStubStruct, 8, 64, peerAddr, localAddr);
FIELD(SiteStubStruct, upstreamOpID, 80, 8);
FOUR(SiteStubStruct, 2, 88, peerType, appType, svcType, opType);
FIELD(SiteStubStruct, continuation, 96, 4);
FIELD(SiteStubStruct, flow, 104, 8);

RECORD(InteractionStubStruct, 176);
FOUR(InteractionStubStruct, 8, 0, failure, securityID, securityAttr1, securityAttr2);
FOUR(InteractionStubStruct, 8, 32, locus, debugInfo, trustSignature, callerAddr);
FOUR(InteractionStubStruct, 8, 64, calleeAddr, payloadContentType, size, sizeB);
TWO(InteractionStubStruct, 8, 96, sizeC, sizeD);
FIELD(InteractionStubStruct, trustTimestamp, 112, 8);
FOUR(InteractionStubStruct, 4, 120, state, lowPriority, internal, createFlag);
FOUR(InteractionStubStruct, 4, 136, eventFlag, failed, oneWay, clientFlag);
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
