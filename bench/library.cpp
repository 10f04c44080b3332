// The library's cases, against the shared library as it ships and a live agent: without one, events
// are dropped before they are made. Usage: qz_bench_library OTHERS, how many calls stay open all
// the while, half of them on the measuring thread. The environment says where the agent is, and how
// large the queues are: where the cases of a call are to be compared with a floor that sends
// nothing, they hold a whole block, and the block is flushed outside the clock.
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>

#include "capi/QZInt-c.h"
#include "config/InterceptorConfig.h"
#include "harness.h"
#include "interaction/ServerInteraction.h"
#include "uplink/AgentEvent.h"
#include "util/md5.h"
#include "workload.h"

// Of qz_bench_allocations, where that is preloaded.
extern "C" unsigned long benchAllocations() __attribute__((weak));

namespace {

namespace SDK = Quenvale::Interceptor::SDK;
using bench::Request;

// Few calls at a time, so that what is queued stays in the processor's cache as a floor's does.
constexpr unsigned kCalls = 250;

unsigned long long ourReportedCalls = 0;

void setTexts(ServerInteractionStruct* call, const Request& known) {
    siSetUrl(call, known[bench::kUrl]);
    siSetOpName(call, known[bench::kOperation]);
    siSetGroupName(call, known[bench::kGroupName]);
    siSetServiceName(call, known[bench::kServiceName]);
    siSetPeerAddr(call, known[bench::kPeerAddress]);
    // There are no accessors for these.
    InteractionStubStruct* stub = call->interaction->stub;
    stub->securityID = qz_strdup(known[bench::kSecurityID]);
    stub->site->localAddr = qz_strdup(known[bench::kLocalAddress]);
    stub->site->siteAttr = qz_strdup(known[bench::kSiteAttribute]);
}

ServerInteractionStruct* openCall(unsigned number) {
    ServerInteractionStruct* call = qz_beginServer();
    setTexts(call, bench::request(number));
    qz_serverAnalyzed(call);
    return call;
}

void serverCall(unsigned number) {
    ServerInteractionStruct* call = openCall(number);
    qz_endServer(call);
    freeServerInteraction(call);
}

/// A block that reports so many calls in each of its goes.
std::function<double()> reporting(unsigned calls, const std::function<double()>& block) {
    return [=] {
        ourReportedCalls += calls * bench::kGoes;
        return block();
    };
}

double endCalls() {
    static unsigned number = 0;
    constexpr int kEnds = 50;
    const auto end = [] {
        double sum = 0;
        for (int i = 0; i < kEnds; ++i) {
            ServerInteractionStruct* call = openCall(number++);
            const double start = bench::nanoseconds();
            qz_endServer(call);
            sum += bench::nanoseconds() - start;
            freeServerInteraction(call);
        }
        return sum / kEnds;
    };
    ourReportedCalls += kEnds * bench::kGoes;
    return bench::medianOfGoes(end, qz_flushUplink);
}

double countAllocations() {
    if (benchAllocations == nullptr) return -1;
    ourReportedCalls += kCalls;
    const unsigned long before = benchAllocations();
    for (unsigned i = 0; i < kCalls; ++i) serverCall(i);
    const unsigned long after = benchAllocations();
    qz_flushUplink();
    return static_cast<double>(after - before) / kCalls;
}

/// An interaction as a call has it when its url and operation are known. It reports nothing.
struct Undecided : SDK::ServerInteraction {
    Undecided(const char* url, const char* operation) {
        itsUrl = url;
        itsOpName = operation;
    }
};
using Undecideds = std::vector<std::unique_ptr<Undecided>>;

Undecideds undecided(unsigned count, const char* (*url)(unsigned), unsigned first) {
    Undecideds calls;
    for (unsigned i = first; i < first + count; ++i)
        calls.push_back(std::make_unique<Undecided>(url(i), bench::request(i)[bench::kOperation]));
    return calls;
}

int encodeRequest(SDK::Interaction& call) {
    unsigned char room[2048];
    SDK::Util::ByteArray event = SDK::AgentEvent(&call, false, true).serialize(room, sizeof room);
    bench::use(*event.data);
    const int size = event.length;
    event.releaseContent();
    return size;
}

void describe(SDK::Interaction& call, const Request& known) {
    call.setGroupName(known[bench::kGroupName]);
    call.setServiceName(known[bench::kServiceName]);
    call.setSecurityID(known[bench::kSecurityID]);
    call.setPeerAddr(known[bench::kPeerAddress]);
    call.itsLocalAddr = known[bench::kLocalAddress];
    call.itsSiteAttr = known[bench::kSiteAttribute];
    call.itsSubNode = SDK::Interaction::ourServerInstance;
    call.markTime();
}

// With all that hangs on it: the group from the url, too.
double coldDecisions() {
    static unsigned number = 0;
    constexpr unsigned kDecisions = 125;
    const auto decide = [] {
        const unsigned first = number;
        const Undecideds calls = undecided(kDecisions, bench::coldUrl, first);
        const auto load = [&](unsigned i) { calls[i - first]->loadFromCache(); };
        return bench::timed(kDecisions, number, load);
    };
    return bench::medianOfGoes(decide, bench::nothing);
}

double residentBytes() {
    std::ifstream statm("/proc/self/statm");
    double total = 0, resident = 0;
    statm >> total >> resident;
    return resident * static_cast<double>(sysconf(_SC_PAGESIZE));
}

void callFor(double seconds) {
    const double end = bench::nanoseconds() + seconds * 1e9;
    for (; bench::nanoseconds() < end; ourReportedCalls += kCalls)
        for (unsigned i = 0; i < kCalls; ++i) serverCall(i);
}

double growth() {
    callFor(1);
    const double before = residentBytes();
    callFor(4);
    return residentBytes() - before;
}

/// Opens calls that stay open. The result is what each takes, in bytes beside its eight texts.
double openOthers(unsigned others) {
    double texts = 0;
    for (unsigned i = 0; i < others; ++i)
        for (const char* text : bench::request(i))
            texts += static_cast<double>(std::strlen(text) + 1);
    const auto openSome = [](unsigned from, unsigned to) {
        for (unsigned i = from; i < to; ++i) {
            openCall(i);
            if (i % kCalls == 0) qz_flushUplink();
        }
        qz_flushUplink();
    };
    const double before = residentBytes();
    openSome(0, others / 2);
    std::atomic<bool> isDone{false};
    std::thread([&] {
        openSome(others / 2, others);
        isDone = true;
        for (;;) pause();  // What a thread has open must not go with it.
    }).detach();
    while (!isDone) std::this_thread::yield();
    return (residentBytes() - before - texts) / others;
}

}  // namespace

int main(int count, char** arguments) {
    if (count != 2) return 2;
    const auto others = static_cast<unsigned>(std::atoi(arguments[1]));
    auto& pair = *new bench::Pair;
    const auto calls = reporting(kCalls, bench::block(kCalls, serverCall, qz_flushUplink));
    calls();  // What is made once: streams, caches, the pages of the buffers.
    const double perOpenCall = openOthers(others);

    const auto known = undecided(
        bench::kRequests, [](unsigned i) { return bench::request(i)[bench::kUrl]; }, 0);
    for (const auto& each : known) each->loadFromCache();
    const auto find = [&](unsigned i) {
        Undecided* const each = known[i % bench::kRequests].get();
        bench::use(SDK::InterceptorConfig::itsCurrent.getConfig(each, false));
    };
    SDK::Interaction& call = *known[0];
    describe(call, bench::request(0));
    const double eventSize = encodeRequest(call);
    const auto encoder = bench::block(1000, [&](unsigned) { encodeRequest(call); });
    unsigned char input[64] = "http://books.example:8080/orders";
    SDK::Util::Quenvale_MD5Context context;
    SDK::Util::Quenvale_MD5Init(&context);
    const auto hashBlock = [&](unsigned) {
        SDK::Util::Quenvale_MD5Update(&context, input, sizeof input);
    };
    return bench::serve({
        {"call", calls},
        {"call on each of two threads",
         reporting(2 * kCalls, pair.block(kCalls, serverCall, qz_flushUplink))},
        {"flat out", reporting(10 * kCalls, bench::block(10 * kCalls, serverCall))},
        {"encoder, a byte", [&] { return encoder() / eventSize; }},
        {"hash", bench::block(1000, hashBlock)},
        {"warm decision", bench::block(1000, find)},
        {"cold decision", coldDecisions},
        {"end", endCalls},
        {"allocations", countAllocations},
        {"growth, bytes", growth},
        {"an open call, bytes", [&] { return perOpenCall; }},
        {"events reported",
         [&] {
             qz_flushUplink();
             return 2.0 * static_cast<double>(ourReportedCalls) + others;
         }},
    });
}
