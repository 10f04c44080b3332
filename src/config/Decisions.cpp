#include <cstring>

#include "config/DecisionCache.h"
#include "config/InterceptorConfig.h"
#include "interaction/Interaction.h"
#include "util/diagnostics.h"
#include "util/identifiers.h"
#include "util/uri.h"

namespace Quenvale::Interceptor::SDK {

namespace {

bool isBlank(const char* text) {
    return text == nullptr || *text == '\0';
}

// A blank argument meets only a wildcard.
bool cellMatches(const Util::String& cell, const char* argument) {
    return cell.empty() || (argument != nullptr && std::strcmp(cell.c_str(), argument) == 0);
}

bool rowMatches(InterceptorConfig::Row& row, const char* group, const char* service,
                const char* operation) {
    return (isBlank(group) || cellMatches(row.at(0), group)) && cellMatches(row.at(1), service) &&
           cellMatches(row.at(2), operation);
}

// Scheme, authority and query take no part; of a bare path, which the parser rejects, the query
// stays.
Util::String pathOf(const Util::String& url) {
    struct Release {
        void operator()(Util::URI::parsedURI* parsed) const { Util::URI::freeparsedURI(parsed); }
    };
    const std::unique_ptr<Util::URI::parsedURI, Release> parsed(Util::URI::parseURI(url.c_str()));
    Util::String path = Util::absolutePath(parsed.get());
    if (!path.empty()) return path;
    if (url.empty()) return Util::String::BLANK;
    if (*url.c_str() == '/') return url;
    warningMsg("Invalid URL ignored: using BLANK");
    return Util::String::BLANK;
}

}  // namespace

EntryRef InterceptorConfig::getConfig(Interaction* interaction, bool isClient) {
    const Util::String& url = interaction->getUrl();
    if (url.empty()) return nullptr;
    const Util::String& opName = interaction->getOpName();
    if (EntryRef entry = (isClient ? itsClientCache : itsServerCache)->find(url, opName))
        return entry;
    return decide(interaction, isClient, url, opName);
}

// Two threads that miss come by one after the other, and the second finds what the first decided.
// The texts are its own: a class of the host's may put others in the fields when it is asked again.
EntryRef InterceptorConfig::decide(Interaction* interaction, bool isClient,
                                   const Util::String& givenUrl, const Util::String& givenName) {
    const Util::String url = givenUrl;      // NOLINT(performance-unnecessary-copy-initialization)
    const Util::String opName = givenName;  // NOLINT(performance-unnecessary-copy-initialization)
    DecisionCache& cache = isClient ? *itsClientCache : *itsServerCache;
    Util::MutexGuard guard(itsLock);
    // Without memory for them it would be kept under those of another call.
    if (url != givenUrl || opName != givenName) return NewCacheEntry(interaction, isClient);
    EntryRef entry = cache.find(url, opName);
    if (entry != nullptr) return entry;
    cache.addSite(url);
    entry = NewCacheEntry(interaction, isClient);
    cache.insert(url, opName, entry);
    return entry;
}

EntryRef InterceptorConfig::NewCacheEntry(Interaction* interaction, bool isClient) {
    const Util::String& opName = interaction->getOpName();
    const Util::String& groupID = interaction->itsGroupID;
    interaction->loadFromCache();
    // A call with a known group name comes here before its group has an id: most never need one.
    if (groupID.empty() && !interaction->itsGroupName.empty())
        interaction->computeDefaultGroupData();
    Util::String serviceID = interaction->itsServiceID;
    const Util::String path = pathOf(interaction->getUrl());

    const Util::String fullName = opName.empty() ? path : opName + "@" + path;
    Util::String opID = Util::URI::md5hash(fullName.c_str());
    if (opID.empty()) opID = fullName;
    if (serviceID.empty()) serviceID = opName.empty() ? opID : Util::URI::md5hash(path.c_str());

    const char* group = groupID.c_str();
    const char* service = serviceID.c_str();
    // A call without an operation name passes only the rows that name no operation.
    const char* operation = opName.empty() ? nullptr : opID.c_str();
    std::unique_ptr<Row> names(findCPNames(group, service, operation, itsCPFilters));
    const bool includesPayload =
        findFilter(group, service, operation, isClient ? itsClientFilters : itsServerFilters) !=
        nullptr;
    const bool computesPath = findFilter(group, service, operation, itsPathFilters) != nullptr;
    return std::make_shared<const ConfigEntry>(groupID, std::move(serviceID), std::move(opID),
                                               names.release(), includesPayload, computesPath);
}

InterceptorConfig::Row* InterceptorConfig::findFilter(const char* group, const char* service,
                                                      const char* operation, Table* table) {
    if (table == nullptr) return nullptr;
    for (int i = 0; i < table->size(); ++i)
        if (rowMatches(*table->at(i), group, service, operation)) return table->at(i);
    return nullptr;
}

InterceptorConfig::Row* InterceptorConfig::findCPNames(const char* group, const char* service,
                                                       const char* operation, Table* table) {
    if (table == nullptr) return nullptr;
    std::unique_ptr<Row> names;
    for (int i = 0; i < table->size(); ++i) {
        Row& row = *table->at(i);
        if (!rowMatches(row, group, service, operation)) continue;
        if (names == nullptr) names = std::make_unique<Row>(2, 16);
        // An empty line is a name like any other.
        if (row.at(3).c_str() != nullptr) names->add(row.at(3));
    }
    return names.release();
}

}  // namespace Quenvale::Interceptor::SDK
