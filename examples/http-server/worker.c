#include "worker.h"

#include <pthread.h>

#include "fetch.h"

typedef enum Stage { kWaits, kIsDone, kIsTakenBack } Stage;

typedef struct Job {
    Share* share;
    const char* url;
    Reply reply;
    Stage stage;
    struct Job* next;
} Job;

static pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER; /* guards the jobs */
static pthread_cond_t moved = PTHREAD_COND_INITIALIZER;  /* a job has come, or changed its stage */
static Job* jobs;

static void await(const Job* job, Stage stage) {
    while (job->stage != stage) pthread_cond_wait(&moved, &lock);
}

static void advance(Job* job, Stage stage) {
    job->stage = stage;
    pthread_cond_broadcast(&moved);
}

static void* work(void* unused) {
    (void)unused;
    pthread_mutex_lock(&lock);
    for (;;) {
        while (jobs == NULL) pthread_cond_wait(&moved, &lock);
        Job* job = jobs;
        jobs = job->next;
        Share* share = job->share;
        pthread_mutex_unlock(&lock);

        shareEnter(share);
        const Reply reply = fetch(job->url, NULL, 0);

        pthread_mutex_lock(&lock);
        job->reply = reply;
        advance(job, kIsDone);
        /* The call's thread reads this thread's record for the join: it must still be there. */
        await(job, kIsTakenBack);
        advance(job, kWaits);
        pthread_mutex_unlock(&lock);
        shareLeave(share);
        pthread_mutex_lock(&lock);
    }
    return NULL;
}

int workerStart(void) {
    pthread_t thread;
    return pthread_create(&thread, NULL, work, NULL) == 0 && pthread_detach(thread) == 0;
}

Reply workerFetch(Call* call, const char* url) {
    Job job = {shareOpen(call), url, {502, ""}, kWaits, NULL};
    pthread_mutex_lock(&lock);
    Job** last = &jobs;
    while (*last != NULL) last = &(*last)->next;
    *last = &job;
    pthread_cond_broadcast(&moved);
    await(&job, kIsDone);
    shareTakeBack(job.share);
    advance(&job, kIsTakenBack);
    /* The job lives on this stack: the worker says when it has looked at it for the last time. */
    await(&job, kWaits);
    pthread_mutex_unlock(&lock);
    return job.reply;
}
