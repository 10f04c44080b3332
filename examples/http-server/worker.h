#ifndef WORKER_H
#define WORKER_H

#include "server.h"

/* Starts the one worker thread of the process; it runs as long as that. 0 if it can't. */
int workerStart(void);

/* Has the worker fetch a page for this call, and waits for it. */
Reply workerFetch(Call* call, const char* url);

#endif
