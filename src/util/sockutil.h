#pragma once

#include <netdb.h>
#include <netinet/in.h>

#include <atomic>

/// Plain functions over BSD sockets, IPv4 only. They know nothing of the agent.
///
/// A truth value is 1 or 0; a descriptor or -1. Every socket made here is close-on-exec. The
/// functions have C linkage and stay inside the library: names such as Error must not meet those
/// of a host.
///
/// Threads:   any; a descriptor is used by one at a time.
/// Signals:   one that is taken in the middle of a call is no failure; the call goes on.
/// Ownership: descriptors and texts that are handed out belong to the caller (close, free).
extern "C" {

#pragma GCC visibility push(hidden)

/// The name of this host, null until initLocalHostName() found it. Written once.
extern std::atomic<char*> _localHostName;

/// Optional: is given the text of Error(). Nothing in the library sets it.
extern void (*SocketErrorHandler)(const char* text);

/// Always 1. The first call finds the name of this host.
int InitSockets();

/// 0, and the name of this host is kept for GetLocalHostInfo(); or -1. A name once found stays.
int initLocalHostName();

/// GetHostInfo() on the name of this host.
int GetLocalHostInfo(struct sockaddr_in* address);

/// The official name of a host as a block for free(); null when the name is not known.
char* ResolveHostName(const char* name);

/// Looks a host up. Both out values may be null, which only tests the name. `address` gets the
/// family and the first address, port 0. `entry` is a shallow copy: what it points to belongs to
/// the calling thread and is good until that thread next asks for an entry, or ends.
int GetHostInfo(struct sockaddr_in* address, struct hostent* entry, const char* name);

/// Connects to `address`, in which family and port are set first. No time limit but the system's.
int OpenNativePort(struct sockaddr_in* address, int port);

/// The size in force, in bytes; 0 when the system does not tell one.
int SetSendBufferSize(int descriptor, int size);

/// A connection to the peer of `descriptor` on another port.
int OpenPeer(int descriptor, int port);

/// How many bytes can be read at once, or -1.
int BytesAvail(int descriptor);

/// 1 when all `length` bytes came. 0 on the end of the stream, on an error and for a length below
/// 1; part of the bytes may then be in the buffer. Waits as long as the connection lasts.
int ReceiveBytes(int descriptor, void* buffer, int length);

/// The same with a limit for the whole of it: 0 also when the bytes did not all come within
/// `milliseconds`. With a limit of 0 or less only what waits already is taken.
int ReceiveBytesWithin(int descriptor, void* buffer, int length, int milliseconds);

/// Reads what waits, at most `maximum` bytes, without waiting itself. The number of bytes, or -1
/// when there are none.
int ReceiveAvail(int descriptor, void* buffer, int maximum);

/// 1 when all bytes were handed to the system; a length of 0 always is.
int SendBytes(int descriptor, const void* buffer, int length);

/// The same, with the number of bytes that the system took before it failed, or all.
int SendBytesCounted(int descriptor, const void* buffer, int length);

/// Listens on all interfaces. With `daemonise` the process forks and the parent exits; the call
/// returns in the child.
int StartServer(int port, int daemonise);

/// Listens on a free port of the local address of `descriptor`; `port` tells which.
int StartAnyServer(int descriptor, int* port);

/// The next connection to `listener`, whose address goes to `peer` if not null. With `forkFlag`
/// each connection gets a child process, in which the call returns. A failed accept ends the
/// process.
int AcceptClient(int listener, struct sockaddr_in* peer, int forkFlag);

/// Hands the text to SocketErrorHandler, "(errno) " in front when errno is set, and exits with 1.
[[noreturn]] void Error(const char* format, ...) __attribute__((format(printf, 1, 2)));

void DoNothing(const char* format, ...);

#pragma GCC visibility pop
}
