#ifndef CLIENT_H
#define CLIENT_H

/* Calls out from inside a server call of the flow. 1 if the client's record and the header that
 * goes out with the request belong to that flow. */
int callOut(const char* flowID);

#endif
