#include "agent/EventText.h"

#include <cstdio>
#include <sstream>
#include <type_traits>

#include "agent/Printable.h"

namespace QZAgent {

namespace {

constexpr std::size_t kShownPayload = 512;  // bytes

std::string flagNames(const Event& event) {
    static const struct {
        std::uint8_t flag;
        const char* name;
    } rows[] = {{Event::LOW_PRIORITY, " low-priority"},
                {Event::FAILURE, " failure"},
                {Event::ONE_WAY, " one-way"},
                {Event::CREATE, " create"},
                {Event::EVENT, " event"}};
    std::string names;
    for (const auto& row : rows) {
        if (event.hasFlag(row.flag)) names += row.name;
    }
    return names;
}

std::string shown(const std::string& text) {
    return escaped(text);
}

template <typename T>
std::string shown(T number) {
    return std::to_string(number);
}

class Lines {
public:
    void headline(const ReceivedEvent& received);
    void line(const std::string& name, const std::string& value) {
        itsText << "    " << name << std::string(name.size() < 22 ? 22 - name.size() : 1, ' ')
                << value << '\n';
    }
    void fields(const Event& event);
    void lists(const Event& event);
    void payload(const ReceivedEvent& received);
    std::string text() const { return itsText.str(); }

private:
    std::ostringstream itsText;
};

void Lines::headline(const ReceivedEvent& received) {
    const Event& event = received.event;
    char mask[24];
    std::snprintf(mask, sizeof mask, "0x%llx", static_cast<unsigned long long>(event.mask));
    itsText << '#' << received.arrival << ' ' << (event.isClient() ? "client " : "server ")
            << kindName(event.kind());
    if (event.opName) itsText << ' ' << escaped(*event.opName);
    if (event.url) itsText << ' ' << escaped(*event.url);
    if (event.rtTime) itsText << ' ' << *event.rtTime << " ms";
    itsText << flagNames(event) << "  (connection " << received.connection << ", tag "
            << event.eventTag << ", " << event.eventSize << " of " << event.totalSize
            << " bytes, mask " << mask << ")\n";
}

void Lines::fields(const Event& event) {
    for (const Field& field : eventFields()) {
        std::visit(
            [&](auto member) {
                const auto& value = event.*member;
                if (value) line(field.name, shown(*value));
            },
            field.member);
    }
}

void Lines::lists(const Event& event) {
    for (const auto& field : event.msgFields) {
        line("msgField", escaped(field.first) + " = " + escaped(field.second));
    }
    for (const Checkpoint& each : event.incomingCheckpoints) {
        line("incomingCheckpoint", escaped(each.name) + " " + std::to_string(each.elapsed));
    }
    if (event.incomingCount != static_cast<std::int32_t>(event.incomingCheckpoints.size())) {
        line("incomingCount", std::to_string(event.incomingCount));
    }
    for (const std::string& name : event.newCheckpoints) line("newCheckpoint", escaped(name));
}

void Lines::payload(const ReceivedEvent& received) {
    if (!received.event.hasPayload()) return;
    const std::string& all = received.payload;
    std::string value = std::to_string(all.size()) + " bytes";
    if (!received.contentType.empty()) value += ", " + escaped(received.contentType);
    value += ": " + escaped(all.substr(0, kShownPayload));
    if (all.size() > kShownPayload) value += "...";
    line("payload", value);
}

}  // namespace

std::string textOf(const ReceivedEvent& received) {
    Lines lines;
    lines.headline(received);
    lines.fields(received.event);
    lines.lists(received.event);
    lines.payload(received);
    return lines.text();
}

std::string textOf(const MalformedReport& report) {
    std::ostringstream text;
    text << "malformed: connection " << report.connection << ", byte " << report.offset;
    if (report.inEvent) text << ", byte " << *report.inEvent << " of its event";
    text << ": " << escaped(report.reason) << '\n';
    return text.str();
}

std::string textOf(const Counters& counters) {
    std::ostringstream text;
    text << "summary: " << counters.controlConnections + counters.eventConnections
         << " connections (" << counters.controlConnections << " control, "
         << counters.eventConnections << " events), " << counters.subscriptions
         << " subscriptions, " << counters.events << " events (" << counters.requests
         << " request, " << counters.replies << " reply, " << counters.wholes << " whole), "
         << counters.bytes << " bytes, " << counters.malformed << " malformed, " << counters.cut
         << " cut\n";
    return text.str();
}

}  // namespace QZAgent
