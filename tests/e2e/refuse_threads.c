/* Linked into a driver of its own: no thread can be created in that process. */
#include <errno.h>
#include <pthread.h>

int pthread_create(pthread_t* id, const pthread_attr_t* attributes, void* (*start)(void*),
                   void* argument) {
    (void)id;
    (void)attributes;
    (void)start;
    (void)argument;
    return EAGAIN;
}
