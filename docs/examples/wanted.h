#ifndef WANTED_H
#define WANTED_H

#include "capi/QZInt-c.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Whether the agent wants the payloads of this call. Ask behind the analysed call. */
int payloadIsWanted(ServerInteractionStruct* call);

#ifdef __cplusplus
}
#endif

#endif
