/* The call as the README shows it, with the work left out. */
long long handle_it(void);

#include "capi/QZInt-c.h"

void on_request(const char* url, const char* method, long long bytes) {
    ServerInteractionStruct* call = qz_beginServer();
    siSetUrl(call, url);
    siSetOpName(call, method);
    siSetSize(call, bytes);
    qz_serverAnalyzed(call); /* the request goes out */

    long long sent = handle_it();

    siSetSize(call, sent);
    qz_endServer(call); /* the reply goes out */
    freeServerInteraction(call);
}
