// What the machine allows: for each case of the library, the least work that anything with its
// duties must do, and nothing beside it. A ratio to these tells what the library adds.
//
//   call        two readings of the clock, nine texts copied, a request event of 16 texts and 6
//               numbers and a reply event of 2 texts and 3 numbers, each built in one block and
//               copied into a buffer under a lock; the texts released
//   flat out    the same with a thread that sends each full buffer to a receiver; a full buffer
//               waits for the one before it
//   encoder     the request event alone
//   hash        the block function of an MD5-shaped hash on 64-bit words
//   warm        a lock and two look-ups, by url and by operation
//   cold        the path cut out of a url, four hashes of one block in base64, an entry made for
//               url and operation, and the oldest of 256 urls dropped
//
// Usage: qz_bench_floors PORT-OF-A-RAW-RECEIVER
#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <condition_variable>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>

#include "harness.h"
#include "workload.h"

namespace {

using bench::Request;
using std::string_view;

constexpr std::size_t kBufferSize = 64 * 1024;
constexpr const char* kIdentifier = "wKgBCgABrQwAAOq4dAAAAA==";

std::int64_t milliseconds() {
    timespec time;
    clock_gettime(CLOCK_REALTIME, &time);
    return std::int64_t{time.tv_sec} * 1000 + time.tv_nsec / 1000000;
}

/// Two buffers: one is filled while the other is sent, or, without a socket, starts over.
class Outbox {
public:
    explicit Outbox(int socket = -1) : itsSocket(socket) {
        for (auto& buffer : itsBuffers) buffer.reset(new char[kBufferSize]());
        if (itsSocket >= 0) std::thread([this] { sendAll(); }).detach();
    }

    void append(const char* bytes, std::size_t size) {
        std::unique_lock<std::mutex> guard(itsLock);
        if (itsUsed + size > kBufferSize) handOver(guard);
        std::memcpy(itsBuffers[itsFilling].get() + itsUsed, bytes, size);
        itsUsed += size;
    }

private:
    void handOver(std::unique_lock<std::mutex>& guard) {
        if (itsSocket >= 0) {
            itsChange.wait(guard, [this] { return itsUnsent == 0; });
            itsUnsent = itsUsed;
            itsFilling = 1 - itsFilling;
            itsChange.notify_all();
        }
        itsUsed = 0;
    }
    [[noreturn]] void sendAll() {
        std::unique_lock<std::mutex> guard(itsLock);
        for (;;) {
            itsChange.wait(guard, [this] { return itsUnsent != 0; });
            const char* from = itsBuffers[1 - itsFilling].get();
            const char* const end = from + itsUnsent;
            guard.unlock();
            while (from < end) {
                const ssize_t sent =
                    send(itsSocket, from, static_cast<std::size_t>(end - from), MSG_NOSIGNAL);
                if (sent <= 0) std::abort();
                from += sent;
            }
            guard.lock();
            itsUnsent = 0;
            itsChange.notify_all();
        }
    }

    std::mutex itsLock;
    std::condition_variable itsChange;
    std::unique_ptr<char[]> itsBuffers[2];
    int itsFilling = 0;
    std::size_t itsUsed = 0;
    std::size_t itsUnsent = 0;
    const int itsSocket;
};

template <class Number>
char* put(char* at, Number value) {
    const auto bits =
        sizeof value == 8
            ? static_cast<Number>(__builtin_bswap64(static_cast<std::uint64_t>(value)))
            : static_cast<Number>(__builtin_bswap32(static_cast<std::uint32_t>(value)));
    std::memcpy(at, &bits, sizeof bits);
    return at + sizeof bits;
}

/// An event in a block of its exact size: a walk for the size and the mask, and one that writes.
class Event {
public:
    Event(const string_view* texts, int textCount, const std::int64_t* numbers, int numberCount) {
        std::int64_t mask = 0;
        itsSize = kHeadSize + static_cast<std::size_t>(numberCount) * sizeof *numbers;
        for (int i = 0; i < textCount; ++i) {
            if (texts[i].empty()) continue;
            itsSize += sizeof(std::int32_t) + texts[i].size();
            mask |= std::int64_t{1} << i;
        }
        itsBytes = static_cast<char*>(std::malloc(itsSize));
        const auto size = static_cast<std::int32_t>(itsSize);
        *itsBytes = 0;
        char* at = put(put(put(put(itsBytes + 1, std::int32_t{1}), size), size), mask);
        for (int i = 0; i < numberCount; ++i) at = put(at, numbers[i]);
        for (int i = 0; i < textCount; ++i) {
            if (texts[i].empty()) continue;
            at = put(at, static_cast<std::int32_t>(texts[i].size()));
            std::memcpy(at, texts[i].data(), texts[i].size());
            at += texts[i].size();
        }
    }
    ~Event() { std::free(itsBytes); }
    Event(const Event&) = delete;
    Event& operator=(const Event&) = delete;

    const char* bytes() const { return itsBytes; }
    std::size_t size() const { return itsSize; }

private:
    static constexpr std::size_t kHeadSize = 21;

    char* itsBytes;
    std::size_t itsSize;
};

/// The texts of a request, with the operation once more, which the library keeps too.
constexpr int kKnown = bench::kTexts + 1;
struct Known {
    explicit Known(const Request& request) {
        std::copy(request.begin(), request.end(), texts);
        texts[bench::kTexts] = request[bench::kOperation];
    }
    const char* texts[kKnown];
};

Event requestEvent(const Known& known, std::int64_t start, unsigned number) {
    // Behind the texts stand seven identifiers: flow, interaction, upstream, group, service,
    // operation and path.
    string_view all[kKnown + 7];
    for (int i = 0; i < kKnown; ++i) all[i] = known.texts[i];
    for (int i = kKnown; i < kKnown + 7; ++i) all[i] = kIdentifier;
    const std::int64_t numbers[] = {start, 200, 0, 0, 1, std::int64_t{number}};
    return Event(all, kKnown + 7, numbers, 6);
}

void wholeCall(Outbox& outbox, unsigned number) {
    Known known(bench::request(number));
    const std::int64_t start = milliseconds();
    for (const char*& text : known.texts) text = ::strdup(text);
    {
        const Event event = requestEvent(known, start, number);
        outbox.append(event.bytes(), event.size());
    }
    const std::int64_t end = milliseconds();
    {
        const string_view identifiers[] = {kIdentifier, kIdentifier};
        const std::int64_t numbers[] = {end, 200, end - start};
        const Event event(identifiers, 2, numbers, 3);
        outbox.append(event.bytes(), event.size());
    }
    for (const char* text : known.texts) std::free(const_cast<char*>(text));
}

struct Hash {
    std::uint64_t words[4] = {0x67452301, 0xefcdab89, 0x98badcfe, 0x10325476};

    void takeBlock(const char* bytes) {
        static constexpr int kTurns[16] = {7, 12, 17, 22, 5, 9,  14, 20,
                                           4, 11, 16, 23, 6, 10, 15, 21};
        std::uint64_t x[16];
        for (int i = 0; i < 16; ++i) {
            std::uint32_t word;
            std::memcpy(&word, bytes + std::size_t{4} * static_cast<unsigned>(i), sizeof word);
            x[i] = word;
        }
        std::uint64_t a = words[0], b = words[1], c = words[2], d = words[3];
#pragma GCC unroll 64
        for (unsigned i = 0; i < 64; ++i) {
            std::uint64_t mixed = 0;
            unsigned from = 0;
            switch (i / 16) {
                case 0:
                    mixed = (b & c) | (~b & d);
                    from = i;
                    break;
                case 1:
                    mixed = (b & d) | (c & ~d);
                    from = 5 * i + 1;
                    break;
                case 2:
                    mixed = b ^ c ^ d;
                    from = 3 * i + 5;
                    break;
                default:
                    mixed = c ^ (b | ~d);
                    from = 7 * i;
            }
            const int turn = kTurns[i / 16 * 4 + i % 4];
            const std::uint64_t sum = a + mixed + x[from % 16] + ourTable.words[i];
            a = d;
            d = c;
            c = b;
            b += (sum << turn) | (sum >> (32 - turn));
        }
        words[0] += a;
        words[1] += b;
        words[2] += c;
        words[3] += d;
    }

    // Any numbers of 32 bits; not known to the compiler, as little as a table in memory is.
    struct Table {
        Table() {
            for (unsigned i = 0; i < 64; ++i) words[i] = (i + 1) * 0x9e3779b9u;
        }
        std::uint64_t words[64];
    };
    static inline const Table ourTable;
};

// 24 characters for a text of up to 55.
std::string hashed(string_view text) {
    static constexpr char kDigits[] =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    char block[64] = {};
    const std::size_t length = std::min<std::size_t>(text.size(), 55);
    std::memcpy(block, text.data(), length);
    block[length] = static_cast<char>(0x80);
    block[56] = static_cast<char>(length * 8);
    Hash hash;
    hash.takeBlock(block);
    unsigned char digest[18] = {};
    for (unsigned i = 0; i < 4; ++i) {
        const auto word = static_cast<std::uint32_t>(hash.words[i]);
        std::memcpy(digest + std::size_t{4} * i, &word, sizeof word);
    }
    char out[24];
    for (unsigned i = 0; i < 6; ++i) {
        const unsigned char* three = digest + std::size_t{3} * i;
        const unsigned bits = unsigned{three[0]} << 16 | unsigned{three[1]} << 8 | three[2];
        for (unsigned k = 0; k < 4; ++k) out[4 * i + k] = kDigits[bits >> (18 - 6 * k) & 63];
    }
    out[22] = out[23] = '=';
    return std::string(out, sizeof out);
}

class Decisions {
public:
    struct Entry {
        std::string group, service, operation, path;
    };

    void decide(const std::string& url, const char* operation) {
        const std::lock_guard<std::mutex> guard(itsLock);
        const string_view all(url);
        const std::size_t host = all.find("://") + 3;
        const std::size_t slash = all.find('/', host);
        const string_view path = all.substr(slash);
        Entry entry;
        entry.group = hashed(path.substr(1, path.find('/', 1) - 1));
        entry.service = hashed(path);
        entry.operation = hashed((std::string(operation) + '@').append(path));
        entry.path = hashed((std::string(operation) + '@').append(all.substr(host, slash - host)));
        if (itsOrder.size() < kMostUrls) {
            itsOrder.push_back(url);
        } else {
            itsEntries.erase(itsOrder[itsOldest]);
            itsOrder[itsOldest] = url;
            itsOldest = (itsOldest + 1) % kMostUrls;
        }
        itsEntries[url][operation] = std::move(entry);
    }
    const Entry& find(const char* url, const char* operation) {
        const std::lock_guard<std::mutex> guard(itsLock);
        return itsEntries.find(url)->second.find(operation)->second;
    }

private:
    static constexpr std::size_t kMostUrls = 256;

    std::mutex itsLock;
    std::unordered_map<std::string, std::unordered_map<std::string, Entry>> itsEntries;
    std::vector<std::string> itsOrder;
    std::size_t itsOldest = 0;
};

int connectTo(int port) {
    const int descriptor = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    if (connect(descriptor, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0)
        std::abort();
    return descriptor;
}

}  // namespace

int main(int count, char** arguments) {
    if (count != 2) return 2;
    // The shipping thread is also what keeps the C library from its single-threaded short cuts,
    // which the library's own threads deny it too.
    auto& shipping = *new Outbox(connectTo(std::atoi(arguments[1])));
    auto& outbox = *new Outbox;
    auto& pair = *new bench::Pair;
    const auto callInto = [](Outbox& target) {
        return [&target](unsigned number) { wholeCall(target, number); };
    };

    const Known known(bench::request(0));
    const auto encode = [&](unsigned number) {
        const Event event = requestEvent(known, 1700000000000, number);
        bench::use(*event.bytes());
    };
    const double eventSize = static_cast<double>(requestEvent(known, 0, 0).size());

    Hash hash;
    const char input[64] = "http://books.example:8080/orders";
    Decisions decisions, coldDecisions;
    for (unsigned i = 0; i < bench::kRequests; ++i)
        decisions.decide(bench::request(i)[bench::kUrl], bench::request(i)[bench::kOperation]);

    const auto hashBlock = [&](unsigned) {
        hash.takeBlock(input);
        bench::use(hash);
    };
    const auto find = [&](unsigned number) {
        const Request& each = bench::request(number);
        bench::use(decisions.find(each[bench::kUrl], each[bench::kOperation]));
    };
    const auto decide = [&](unsigned number) {
        coldDecisions.decide(bench::coldUrl(number), bench::request(number)[bench::kOperation]);
    };
    const auto encoder = bench::block(1000, encode);
    return bench::serve({
        {"call", bench::block(250, callInto(outbox))},
        {"call on each of two threads", pair.block(250, callInto(outbox))},
        {"flat out", bench::block(2500, callInto(shipping))},
        {"encoder, a byte", [&] { return encoder() / eventSize; }},
        {"hash", bench::block(1000, hashBlock)},
        {"warm decision", bench::block(1000, find)},
        {"cold decision", bench::block(125, decide)},
    });
}
