#ifndef INTERCEPTOR_H
#define INTERCEPTOR_H

#include <microhttpd.h>
#include <stddef.h>

/* The whole of the instrumentation. A null Call, Outgoing or Share does nothing. */

/* A request that comes in, from the first sight of its headers to the end of its reply. It stays on
 * one thread, since the server runs a thread for each connection. */
typedef struct Call Call;

/* The request's headers are known. One of them may be the context header of a caller. */
Call* callBegin(struct MHD_Connection* connection, const char* group, const char* method,
                const char* path);

/* The request is known in full. */
void callRequest(Call* call, const char* body, size_t size);

/* The reply is known. A status of 500 or more counts as a failure. */
void callReply(Call* call, unsigned int status, const char* body, size_t size);

/* The reply is out, or the connection is gone. */
void callEnd(Call* call);

/* The last call has ended, and the process is about to: what is queued goes out now. */
void callsFlush(void);

/* Does a part of the thread's innermost call that shows as a request of its own. */
void callPart(const char* name, void (*work)(void*), void* argument);

/* A request that goes out on this thread. It belongs to the call that is open here. */
typedef struct Outgoing Outgoing;

Outgoing* outgoingBegin(const char* method, const char* url, const char* body, size_t size);

/* The line of the HTTP header that takes the context along; NULL if there is nothing to send. */
const char* outgoingHeader(const Outgoing* outgoing);

/* The reply is known, or `failure` tells why there is none. */
void outgoingEnd(Outgoing* outgoing, long status, const char* body, size_t size,
                 const char* failure);

/* A call that another thread goes on with. The thread that has the call opens the share and takes
 * it back; in between, the other thread enters it and, once it was taken back, leaves it. */
typedef struct Share Share;

Share* shareOpen(Call* call);
void shareEnter(Share* share);
/* What the other thread added to the flow becomes part of the call. */
void shareTakeBack(Share* share);
/* The share is gone behind this. */
void shareLeave(Share* share);

#endif
