#pragma once

#include "util/Map.h"
#include "util/String.h"
#include "util/qzmutex.h"
#include "util/uri.h"

namespace Quenvale::Interceptor::SDK::Util {

/// @file
/// How groups, services, operations and paths get the short ids that events carry. Two processes
/// that see the same name derive the same id without an exchange.
///
/// Threads: any. Each cache has a lock of its own, and no function holds two of them.
/// Cost:    work is done once per distinct key; a hit is one lock, one look-up and the copy that is
///          returned. A cache keeps the 256 keys used last.
/// Errors:  none of these functions throws.

extern const String& CONSUMER_GROUP;  // "(consumer)"
extern const String& PROVIDER_GROUP;  // "(provider)"

// The caches own their values, which are malloc blocks.
extern Map<const char*>& ourMD5HashCache;  // text to hash text
extern qzmutex& ourMD5HashCacheLock;       // Guards it.
extern Map<const char*>& ourPathCache;     // path key to path id
extern qzmutex& ourPathCacheLock;          // Guards it.
extern Map<const char*>& ourUrlHostCache;  // URL to host
extern qzmutex& ourUrlHostCacheLock;       // Guards it.
extern Map<const char*>& ourUrlPathCache;  // URL to canonical path
extern qzmutex& ourUrlPathCacheLock;       // Guards it.

/// URI::md5hash through a cache.
QZ_API String md5hash(const char* text);

/// "/" and the segments joined with "/"; NIL for no record or one without an absolute path.
QZ_API String absolutePath(const URI::parsedURI* parsed);

/// The path of a URL without scheme, authority, query and trailing "/"; NIL if there is none.
QZ_API String canonicalUrl(const char* url);

/// NIL for a URL that is null or rejected or has no host.
QZ_API String getHostFromURL(const char* url);

/// The first segment of a path of two segments or more, otherwise the default group: the consumer's
/// for a server, the provider's for a client.
QZ_API String groupID(const char* url, bool isServer, bool special, bool hasService);

/// By the storage, not by the text: a copy of a default group, such as groupID() returns, is none.
QZ_API bool isDefaultGroup(const String& group);

/// 1 for a service type of the special block, 0xFF00 to 0xFFFF, otherwise 0. A sign-extended 16-bit
/// field never lies in it.
QZ_API int specialSvc(int svcType);

/// The id of the route to an operation on a host, whose case does not count. A route that begins
/// here has no parent path and an id that begins with "~". Without a host or an operation the id is
/// the same for all such calls, whatever the parent.
QZ_API String pathID(const char* parentPath, const char* host, const char* opID);

/// With the URL's host where `host` is null; NIL if it has none. With neither as above.
QZ_API String pathID(const char* parentPath, const char* url, const char* host, const char* opID);

/// A copy of `text`; nothing is replaced. A configured host name keeps its "${hostname}" by it.
QZ_API String replace(String text, String what, String with);

}  // namespace Quenvale::Interceptor::SDK::Util
