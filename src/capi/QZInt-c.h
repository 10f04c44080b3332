/** @file
 * What an interceptor written in C calls. C99 and C++17 compile it alike. Unless a call says
 * otherwise:
 *
 *   NULL      a null record does nothing and gives NULL or 0. A null text clears the value.
 *   Texts     8-bit, zero-terminated. One you pass is copied; one you are given is yours:
 *             qz_free() it.
 *   Records   yours until the matching free call. The object behind a record is gone after its
 *             end call; the record then still answers the getters.
 *   Fields    may be written directly, with texts from qz_strdup() or malloc(): the record
 *             releases them; free() the text that stood there. They reach the object at the next
 *             analysed or apply call, or at the end call of a request that was never analysed. A
 *             call that refreshes the record overwrites what has not got there yet.
 *   Threads   any thread; a record belongs to one thread at a time. Begin, create and get calls
 *             work on the calling thread's open interactions.
 *   Delivery  never reported: an event that can't be sent is dropped. The first report of a
 *             process waits for the first attempt to reach the agent.
 *   errno     is left as it was.
 *   THROWS    marks a call that lets a C++ exception through, of the type const char* or
 *             APIException*. Nothing here catches one; a C caller must avoid the cause named.
 *             Short of memory, any call may throw std::bad_alloc.
 *
 * The order of calls, for a request that comes in:
 *
 *     ServerInteractionStruct* call = qz_beginServer();
 *     siSetUrl(call, "http://shop.example/cart/add");
 *     siSetOpName(call, "POST");
 *     qz_serverAnalyzed(call);          // the request is known: it is reported
 *     siSetSize(call, bytesSent);
 *     qz_endServer(call);               // the reply is known: it is reported
 *     freeServerInteraction(call);
 *
 * and the same with Client for a request that goes out. A client begun while a server is open on
 * the thread belongs to that server's flow.
 */
#ifndef QZINT_C_H
#define QZINT_C_H

/** Marks what the library exports. */
#define QZ_C_API __attribute__((visibility("default")))

/** A few functions have C++ symbols. In C an assembler label leads to them. */
#ifdef __cplusplus
#define QZ_SYMBOL(name)
extern "C" {
#else
#define QZ_SYMBOL(name) __asm__(name)
#endif

/** @defgroup records Records
 * The order and the width of the fields are a contract with interceptors that are built separately.
 * A record nests the others, from ServerInteractionStruct or ClientInteractionStruct down to
 * FlowStubStruct. A text is NULL where there is none.
 * @{ */

/** What a call shares with its flow. */
typedef struct FlowStubStruct {
    char* flowID;    /* one for all calls of a flow; the first record of a call has it */
    char* parentID;  /* of a client or a split: its server's id */
    char* flowAttr1; /* your own, for the event; clients take it over */
    char* flowAttr2; /* the same */
    char* subNode;   /* starts as the server instance of the process */
    char* pathID;    /* the way that the flow took to here */
    char* pPathID;   /* the parent's */
    void* impl;      /* the object that the record mirrors; NULL once that is gone */
} FlowStubStruct;

/** What describes the site that is called. */
typedef struct SiteStubStruct {
    char* opName;         /* what is called, such as a method */
    char* opID;           /* derived where there is a url */
    char* groupName;      /* the application */
    char* groupID;        /* at most 32 printable characters, or derived */
    char* serviceName;    /* a part of the application */
    char* serviceID;      /* derived where you give none */
    char* url;            /* what the identifiers are derived from */
    char* siteAttr;       /* your own, for the event */
    char* peerAddr;       /* the other side of the connection */
    char* localAddr;      /* this side; NULL: the host's name serves */
    char* upstreamOpID;   /* of a server: its caller's operation */
    short peerType;       /* your own number, for the event */
    short appType;        /* 8 where you give no group name */
    short svcType;        /* 0 becomes -128 without an operation name */
    short opType;         /* your own number, for the event */
    int continuation;     /* of a server that goes on with a split: no report */
    FlowStubStruct* flow; /* never NULL */
} SiteStubStruct;

/** What describes this one call. */
typedef struct InteractionStubStruct {
    char* failure;            /* NULL: no failure; also read by the end calls */
    char* securityID;         /* who calls; it travels with a trust assertion */
    char* securityAttr1;      /* beside it, for the event */
    char* securityAttr2;      /* beside it; not sent */
    char* locus;              /* operation id of the server that the client is under */
    char* debugInfo;          /* the library's notes at log level 4, for the event */
    char* trustSignature;     /* as it came with the header */
    char* callerAddr;         /* as it came with the header */
    char* calleeAddr;         /* as it came with the header */
    char* payloadContentType; /* reaches the object through the accessors only */
    long long size;           /* bytes of the current message */
    long long sizeB;          /* your own number, for the event */
    long long sizeC;          /* the same; 0 again once reported */
    long long sizeD;          /* the same as sizeB */
    long long trustTimestamp; /* as it came; ms since 1970 */
    int state;                /* 0 request, 1 request analysed, 2 completed, 3 ended */
    int lowPriority;          /* a flag of the event */
    int internal;             /* not 0: never reported */
    int createFlag;           /* a flag of the event */
    int eventFlag;            /* a flag of the event */
    int failed;               /* goes into the reply, beside the failure */
    int oneWay;               /* no reply is due */
    int clientFlag;           /* kept; not sent */
    int split;                /* another thread goes on with the call */
    char reserved[12];        /* 0; neither read nor written */
    SiteStubStruct* site;     /* never NULL */
} InteractionStubStruct;

/** The record of a call of either kind, as qz_split() and qz_serverJoin() take it. */
typedef struct InteractionStruct {
    InteractionStubStruct* stub; /* never NULL */
} InteractionStruct;

/** A request that comes in. */
typedef struct ServerInteractionStruct {
    InteractionStruct* interaction; /* never NULL */
} ServerInteractionStruct;

/** A request that goes out. */
typedef struct ClientInteractionStruct {
    InteractionStruct* interaction; /* never NULL */
} ClientInteractionStruct;

/** A copy of a payload. Release it with qz_freePayload(). */
typedef struct PayloadStruct {
    unsigned char* data; /* a malloc block */
    int size;            /* bytes */
} PayloadStruct;

/** @} */

/** @defgroup memory Memory
 * @{ */

/** strdup() and free(). qz_strdup() of NULL gives NULL. */
QZ_C_API char* qz_strdup(const char* text);
QZ_C_API void qz_free(void* block);

/** Releases a payload record and its bytes. NULL does nothing. */
QZ_C_API void qz_freePayload(PayloadStruct* payload);

/** Records with every text NULL and every number 0, with the records inside them. A record made
 * here has no object; begin, create and get calls make the records of interactions. */
QZ_C_API FlowStubStruct* newFlowStub(void);
QZ_C_API SiteStubStruct* newSiteStub(void);
QZ_C_API InteractionStubStruct* newInteractionStub(void);
QZ_C_API InteractionStruct* newInteraction(void);
QZ_C_API ServerInteractionStruct* newServerInteraction(void);
QZ_C_API ClientInteractionStruct* newClientInteraction(void);

/** Release a record, its texts and the records inside it. NULL does nothing. The objects of
 * interactions are left alone: they go in the end calls. End a call before you free any record of
 * it, since the get calls lead to the record until then. freeSiteStub() is for a site record that
 * stands alone, and destroys the object it owns. */
QZ_C_API void freeFlowStub(FlowStubStruct* record);
QZ_C_API void freeSiteStub(SiteStubStruct* record);
QZ_C_API void freeInteractionStub(InteractionStubStruct* record);
QZ_C_API void freeInteraction(InteractionStruct* record);
QZ_C_API void freeServerInteraction(ServerInteractionStruct* record);
QZ_C_API void freeClientInteraction(ClientInteractionStruct* record);

/** @} */

/** @defgroup calls Calls
 * @{ */

/** The call that begins on this thread. An interaction of the thread that is still in its request
 * stage is the same call, seen by a second interceptor: it is returned with its count raised and a
 * record of its own. End such a call through one record only, and once: that end call destroys the
 * object, and all that may be done with its other records is to read and free them. It reports no
 * reply, since a begin is still open: an analysed call may be reported as one that never got its
 * reply, and any other goes unreported.
 *
 * A new client under an open server reports that server's request first. THROWS if that server
 * can't be given a group (see the analysed calls). */
QZ_C_API ServerInteractionStruct* qz_beginServer(void);
QZ_C_API ClientInteractionStruct* qz_beginClient(void);

/** Always a new interaction; otherwise like the begin calls. */
QZ_C_API ServerInteractionStruct* qz_createServer(void);
QZ_C_API ClientInteractionStruct* qz_createClient(void);

/** The record of the thread's innermost open interaction, refreshed from the object: what was
 * written into the record and not yet pushed is overwritten, the failure too. NULL if there is
 * none. The record is the one that the last begin or create call for that interaction returned;
 * don't free it twice. Only an interaction that was made in C++ gets a new one here, and keeps it
 * for the calls that follow. */
QZ_C_API ServerInteractionStruct* qz_getServer(void);
QZ_C_API ClientInteractionStruct* qz_getClient(void);

/** The request is known in full. Pushes the record to its object, fixes the identifiers, reports
 * the request and refreshes the record. Leave it out and the end call reports both sides at once.
 *
 * The stage is part of what is pushed. Where a client, a split or a second payload has reported the
 * request already, the record doesn't know, and the request is reported again: leave the call out
 * then, or let a get call refresh the record before it.
 *
 * THROWS the text "You must provide a name for the application." if there is neither a url nor a
 * group name or id; nothing is reported then. */
QZ_C_API void qz_serverAnalyzed(ServerInteractionStruct* server);
QZ_C_API void qz_clientAnalyzed(ClientInteractionStruct* client);

/** The reply is known. Reports it, and destroys the object; the record stays for reading. Once the
 * request was reported only the record's failure still counts, and it replaces the object's, also
 * when it is NULL: use the accessors for the other reply values. THROWS like the analysed calls;
 * the object then stays. */
QZ_C_API void qz_endServer(ServerInteractionStruct* server);
QZ_C_API void qz_endClient(ClientInteractionStruct* client);

/** Pushes the whole record to its object, `state` included. The record must not be NULL; one whose
 * object is gone does nothing. A push behind the analysed call logs warnings and still stores. */
QZ_C_API void qz_applyCallerToRealServerInteraction(ServerInteractionStruct* server);
QZ_C_API void qz_applyCallerToRealClientInteraction(ClientInteractionStruct* client);

/** Sends what is queued, now, on this thread. It may wait for the network. */
QZ_C_API void qz_flushUplink(void);

/** @} */

/** @defgroup accessors Accessors
 * A setter writes the record and the object together, and does nothing once the object is gone; a
 * getter reads the record. Values that belong to the request are late behind the analysed call:
 * they are stored, with a warning at log level 2.
 * @{ */

/** The address of the other side, as the agent is to show it. Of a client it also goes into the
 * header and, with the path of its server, into its path. */
QZ_C_API void siSetPeerAddr(ServerInteractionStruct* record, const char* text);
QZ_C_API char* siGetPeerAddr(ServerInteractionStruct* record);
QZ_C_API void ciSetPeerAddr(ClientInteractionStruct* record, const char* text);
QZ_C_API char* ciGetPeerAddr(ClientInteractionStruct* record);

/** The identifiers come from the url: the operation id always, out of the operation name and the
 * path; the service id and the group where you give none. The first call with a url and an
 * operation name decides the group and service id of the later ones with that pair. Without a url
 * what you give stands. */
QZ_C_API void siSetUrl(ServerInteractionStruct* record, const char* text);
QZ_C_API char* siGetUrl(ServerInteractionStruct* record);
QZ_C_API void ciSetUrl(ClientInteractionStruct* record, const char* text);
QZ_C_API char* ciGetUrl(ClientInteractionStruct* record);

/** What is called at the url, such as a method: a part of the operation id. */
QZ_C_API void siSetOpName(ServerInteractionStruct* record, const char* text);
QZ_C_API char* siGetOpName(ServerInteractionStruct* record);
QZ_C_API void ciSetOpName(ClientInteractionStruct* record, const char* text);
QZ_C_API char* ciGetOpName(ClientInteractionStruct* record);

/** With a url it is derived, over what you give. Once the identifiers are fixed a change is stored
 * all the same, with a further warning at log level 4. */
QZ_C_API void siSetOpID(ServerInteractionStruct* record, const char* text);
QZ_C_API char* siGetOpID(ServerInteractionStruct* record);
QZ_C_API void ciSetOpID(ClientInteractionStruct* record, const char* text);
QZ_C_API char* ciGetOpID(ClientInteractionStruct* record);

/** The application that the call belongs to. It comes from the url where you give none. */
QZ_C_API void siSetGroupName(ServerInteractionStruct* record, const char* text);
QZ_C_API char* siGetGroupName(ServerInteractionStruct* record);
QZ_C_API void ciSetGroupName(ClientInteractionStruct* record, const char* text);
QZ_C_API char* ciGetGroupName(ClientInteractionStruct* record);

/** At most 32 printable characters. THROWS an APIException* "Group ID is invalid: ..." otherwise,
 * for NULL too; the object keeps its value, but the record holds the text, and a push stores that
 * unchecked. */
QZ_C_API void siSetGroupID(ServerInteractionStruct* record, const char* text);
QZ_C_API char* siGetGroupID(ServerInteractionStruct* record);
QZ_C_API void ciSetGroupID(ClientInteractionStruct* record, const char* text);
QZ_C_API char* ciGetGroupID(ClientInteractionStruct* record);

/** The part of the application that the call belongs to, for the event. */
QZ_C_API void siSetServiceName(ServerInteractionStruct* record, const char* text);
QZ_C_API char* siGetServiceName(ServerInteractionStruct* record);
QZ_C_API void ciSetServiceName(ClientInteractionStruct* record, const char* text);
QZ_C_API char* ciGetServiceName(ClientInteractionStruct* record);

/** Derived from the url where you give none. A late change is stored like an operation id. */
QZ_C_API void siSetServiceID(ServerInteractionStruct* record, const char* text);
QZ_C_API char* siGetServiceID(ServerInteractionStruct* record);
QZ_C_API void ciSetServiceID(ClientInteractionStruct* record, const char* text);
QZ_C_API char* ciGetServiceID(ClientInteractionStruct* record);

/** The sub-node starts as the server instance of the process. Clients have no accessor for it. */
QZ_C_API void siSetSubNode(ServerInteractionStruct* record, const char* text);
QZ_C_API char* siGetSubNode(ServerInteractionStruct* record);

/** A number of your own for the other side, cut to 16 bits. */
QZ_C_API void siSetPeerType(ServerInteractionStruct* record, int value);
QZ_C_API int siGetPeerType(ServerInteractionStruct* record);
QZ_C_API void ciSetPeerType(ClientInteractionStruct* record, int value);
QZ_C_API int ciGetPeerType(ClientInteractionStruct* record);

/** Cut to 16 bits. It becomes 8 where you give no group name. */
QZ_C_API void siSetAppType(ServerInteractionStruct* record, int value);
QZ_C_API int siGetAppType(ServerInteractionStruct* record);
QZ_C_API void ciSetAppType(ClientInteractionStruct* record, int value);
QZ_C_API int ciGetAppType(ClientInteractionStruct* record);

/** Cut to 16 bits. 0 becomes -128 for a call without an operation name. */
QZ_C_API void siSetSvcType(ServerInteractionStruct* record, int value);
QZ_C_API int siGetSvcType(ServerInteractionStruct* record);
QZ_C_API void ciSetSvcType(ClientInteractionStruct* record, int value);
QZ_C_API int ciGetSvcType(ClientInteractionStruct* record);

/** A number of your own for the operation, cut to 16 bits. */
QZ_C_API void siSetOpType(ServerInteractionStruct* record, int value);
QZ_C_API int siGetOpType(ServerInteractionStruct* record);
QZ_C_API void ciSetOpType(ClientInteractionStruct* record, int value);
QZ_C_API int ciGetOpType(ClientInteractionStruct* record);

/** No reply is due. Not 0 is true; the record keeps the number as given. */
QZ_C_API void siSetOneWay(ServerInteractionStruct* record, int value);
QZ_C_API int siGetOneWay(ServerInteractionStruct* record);
QZ_C_API void ciSetOneWay(ClientInteractionStruct* record, int value);
QZ_C_API int ciGetOneWay(ClientInteractionStruct* record);

/** A flag for the agent, kept like one-way. */
QZ_C_API void siSetLowPriority(ServerInteractionStruct* record, int value);
QZ_C_API int siGetLowPriority(ServerInteractionStruct* record);
QZ_C_API void ciSetLowPriority(ClientInteractionStruct* record, int value);
QZ_C_API int ciGetLowPriority(ClientInteractionStruct* record);

/** Writes the record only; the object has it at the end call, or with a push before that. Works
 * without an object. */
QZ_C_API void siSetFailure(ServerInteractionStruct* record, const char* text);
QZ_C_API char* siGetFailure(ServerInteractionStruct* record);
QZ_C_API void ciSetFailure(ClientInteractionStruct* record, const char* text);
QZ_C_API char* ciGetFailure(ClientInteractionStruct* record);

/** The size of the current message in bytes: the request's before the analysed call, the reply's
 * behind it. The getters have C++ symbols and an argument that is not read: pass NULL. */
QZ_C_API void siSetSize(ServerInteractionStruct* record, long long size);
QZ_C_API void ciSetSize(ClientInteractionStruct* record, long long size);

/** The payload of the current message, copied; it sets the size too. NULL bytes or a size below 1
 * take the payload away. What follows a first payload, its removal too, is the reply's: a request
 * that was not yet reported goes out first, with the payload it had and without what was only
 * written into the record. THROWS then like the analysed calls. The agent decides by its
 * configuration whether payloads travel. siGetPayload() gives a copy, NULL if there is none or the
 * object is gone. */
QZ_C_API void siSetPayload(ServerInteractionStruct* record, const unsigned char* bytes, int size);
QZ_C_API PayloadStruct* siGetPayload(ServerInteractionStruct* record);
QZ_C_API void ciSetPayload(ClientInteractionStruct* record, const unsigned char* bytes, int size);
QZ_C_API PayloadStruct* ciGetPayload(ClientInteractionStruct* record);

/** Kept for reading back; it is not sent. The getters give the record's own text: don't free it. */
QZ_C_API void siSetPayloadContentType(ServerInteractionStruct* record, const char* text);
QZ_C_API char* siGetPayloadContentType(ServerInteractionStruct* record);
QZ_C_API void ciSetPayloadContentType(ClientInteractionStruct* record, const char* text);

/** Named values of the message, reported with each event of the call. An empty name or value is
 * ignored; without `overwrite` a name that is there keeps its value. The getters give NULL for a
 * name that isn't there. They live in the object only. */
QZ_C_API void siSetMsgField(ServerInteractionStruct* record, const char* name, const char* value,
                            int overwrite);
QZ_C_API char* siGetMsgField(ServerInteractionStruct* record, const char* name);
QZ_C_API void ciSetMsgField(ClientInteractionStruct* record, const char* name, const char* value,
                            int overwrite);
QZ_C_API char* ciGetMsgField(ClientInteractionStruct* record, const char* name);

/** Named values that travel with the flow to the next hops. The same rules. */
QZ_C_API void siAddFlowFieldToPropagate(ServerInteractionStruct* record, const char* name,
                                        const char* value, int overwrite);
QZ_C_API char* siGetFlowFieldToPropagate(ServerInteractionStruct* record, const char* name);
QZ_C_API void ciAddFlowFieldToPropagate(ClientInteractionStruct* record, const char* name,
                                        const char* value, int overwrite);
QZ_C_API char* ciGetFlowFieldToPropagate(ClientInteractionStruct* record, const char* name);

/** @} */

/** @defgroup header The context header
 * The one text that a request carries to the next process, under the name "QZ_Header" in whatever
 * slot its protocol offers.
 * @{ */

/** Reads the header that came with a request. It counts in the request stage only: call it before
 * the analysed call. 1 if the header was accepted, 0 if it is blank or late. The whole record is
 * refreshed, by a blank header too, so what was written into it and not yet pushed is lost; a late
 * header leaves everything alone. */
QZ_C_API int qz_readHeader(const char* text, ServerInteractionStruct* server);

/** The header to send with a request, or NULL when there is nothing to send: a call with neither a
 * peer address, nor a host in its url, nor flow fields, nor asserted trust has none. `trust` asks
 * for a trust assertion.
 *
 * Call it behind qz_clientAnalyzed() to have the client's event carry its operation and service
 * ids. In front of it the header fixes the ids on the object but brings only the two paths back
 * into the record, and the analysed call then pushes the record's empty ids over them. THROWS like
 * the analysed calls. */
QZ_C_API char* qz_writeHeader(ClientInteractionStruct* client, int trust);

/** @} */

/** @defgroup splits Splits
 * A server call that another thread or process goes on with.
 * @{ */

/** What the other thread needs. The server passes its request stage; the record given is not
 * refreshed. Release the result with freeSiteStub(). The second argument is not used. THROWS like
 * the analysed calls. */
QZ_C_API SiteStubStruct* qz_split(InteractionStruct* interaction, void* unused);

/** The same as one block of bytes, for carriers that take no records; `size` gets its length,
 * or is NULL. Release it with qz_free(). THROWS like the analysed calls. */
QZ_C_API char* qz_splitServer(ServerInteractionStruct* server, unsigned* size);

/** The server on this thread that goes on with a split. It reports nothing of its own: the split
 * server stands for it, and clients made under it show that one as their parent. The site record
 * stays yours. The block must come from qz_splitServer(): it carries no length to check. */
QZ_C_API ServerInteractionStruct* qz_beginServerSplit(SiteStubStruct* site);
QZ_C_API ServerInteractionStruct* qz_beginServerSplit2(char* block);

/** Gives the server the flow and the identity of another interaction. Both records are pushed
 * first, and the server's is refreshed. */
QZ_C_API void qz_serverJoin(ServerInteractionStruct* server, InteractionStruct* other);

/** A site record as a block of bytes, and back. serializeSiteStub() gives NULL for NULL and leaves
 * `size` alone. deserializeSiteStub(), below, fills a fresh record, or a new one for NULL, and
 * trusts the block: it must come from serializeSiteStub(). A null text comes back as an empty one;
 * operation, group and service ids stay behind. addstring() copies a text with its terminator, or
 * one terminator for NULL, and gives the place behind it. */
QZ_C_API char* serializeSiteStub(SiteStubStruct* record, unsigned* size);
QZ_C_API char* addstring(const char* text, char* position);

/** @} */

/** @defgroup subrequests Sub-requests and queues
 * @{ */

/** A sub-request inside the thread's innermost server, reported as a client and a server that
 * never leave the process. Both out values are objects and not records; they stay the innermost
 * ones of the thread until qz_endSubRequest(), which takes NULL for either. Both are NULL when the
 * thread has no server. With neither callee nor flow field the pair has no header between it, and
 * its server is not tied to its client. THROWS like the analysed calls, and like siSetGroupID()
 * where the thread's server has a group id that is none; what was made until then stands in the out
 * values and has to be ended all the same. */
QZ_C_API void qz_createSubRequest(const char* opName, void** client, void** server);
QZ_C_API void qz_endSubRequest(void* client, void* server);

/** Makes the destination's events take the queue of the source's, so that both stay in
 * order. The source is a server or client record whose call has reported something and not ended.
 * Nothing happens if either record is NULL or without an object. */
QZ_C_API void qz_copyUplinkToClient(void* source, ClientInteractionStruct* destination);
QZ_C_API void qz_copyUplinkToServer(void* source, ServerInteractionStruct* destination);

/** @} */

#ifdef __cplusplus
} /* extern "C" */
#endif

/* The functions with C++ symbols. */

/** @addtogroup splits
 * @{ */

/** The reading side of serializeSiteStub(), which tells about it. */
QZ_C_API SiteStubStruct* deserializeSiteStub(char* block, SiteStubStruct* record)
    QZ_SYMBOL("_Z19deserializeSiteStubPcP14SiteStubStruct");

/** The length of a text; 0 for NULL. */
QZ_C_API unsigned strlencustom(char* text) QZ_SYMBOL("_Z12strlencustomPc");

/** @} */

/** @addtogroup accessors
 * @{ */

/** See siSetSize(). */
QZ_C_API long long siGetSize(ServerInteractionStruct* record, unsigned char* unused)
    QZ_SYMBOL("_Z9siGetSizeP23ServerInteractionStructPh");
QZ_C_API long long ciGetSize(ClientInteractionStruct* record, unsigned char* unused)
    QZ_SYMBOL("_Z9ciGetSizeP23ClientInteractionStructPh");
/** See siSetPayloadContentType(). */
QZ_C_API char* ciGetPayloadContentType(ClientInteractionStruct* record)
    QZ_SYMBOL("_Z23ciGetPayloadContentTypeP23ClientInteractionStruct");

/** @} */

#endif
