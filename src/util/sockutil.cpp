#include "util/sockutil.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <climits>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "util/diagnostics.h"

std::atomic<char*> _localHostName{nullptr};
void (*SocketErrorHandler)(const char* text) = nullptr;

namespace {

constexpr int kBacklog = 5;
constexpr int kLingerSeconds = 1;
constexpr std::size_t kHostNameText = 256;
constexpr std::size_t kFirstHostBuffer = 1024;
constexpr std::size_t kLastHostBuffer = std::size_t{1} << 24;  // No answer is as large.

std::atomic<bool> initCalled{false};
std::atomic<bool> handlingMsg{false};

// The memory behind the entry that a thread asked for last.
pthread_key_t ourEntryKey;
pthread_once_t ourEntryKeyOnce = PTHREAD_ONCE_INIT;
bool ourEntryKeyWorks = false;

void makeEntryKey() {
    ourEntryKeyWorks = pthread_key_create(&ourEntryKey, std::free) == 0;
}

// Makes `buffer` the calling thread's and frees the one before. False leaves it the caller's.
bool keepForThread(char* buffer) {
    pthread_once(&ourEntryKeyOnce, makeEntryKey);
    if (!ourEntryKeyWorks) return false;
    void* before = pthread_getspecific(ourEntryKey);
    if (pthread_setspecific(ourEntryKey, buffer) != 0) return false;
    std::free(before);
    return true;
}

// The re-entrant look-up, in a buffer that grows until the answer fits. The entry leads into the
// result, which is for free(); null when the name is not known.
char* lookUp(const char* name, hostent* entry) {
    for (std::size_t size = kFirstHostBuffer; size <= kLastHostBuffer; size *= 2) {
        auto* buffer = static_cast<char*>(std::malloc(size));
        if (buffer == nullptr) return nullptr;
        hostent* found = nullptr;
        int reason = 0;
        const int result = gethostbyname_r(name, entry, buffer, size, &found, &reason);
        if (result == 0 && found != nullptr) return buffer;
        std::free(buffer);
        if (result != ERANGE) return nullptr;
    }
    return nullptr;
}

// False for an entry that has no address of the family.
bool copyAddress(const hostent& entry, sockaddr_in* address) {
    const char* first = entry.h_addr_list[0];
    if (first == nullptr || entry.h_length != static_cast<int>(sizeof address->sin_addr))
        return false;
    std::memcpy(&address->sin_addr, first, sizeof address->sin_addr);
    return true;
}

sockaddr* plain(sockaddr_in* address) {
    return reinterpret_cast<sockaddr*>(address);
}

// Never one of the first three: what a host that closed its standard streams prints must not end up
// in a connection of ours.
int openStream() {
    const int descriptor = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (descriptor < 0 || descriptor > STDERR_FILENO) return descriptor;
    const int higher = fcntl(descriptor, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    close(descriptor);
    return higher;
}

// A connect that a signal interrupts goes on by itself and can't be called again: its end is
// waited for, and its outcome asked for.
bool connectTo(int descriptor, sockaddr_in* address) {
    if (connect(descriptor, plain(address), sizeof *address) == 0) return true;
    if (errno != EINTR) return false;
    pollfd wanted = {descriptor, POLLOUT, 0};
    while (poll(&wanted, 1, -1) < 0)
        if (errno != EINTR) return false;
    int error = 0;
    socklen_t size = sizeof error;
    return getsockopt(descriptor, SOL_SOCKET, SO_ERROR, &error, &size) == 0 && error == 0;
}

bool setLinger(int descriptor) {
    const linger value = {1, kLingerSeconds};
    return setsockopt(descriptor, SOL_SOCKET, SO_LINGER, &value, sizeof value) == 0;
}

int closed(int descriptor) {
    close(descriptor);
    return -1;
}

int connected(sockaddr_in* address) {
    const int descriptor = openStream();
    if (descriptor < 0) return -1;
    if (!connectTo(descriptor, address) || !setLinger(descriptor)) return closed(descriptor);
    return descriptor;
}

bool canRepeat() {
    return errno == EAGAIN || errno == EINTR;
}

// Milliseconds until `deadline`, rounded up so that a wait does not end before it; at least 0.
int remaining(std::chrono::steady_clock::time_point deadline) {
    using std::chrono::milliseconds;
    const auto rest = std::chrono::ceil<milliseconds>(deadline - std::chrono::steady_clock::now());
    return static_cast<int>(std::clamp<long long>(rest.count(), 0, INT_MAX));
}

int failAnyServer(const char* text, int descriptor) {
    DoNothing(text);
    if (descriptor >= 0) close(descriptor);
    return -1;
}

// The text as the handler gets it, from malloc; null without memory.
char* errorText(int error, const char* format, va_list arguments) {
    char* text = nullptr;
    if (vasprintf(&text, format, arguments) < 0) return nullptr;
    if (error == 0) return text;
    char* withNumber = nullptr;
    if (asprintf(&withNumber, "(%d) %s", error, text) < 0) withNumber = nullptr;
    std::free(text);
    return withNumber;
}

}  // namespace

int InitSockets() {
    // The name comes before the flag. Of two first calls both look for it, and one of them stores.
    if (!initCalled.load(std::memory_order_acquire)) {
        initLocalHostName();
        initCalled.store(true, std::memory_order_release);
    }
    return 1;
}

int initLocalHostName() {
    if (_localHostName.load(std::memory_order_acquire) != nullptr) return 0;
    char text[kHostNameText];
    if (gethostname(text, sizeof text) != 0) return -1;
    text[sizeof text - 1] = '\0';
    char* name = strdup(text);
    if (name == nullptr) return -1;
    char* none = nullptr;
    if (!_localHostName.compare_exchange_strong(none, name, std::memory_order_acq_rel))
        std::free(name);
    return 0;
}

int GetLocalHostInfo(sockaddr_in* address) {
    InitSockets();
    return GetHostInfo(address, nullptr, _localHostName.load(std::memory_order_acquire));
}

char* ResolveHostName(const char* name) {
    hostent entry;
    if (GetHostInfo(nullptr, &entry, name) == 0) {
        if (canLog(4))
            errorMsg("LookupHostName: host name %s not recognized.\n",
                     name == nullptr ? "(null)" : name);
        return nullptr;
    }
    return strdup(entry.h_name);
}

int GetHostInfo(sockaddr_in* address, hostent* entry, const char* name) {
    InitSockets();
    if (address != nullptr) {
        std::memset(address, 0, sizeof *address);
        address->sin_family = AF_INET;
    }
    if (name == nullptr) return 0;
    hostent found;
    char* buffer = lookUp(name, &found);
    if (buffer == nullptr) return 0;
    const bool isUsable = (address == nullptr || copyAddress(found, address)) &&
                          (entry == nullptr || keepForThread(buffer));
    if (!isUsable || entry == nullptr) std::free(buffer);
    if (isUsable && entry != nullptr) *entry = found;
    return isUsable ? 1 : 0;
}

int OpenNativePort(sockaddr_in* address, int port) {
    address->sin_family = AF_INET;
    address->sin_port = htons(static_cast<in_port_t>(port));
    return connected(address);
}

int SetSendBufferSize(int descriptor, int size) {
    if (setsockopt(descriptor, SOL_SOCKET, SO_SNDBUF, &size, sizeof size) == 0) return size;
    errorMsg("setsockopt(SO_SNDBUF) failed\n");
    int inForce = 0;
    socklen_t length = sizeof inForce;
    if (getsockopt(descriptor, SOL_SOCKET, SO_SNDBUF, &inForce, &length) != 0)
        errorMsg("getsockopt(SO_SNDBUF) failed\n");
    return inForce;
}

int OpenPeer(int descriptor, int port) {
    sockaddr_in address;
    socklen_t size = sizeof address;
    if (getpeername(descriptor, plain(&address), &size) != 0) return -1;
    address.sin_port = htons(static_cast<in_port_t>(port));
    return connected(&address);
}

int BytesAvail(int descriptor) {
    int count = 0;
    return ioctl(descriptor, FIONREAD, &count) == 0 ? count : -1;
}

int ReceiveBytes(int descriptor, void* buffer, int length) {
    if (length < 1) return 0;
    auto* next = static_cast<char*>(buffer);
    for (auto rest = static_cast<std::size_t>(length);;) {
        const ssize_t count = recv(descriptor, next, rest, 0);
        if (count < 0 && canRepeat()) continue;
        if (count < 1) return 0;
        rest -= static_cast<std::size_t>(count);
        if (rest == 0) return 1;
        next += count;
    }
}

int ReceiveBytesWithin(int descriptor, void* buffer, int length, int milliseconds) {
    if (length < 1) return 0;
    const auto deadline =
        std::chrono::steady_clock::now() + std::chrono::milliseconds(std::max(milliseconds, 0));
    auto* next = static_cast<char*>(buffer);
    for (auto rest = static_cast<std::size_t>(length);;) {
        pollfd wanted = {descriptor, POLLIN, 0};
        const int time = remaining(deadline);
        const int ready = poll(&wanted, 1, time);
        if (ready < 0 && canRepeat()) continue;
        if (ready < 1) return 0;
        const ssize_t count = recv(descriptor, next, rest, MSG_DONTWAIT);
        if (count < 0 && canRepeat()) continue;
        if (count < 1) return 0;
        rest -= static_cast<std::size_t>(count);
        if (rest == 0) return 1;
        // That was all that waited. A peer that sends faster than this reads must not go on.
        if (time == 0) return 0;
        next += count;
    }
}

int ReceiveAvail(int descriptor, void* buffer, int maximum) {
    const int available = BytesAvail(descriptor);
    if (available < 1) return -1;
    const int length = std::min(available, maximum);
    return ReceiveBytes(descriptor, buffer, length) == 1 ? length : -1;
}

int SendBytes(int descriptor, const void* buffer, int length) {
    return length >= 0 && SendBytesCounted(descriptor, buffer, length) == length ? 1 : 0;
}

int SendBytesCounted(int descriptor, const void* buffer, int length) {
    const auto* bytes = static_cast<const char*>(buffer);
    int sent = 0;
    while (sent < length) {
        // A dead peer is a result here and never a signal, whatever the host did to SIGPIPE since.
        const ssize_t count =
            send(descriptor, bytes + sent, static_cast<std::size_t>(length - sent), MSG_NOSIGNAL);
        if (count < 0 && canRepeat()) continue;
        if (count < 1) break;
        sent += static_cast<int>(count);
    }
    return sent;
}

int StartServer(int port, int daemonise) {
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<in_port_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_ANY);
    const int descriptor = openStream();
    // A socket that can't be bound stays open; callers of this road end their process.
    if (descriptor < 0 || bind(descriptor, plain(&address), sizeof address) != 0 ||
        listen(descriptor, kBacklog) != 0)
        return -1;
    if (daemonise == 0) return descriptor;

    setpgrp();
    const pid_t child = fork();
    if (child < 0) Error("Unable to fork daemon");
    if (child > 0) std::exit(0);
    close(STDIN_FILENO);
    close(STDOUT_FILENO);
    std::signal(SIGCHLD, SIG_IGN);
    std::signal(SIGPIPE, SIG_IGN);
    return descriptor;
}

int StartAnyServer(int descriptor, int* port) {
    sockaddr_in address;
    socklen_t size = sizeof address;
    if (getsockname(descriptor, plain(&address), &size) != 0)
        return failAnyServer("StartAnyServer: getsockname failed", -1);
    address.sin_port = 0;
    const int listener = openStream();
    if (listener < 0) return failAnyServer("StartAnyServer: socket failed", -1);
    if (bind(listener, plain(&address), sizeof address) != 0)
        return failAnyServer("StartAnyServer: bind failed", listener);
    size = sizeof address;
    if (getsockname(listener, plain(&address), &size) != 0)
        return failAnyServer("StartAnyServer: getsockname failed", listener);
    *port = ntohs(address.sin_port);
    if (listen(listener, kBacklog) != 0)
        return failAnyServer("StartAnyServer: listen failed", listener);
    return listener;
}

int AcceptClient(int listener, sockaddr_in* peer, int forkFlag) {
    for (;;) {
        sockaddr_in local;
        sockaddr_in* address = peer == nullptr ? &local : peer;
        socklen_t size = sizeof *address;
        const int descriptor = accept4(listener, plain(address), &size, SOCK_CLOEXEC);
        if (descriptor < 0) {
            if (errno == EINTR) continue;
            errorMsg("AcceptClient: accept failed -1, error=(%d)\n", errno);
            std::exit(1);
        }
        if (forkFlag != 0) {
            // Without a child this client is dropped, and the next one is waited for.
            if (fork() != 0) {
                close(descriptor);
                continue;
            }
            close(listener);
            std::signal(SIGCHLD, SIG_DFL);
        }
        return setLinger(descriptor) ? descriptor : closed(descriptor);
    }
}

void Error(const char* format, ...) {
    const int error = errno;
    if (!handlingMsg.load()) {
        va_list arguments;
        va_start(arguments, format);
        char* text = errorText(error, format, arguments);
        va_end(arguments);
        if (SocketErrorHandler != nullptr && text != nullptr) {
            handlingMsg.store(true);
            SocketErrorHandler(text);
            handlingMsg.store(false);
        }
        std::free(text);
    }
    std::exit(1);
}

void DoNothing(const char*, ...) {}
