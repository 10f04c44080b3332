#include "util/identifiers.h"

#include <cxxabi.h>

#include <cstddef>
#include <cstring>

#include "util/blocks.h"
#include "util/diagnostics.h"
#include "util/text.h"

namespace Quenvale::Interceptor::SDK::Util {

namespace {

constexpr std::size_t kPathKeyLimit = 255;  // characters; part of what path ids are made from
constexpr int kFirstSpecialSvc = 0xff00;
constexpr int kLastSpecialSvc = 0xffff;

// What `call` gives, or `otherwise` if it throws. A thread that is being cancelled goes on.
template <class Call, class Otherwise>
String guarded(Call call, Otherwise otherwise) {
    try {
        return call();
    } catch (abi::__forced_unwind&) {
        throw;
    } catch (...) {
        return otherwise();
    }
}

// What `take` makes of the value for `key`. The value is computed by `make` on a miss; one that
// is null is not kept, since it would read as a miss and only push out another key.
template <class Make, class Take>
String throughCache(Map<const char*>& cache, const qzmutex& lock, const char* key, Make make,
                    Take take) {
    MutexGuard guard(lock);
    if (const char* hit = cache.find(key)) return take(hit);
    const String made = make();
    if (const char* kept = String::convert(made.c_str())) cache.insert(key, kept);
    return take(made.c_str());
}

String copied(const char* value) {
    return value;
}

template <class Take>
String takePath(const char* url, Take take) {
    return throughCache(
        ourUrlPathCache, ourUrlPathCacheLock, url,
        [&] {
            URI::parsedURI* parsed = URI::parseURI(url);
            String path = absolutePath(parsed);
            URI::freeparsedURI(parsed);
            return path;
        },
        take);
}

String parseHost(const char* url) {
    URI::parsedURI* parsed = URI::parseURI(url);
    String host;
    if (parsed != nullptr && parsed->auth != nullptr) host = parsed->auth->host;
    URI::freeparsedURI(parsed);
    return host;
}

// A text that is cut at the limit of a path key.
class PathKey {
public:
    PathKey& add(const char* text) {
        const std::size_t added = strnlen(text, kPathKeyLimit - itsLength);
        std::memcpy(itsText + itsLength, text, added);
        itsLength += added;
        itsText[itsLength] = '\0';
        return *this;
    }
    PathKey& addUpper(const char* text) {
        char* added = itsText + itsLength;
        add(text);
        strupr(added);
        return *this;
    }
    const char* c_str() const { return itsText; }

private:
    char itsText[kPathKeyLimit + 1] = {'\0'};
    std::size_t itsLength = 0;
};

}  // namespace

String md5hash(const char* text) {
    return guarded(
        [&] {
            return throughCache(
                ourMD5HashCache, ourMD5HashCacheLock, text, [&] { return URI::md5hash(text); },
                copied);
        },
        [&] { return URI::md5hash(text); });
}

String absolutePath(const URI::parsedURI* parsed) {
    if (parsed == nullptr || parsed->abs_path == nullptr) return {};
    std::size_t length = 0;
    for (char** segment = parsed->abs_path; *segment != nullptr; ++segment)
        length += 1 + std::strlen(*segment);
    char* path = String::room(length);
    if (path == nullptr) return {};
    char* out = path;
    for (char** segment = parsed->abs_path; *segment != nullptr; ++segment) {
        *out++ = '/';
        out = stpcpy(out, *segment);
    }
    return String::adopt(path);
}

String canonicalUrl(const char* url) {
    return guarded([&] { return takePath(url, copied); }, [] { return String(); });
}

String getHostFromURL(const char* url) {
    if (url == nullptr) return {};
    return guarded(
        [&] {
            return throughCache(
                ourUrlHostCache, ourUrlHostCacheLock, url, [&] { return parseHost(url); }, copied);
        },
        [&] {
            debugMsg("Failed to extract a host name from URL %s\n", url);
            return String();
        });
}

String groupID(const char* url, bool isServer, bool special, bool hasService) {
    const String& defaultGroup = isServer ? CONSUMER_GROUP : PROVIDER_GROUP;
    if (url == nullptr) return defaultGroup;

    bool named = hasService;
    String name = guarded(
        [&] {
            return takePath(url, [&](const char* path) {
                const char* slash = path == nullptr ? nullptr : std::strchr(path + 1, '/');
                if (slash == nullptr) return String();
                if (slash[1] != '\0') named = true;
                return String(path + 1, static_cast<unsigned int>(slash - path - 1));
            });
        },
        [] {
            errorMsg("GeneralUtil.groupID: failed to get service name from URL\n");
            return String();
        });
    if (name.empty() || (!named && !special)) return defaultGroup;
    return name;
}

bool isDefaultGroup(const String& group) {
    return group.c_str() == CONSUMER_GROUP.c_str() || group.c_str() == PROVIDER_GROUP.c_str();
}

int specialSvc(int svcType) {
    return svcType >= kFirstSpecialSvc && svcType <= kLastSpecialSvc ? 1 : 0;
}

String pathID(const char* parentPath, const char* host, const char* opID) {
    const bool isComplete = host != nullptr && opID != nullptr;
    const bool isRoot = !isComplete || parentPath == nullptr;
    PathKey key;
    if (isComplete) {
        if (!isRoot) key.add(parentPath).add("@");
        key.add(opID).add("@").addUpper(host);
    } else {
        key.add("0");
    }

    const auto make = [&] {
        String hash = URI::md5hash(key.c_str());
        return isRoot ? String("~") + hash : hash;
    };
    return guarded(
        [&] { return throughCache(ourPathCache, ourPathCacheLock, key.c_str(), make, copied); },
        make);
}

String pathID(const char* parentPath, const char* url, const char* host, const char* opID) {
    if (host != nullptr || url == nullptr) return pathID(parentPath, host, opID);
    const String urlHost = getHostFromURL(url);
    if (urlHost.c_str() == nullptr) {
        errorMsg("pathID: URL is missing hostName and hostName was not provided.\n");
        return {};
    }
    return pathID(parentPath, urlHost.c_str(), opID);
}

// Three by value is its declared form.
// NOLINTNEXTLINE(performance-unnecessary-value-param)
String replace(String text, String, String) {
    return text;
}

}  // namespace Quenvale::Interceptor::SDK::Util
