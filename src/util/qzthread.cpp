#include "util/qzthread.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>

#include <cxxabi.h>

#include "util/String.h"
#include "util/diagnostics.h"
#include "util/text.h"
#include "util/threadkey.h"

namespace Quenvale::Interceptor::SDK {

namespace {

constexpr std::size_t kNameText = 16;  // What the system keeps of a thread's name.

void setName(pthread_t id, const char* name) {
    char text[kNameText];
    std::snprintf(text, sizeof text, "%s", name);
    pthread_setname_np(id, text);
}

}  // namespace

qzthread::qzthread(Runnable* body, const char* name) : itsBody(body), itsName(name) {}

qzthread::~qzthread() {
    std::free(itsKey);
}

bool qzthread::start() {
    // Held until the id is stored: the new thread may ask for it at once.
    Util::MutexGuard guard(itsLock);
    if (itsID != 0 && pthread_equal(itsID, pthread_self()) != 0) return false;

    // A thread inherits its mask. Blocking on the thread itself would leave it open to the host's
    // signals for a moment.
    sigset_t blocked;
    sigset_t before;
    sigfillset(&blocked);
    for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL}) sigdelset(&blocked, fault);
    pthread_sigmask(SIG_SETMASK, &blocked, &before);
    pthread_t id = 0;
    const int result = pthread_create(&id, nullptr, start_thread, itsBody);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    if (result != 0) return false;

    if (itsName != nullptr) setName(id, itsName);
    char key[kNumberText];
    itoa(static_cast<int>(id), key, 16);
    std::free(itsKey);
    itsKey = Util::String::convert(key);
    itsID = id;
    itIsJoinable = true;
    return true;
}

// Gets the body and not the qzthread, which may be gone before the thread first runs.
void* qzthread::start_thread(void* arg) {
    try {
        static_cast<Runnable*>(arg)->run();
    } catch (abi::__forced_unwind&) {
        throw;
    } catch (...) {
        errorMsg("working thread aborted!\n");
    }
    return nullptr;
}

void qzthread::join() {
    Util::MutexGuard guard(itsLock);
    if (!itIsJoinable) return;
    itIsJoinable = false;
    const pthread_t id = itsID;
    // The thread may come back to this object before it ends.
    guard.unlock();
    pthread_join(id, nullptr);
    forget(id);
}

// The system gives the id of a thread that ended to a new one, which is then not this one.
void qzthread::forget(pthread_t id) {
    Util::MutexGuard guard(itsLock);
    if (!itIsJoinable && pthread_equal(itsID, id) != 0) itsID = 0;
}

void qzthread::detach() {
    Util::MutexGuard guard(itsLock);
    if (!itIsJoinable) return;
    itIsJoinable = false;
    pthread_detach(itsID);
}

void qzthread::sleep(int milliseconds) {
    timespec time;
    time.tv_sec = milliseconds / 1000;
    time.tv_nsec = milliseconds % 1000 * 1000000L;
    nanosleep(&time, nullptr);
}

char* qzthread::currentThreadKey() {
    return Util::currentThreadKey();
}

}  // namespace Quenvale::Interceptor::SDK
