#pragma once

#include <atomic>
#include <memory>

#include "config/ConfigEntry.h"
#include "util/List.h"
#include "util/String.h"
#include "util/Vector.h"
#include "util/annotations.h"
#include "util/export.h"
#include "util/qzmutex.h"

namespace Quenvale::Interceptor::SDK {

namespace Util {
class ByteStreamReader;
class StreamReader;
}  // namespace Util

class DecisionCache;
class Interaction;

/// What the management side has decided for this process: where the agent is, which calls deserve
/// what treatment, which flow fields travel, and how trust is handled. docs/operating.md has the
/// text, which the agent pushes or which stands in a file; each new one replaces the former whole.
///
/// Decisions are cached by URL and operation name, 256 URLs for clients and as many for servers.
/// The key holds neither group nor service: the first interaction decides for all later ones.
///
/// Threads:   any. A hit in the cache takes one lock and allocates nothing. Flags and numbers are
///            read without the lock, texts as a copy taken under it.
/// Ownership: entries and the list of flow fields are shared and outlive their configuration.
/// Errors:    a text that can't be read leaves no tables behind and getAlive() false; nothing is
///            thrown.
class QZ_API InterceptorConfig {
public:
    using Entry = ConfigEntry;               // What getConfig() decides.
    using EntryRef = SDK::EntryRef;          // Keeps a decision alive.
    using Row = Util::Vector<Util::String>;  // The cells of a row, or the lines of a list.
    using Table = Util::Vector<Row*>;        // Owns its rows.

    /// The one configuration of the process.
    static InterceptorConfig& itsCurrent;

    // The prefixes of the trust block's lines. Of a value only the character behind them counts.
    static const Util::String& kTrustKey;          // "trustKey="
    static const Util::String& kTrustAssert;       // "assertsTrust="
    static const Util::String& kTrustCheckAddr;    // "checksCallerAddress="
    static const Util::String& kTrustInterval;     // "trustInterval="
    static constexpr int kTrustKeyLen = 9;         // Characters of kTrustKey.
    static constexpr int kTrustAssertLen = 13;     // Of kTrustAssert.
    static constexpr int kTrustCheckAddrLen = 20;  // Of kTrustCheckAddr.
    static constexpr int kTrustIntervalLen = 14;   // Of kTrustInterval.

    /// One that comes from the file reads it at once. The process's own comes from the agent.
    explicit InterceptorConfig(bool isFromFile = false);
    ~InterceptorConfig();
    InterceptorConfig(const InterceptorConfig&) = delete;
    InterceptorConfig& operator=(const InterceptorConfig&) = delete;

    /// The file's path: "Uplink.cfg" in getConfigDirectory(). Worked out at the first use and then
    /// fixed.
    static Util::String& getConfigFilename();
    /// The environment variable "QZ_INTERCEPTORCONFIG", or "/var/opt/quenvale/QZ.Interceptor".
    static Util::String getConfigDirectory();
    static bool fileExists(const Util::String& path);  // False for NIL, too.

    /// Reads the file again. Throws an APIException unless the configuration comes from a file. A
    /// file that isn't there leaves the tables alone and getAlive() false; with `checkExists` it is
    /// not even opened.
    void Refresh(bool checkExists);
    /// The same, wherever the configuration comes from.
    void RefreshFromFile(bool checkExists);

    /// Takes what the agent pushed. Runs on: watcher.
    void load(Util::ByteStreamReader& reader);

    /// The parser of both roads. Holds the lock all through.
    void updateConfig(Util::StreamReader& reader);

    /// A count, then so many rows of `columns` lines each. The caller owns the result. Null when
    /// the reader throws; a count below 1 gives an empty table.
    static Table* ReadFilters(Util::StreamReader& reader, int columns);
    /// A count, then so many lines. The caller owns the result. Null for a count below 1; what the
    /// reader throws passes.
    static Row* ReadParams(Util::StreamReader& reader);

    /// Whether the last configuration could be read. Looks at the file at most once a minute: one
    /// that nobody has touched for 90 seconds counts as that of a dead agent.
    bool getAlive();

    /// The decision for a call, made at the first of its kind; null for one without a URL.
    EntryRef getConfig(Interaction* interaction, bool isClient);
    /// Draws the decision. The call needs a group by then, or it throws as loadFromCache() does.
    EntryRef NewCacheEntry(Interaction* interaction, bool isClient) QZ_REQUIRES(itsLock);

    /// The first row that matches; null for none and for no table. An empty cell is a wildcard. A
    /// blank group matches every row, a blank service or operation only a wildcard.
    static Row* findFilter(const char* group, const char* service, const char* operation,
                           Table* table);
    /// The names of all rows that match, in the table's order, or null. The caller owns it.
    static Row* findCPNames(const char* group, const char* service, const char* operation,
                            Table* table);

    /// Host and port of one configuration, for a connection.
    void agentAddress(Util::String& host, int& port) const;
    /// One character, or an empty text without a trust block.
    Util::String trustKey() const;
    /// Null until a configuration was read. Never changed once it is handed out.
    std::shared_ptr<Util::List<Util::String>> flowFieldNames() const;
    /// Without the lock. While a configuration is read this is still the former one's answer, so
    /// that a call that finds its decision meanwhile waits for the new names. It stays when the
    /// reading fails; flowFieldNames() is null then.
    bool hasFlowFieldNames() const { return itHasFlowFieldNames; }

private:
    static Util::String& itsConfigFilename;
    static Util::qzmutex& itsClassMutex;  // Guards itsConfigFilename and nothing else.

    QZ_LOCAL EntryRef decide(Interaction* interaction, bool isClient, const Util::String& givenUrl,
                             const Util::String& givenName);
    void dropTables() QZ_REQUIRES(itsLock);
    void parse(Util::StreamReader& reader) QZ_REQUIRES(itsLock);
    void readTrust(Util::StreamReader& reader, const Util::String& keyLine) QZ_REQUIRES(itsLock);

    Util::String itsAgentHost QZ_GUARDED_BY(itsLock);

public:
    std::atomic<int> itsAgentPort{0};  // For events; 0 before a configuration.
    std::atomic<int> itsEventTag{0};   // Goes into every event, 0 there counting as 1.

private:
    Table* itsServerFilters QZ_GUARDED_BY(itsLock) = nullptr;  // Three columns.
    Table* itsClientFilters QZ_GUARDED_BY(itsLock) = nullptr;  // Three columns.
    Table* itsCPFilters QZ_GUARDED_BY(itsLock) = nullptr;      // Four columns.
    Table* itsPathFilters QZ_GUARDED_BY(itsLock) = nullptr;    // Three columns.
    Row* itsParams QZ_GUARDED_BY(itsLock) = nullptr;           // Kept and never consulted.
    std::shared_ptr<Util::List<Util::String>> itsFlowFieldNames QZ_GUARDED_BY(itsLock);
    std::atomic<bool> itHasFlowFieldNames{false};

public:
    std::atomic<bool> itIsAlive{false};              // The last configuration was parsed in full.
    std::atomic<long long> itsLastCheck{0};          // When the file was last looked at, ms.
    std::atomic<bool> itAssertsTrust{false};         // Outgoing headers are signed.
    std::atomic<bool> itChecksTrust{false};          // Incoming headers are verified.
    std::atomic<bool> itChecksCallerAddress{false};  // Against the names of the peer.
    std::atomic<long long> itsTrustInterval{0};      // seconds

private:
    Util::String itsTrustKey QZ_GUARDED_BY(itsLock);  // One character.
    const bool itIsFromFile;
    /// @{
    /// Read without the lock, changed under it.
    const std::unique_ptr<DecisionCache> itsClientCache;
    const std::unique_ptr<DecisionCache> itsServerCache;
    /// @}
    Util::qzmutex itsLock;  // Guards the tables and what the caches are made from.
};

}  // namespace Quenvale::Interceptor::SDK
