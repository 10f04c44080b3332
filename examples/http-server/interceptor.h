#ifndef INTERCEPTOR_H
#define INTERCEPTOR_H

#include <microhttpd.h>
#include <stddef.h>

/* The server's side of the instrumentation: one Call for one request, from the first sight of its
 * headers to the end of its reply. A request stays on one thread, since the server runs a thread
 * for each connection. */
typedef struct Call Call;

/* The request's headers are known. */
Call* callBegin(struct MHD_Connection* connection, const char* method, const char* path);

/* The request is known in full. */
void callRequest(Call* call, const char* body, size_t size);

/* The reply is known. A status of 500 or more counts as a failure. */
void callReply(Call* call, unsigned int status, const char* body, size_t size);

/* The reply is out, or the connection is gone. */
void callEnd(Call* call);

#endif
