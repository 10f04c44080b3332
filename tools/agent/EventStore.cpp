#include "agent/EventStore.h"

#include <chrono>
#include <utility>

namespace QZAgent {

namespace {

constexpr std::size_t kMostReports = 1000;

void countEvent(Counters& counters, EventKind kind) {
    ++counters.events;
    if (kind == EventKind::Request) ++counters.requests;
    if (kind == EventKind::Reply) ++counters.replies;
    if (kind == EventKind::Whole) ++counters.wholes;
}

}  // namespace

EventStore::EventStore(const PeerSettings& settings)
    : itsOnEvent(settings.onEvent),
      itsOnMalformed(settings.onMalformed),
      itsOnNote(settings.onNote) {}

void EventStore::add(int connection, Message& message) {
    ReceivedEvent received;
    received.arrival = itsArrivals++;
    received.connection = connection;
    received.event = std::move(message.event);
    received.payload = std::move(message.payload);
    received.contentType = std::move(message.contentType);
    received.raw = std::move(message.raw);
    if (itsOnEvent) itsOnEvent(received);
    const EventKind kind = received.event.kind();
    const std::lock_guard<std::mutex> guard(itsLock);
    if (!itsOnEvent) itsEvents.push_back(std::move(received));
    countEvent(itsCounters, kind);
    itsChange.notify_all();
}

void EventStore::add(const MalformedReport& report) {
    if (itsOnMalformed) itsOnMalformed(report);
    const std::lock_guard<std::mutex> guard(itsLock);
    if (itsMalformed.size() < kMostReports) itsMalformed.push_back(report);
    ++itsCounters.malformed;
    itsChange.notify_all();
}

void EventStore::note(const std::string& line) {
    if (itsOnNote) itsOnNote(line);
}

void EventStore::count(const std::function<void(Counters&)>& change) {
    const std::lock_guard<std::mutex> guard(itsLock);
    change(itsCounters);
    itsChange.notify_all();
}

Counters EventStore::counters() const {
    const std::lock_guard<std::mutex> guard(itsLock);
    return itsCounters;
}

std::vector<ReceivedEvent> EventStore::events() const {
    const std::lock_guard<std::mutex> guard(itsLock);
    return itsEvents;
}

void EventStore::forgetEvents() {
    const std::lock_guard<std::mutex> guard(itsLock);
    itsEvents.clear();
}

std::vector<MalformedReport> EventStore::malformed() const {
    const std::lock_guard<std::mutex> guard(itsLock);
    return itsMalformed;
}

std::vector<ReceivedEvent> EventStore::waitForEvents(std::size_t count, int timeoutMs) {
    std::unique_lock<std::mutex> guard(itsLock);
    itsChange.wait_for(guard, std::chrono::milliseconds(timeoutMs),
                       [&] { return itsEvents.size() >= count; });
    return itsEvents;
}

bool EventStore::waitFor(const std::function<bool(const Counters&)>& met, int timeoutMs) {
    std::unique_lock<std::mutex> guard(itsLock);
    return itsChange.wait_for(guard, std::chrono::milliseconds(timeoutMs),
                              [&] { return met(itsCounters); });
}

}  // namespace QZAgent
