#pragma once

#include <atomic>

#include "util/Map.h"
#include "util/export.h"
#include "util/qzmutex.h"

namespace Quenvale::Interceptor::SDK::Util {

/// One connected descriptor and the host name that led to it; owns both.
///
/// Threads: one at a time. The statics are shared: ourLocalHostAddr is atomic, ourHostAddrs is
/// guarded by ourHostAddrsLock, which is not held while a name is looked up.
class QZ_API Socket {
public:
    class DNSList;

    explicit Socket(int descriptor = -1, const char* host = nullptr);  // Copies `host`.
    virtual ~Socket();
    Socket(const Socket&) = delete;
    Socket& operator=(const Socket&) = delete;

    /// What close() gave. The descriptor is -1 afterwards, so that a second call closes nothing.
    int closeSocket();

    /// How many bytes can be read without waiting, or -1.
    int poll() const;

    /// Fills ourLocalHostAddr. 0, or -1 when this host can't be looked up.
    static int initLocalHostAddr();

    int itsDescriptor;  // Above 0 while open, -1 after closing.
    char* itsHost;      // From malloc, or null.

    /// This host's address in dotted decimal; null until initLocalHostAddr() ran. A text that was
    /// ever published stays valid.
    static std::atomic<char*> ourLocalHostAddr;

    /// The names of each peer that was asked for, by the text of its address. The list is null for
    /// a peer that could not be resolved.
    static Map<DNSList*>& ourHostAddrs QZ_GUARDED_BY(ourHostAddrsLock);
    static qzmutex& ourHostAddrsLock;  // Guards ourHostAddrs.
};

/// The official name of a peer, then its aliases.
class QZ_API Socket::DNSList {
public:
    /// Takes over a null-terminated array of texts; array and texts come from malloc.
    explicit DNSList(char** names = nullptr) : itsNames(names) {}
    virtual ~DNSList();
    DNSList(const DNSList&) = delete;
    DNSList& operator=(const DNSList&) = delete;

    /// Releases the names.
    void clear();

    char** itsNames;  // Null for none.
};

}  // namespace Quenvale::Interceptor::SDK::Util
