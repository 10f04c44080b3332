#include "client.h"

#include <qzint/capi/QZInt-c.h>
#include <string.h>

int callOut(const char* flowID) {
    ClientInteractionStruct* client = qz_beginClient();
    char* header;
    int works;

    ciSetUrl(client, "http://backend.example/stock/items");
    ciSetOpName(client, "GET");
    ciSetPeerAddr(client, "backend.example");
    qz_clientAnalyzed(client);
    header = qz_writeHeader(client, 0);
    works = strcmp(client->interaction->stub->site->flow->flowID, flowID) == 0 && header != NULL &&
            strstr(header, flowID) != NULL;
    qz_free(header);
    qz_endClient(client);
    freeClientInteraction(client);
    return works;
}
