/* An interceptor in C, outside of the tree: one server call with a client call in it. The ids are
 * those that any build of the library gives. The header is reached in either way. */
#include <qzint/capi/QZInt-c.h>
#include <stdio.h>
#include <string.h>

#include "capi/QZInt-c.h"

static int same(const char* what, char* found, const char* wanted) {
    const int works = found != NULL && strcmp(found, wanted) == 0;
    if (!works) fprintf(stderr, "%s is %s\n", what, found == NULL ? "NULL" : found);
    qz_free(found);
    return works;
}

/* Whether a client's record and the header that goes out with its request belong to the flow. */
static int callOut(const char* flowID) {
    ClientInteractionStruct* client = qz_beginClient();
    char* header;
    int works;

    ciSetUrl(client, "http://backend.example/stock/items");
    qz_clientAnalyzed(client);
    header = qz_writeHeader(client, 0);
    works = strcmp(client->interaction->stub->site->flow->flowID, flowID) == 0 && header != NULL &&
            strstr(header, flowID) != NULL;
    qz_free(header);
    qz_endClient(client);
    freeClientInteraction(client);
    return works;
}

int main(void) {
    ServerInteractionStruct* call = qz_beginServer();
    const SiteStubStruct* site = call->interaction->stub->site;
    int works;

    siSetUrl(call, "http://h/svc/a");
    siSetOpName(call, "getQuote");
    qz_serverAnalyzed(call);
    works = same("operation id", siGetOpID(call), "6zXhIOgbNdAzRQS6Y93HcQ==");
    works &= same("service id", siGetServiceID(call), "EDihpnRb8sxNjuw13WOEzg==");
    works &= same("group", siGetGroupName(call), "svc");
    works &= callOut(site->flow->flowID);

    siSetSize(call, 42);
    works &= siGetSize(call, NULL) == 42;
    qz_endServer(call);
    works &= site->flow->impl == NULL && qz_getServer() == NULL;
    freeServerInteraction(call);
    puts(works ? "ok" : "wrong");
    return works ? 0 : 1;
}
