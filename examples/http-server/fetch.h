#ifndef FETCH_H
#define FETCH_H

#include "server.h"

/* Once, before the first thread. 0 if libcurl can't be had. */
int fetchInit(void);

/* Asks another server through libcurl and gives its reply, cut to what a Reply holds; 502 where
 * none could be had. A body makes it a POST. */
Reply fetch(const char* url, const char* body, size_t size);

#endif
