#include "agent/EventJson.h"

#include <cstdio>
#include <nlohmann/json.hpp>

#include "agent/Printable.h"

namespace QZAgent {

namespace {

using Json = nlohmann::ordered_json;

/// A text's value, noting the names of those that had to be taken for Latin-1.
class Texts {
public:
    std::string operator()(const std::string& name, const std::string& bytes) {
        if (isUtf8(bytes)) return bytes;
        itsLatin1.push_back(name);
        return latin1ToUtf8(bytes);
    }
    const Json& latin1() const { return itsLatin1; }

private:
    Json itsLatin1 = Json::array();
};

Json flagsOf(const Event& event) {
    return {{"reply", event.hasFlag(Event::REPLIED)},
            {"client", event.hasFlag(Event::CLIENT)},
            {"lowPriority", event.hasFlag(Event::LOW_PRIORITY)},
            {"failure", event.hasFlag(Event::FAILURE)},
            {"oneWay", event.hasFlag(Event::ONE_WAY)},
            {"create", event.hasFlag(Event::CREATE)},
            {"event", event.hasFlag(Event::EVENT)},
            {"whole", event.hasFlag(Event::WHOLE)}};
}

std::string hex(unsigned long long value) {
    char text[24];
    std::snprintf(text, sizeof text, "0x%llx", value);
    return text;
}

void putHead(Json& json, const ReceivedEvent& received) {
    const Event& event = received.event;
    json["arrival"] = received.arrival;
    json["connection"] = received.connection;
    json["kind"] = kindName(event.kind());
    json["side"] = event.isClient() ? "client" : "server";
    json["flagsByte"] = event.flags;
    json["flags"] = flagsOf(event);
    json["eventTag"] = event.eventTag;
    json["totalSize"] = event.totalSize;
    json["eventSize"] = event.eventSize;
    json["mask"] = hex(event.mask);
}

void putFields(Json& json, const Event& event, Texts& texts) {
    for (const Field& field : eventFields()) {
        std::visit(
            [&](auto member) {
                const auto& value = event.*member;
                if (!value) return;
                if constexpr (std::is_same_v<std::decay_t<decltype(*value)>, std::string>) {
                    json[field.name] = texts(field.name, *value);
                } else {
                    json[field.name] = *value;
                }
            },
            field.member);
    }
}

void putLists(Json& json, const Event& event, Texts& texts) {
    for (const auto& [key, value] : event.msgFields) {
        json["msgFields"][texts("msgFields", key)] = texts("msgFields", value);
    }
    if (event.incomingCount != 0) json["incomingCount"] = event.incomingCount;
    for (const Checkpoint& each : event.incomingCheckpoints) {
        json["incomingCheckpoints"].push_back(
            {{"name", texts("incomingCheckpoints", each.name)}, {"elapsed", each.elapsed}});
    }
    for (const std::string& name : event.newCheckpoints) {
        json["newCheckpoints"].push_back(texts("newCheckpoints", name));
    }
}

void putPayload(Json& json, const ReceivedEvent& received, Texts& texts) {
    if (!received.event.hasPayload()) return;
    const bool isText = isPrintable(received.payload);
    json["payload"] = isText ? received.payload : base64(received.payload);
    json["payloadEncoding"] = isText ? "text" : "base64";
    if (!received.contentType.empty())
        json["contentType"] = texts("contentType", received.contentType);
}

}  // namespace

std::string jsonOf(const ReceivedEvent& received) {
    Json json{{"type", "event"}};
    Texts texts;
    putHead(json, received);
    putFields(json, received.event, texts);
    putLists(json, received.event, texts);
    putPayload(json, received, texts);
    if (!texts.latin1().empty()) json["latin1"] = texts.latin1();
    return json.dump();
}

std::string jsonOf(const MalformedReport& report) {
    Json json{{"type", "malformed"}, {"connection", report.connection}, {"offset", report.offset}};
    if (report.inEvent) json["inEvent"] = *report.inEvent;
    json["reason"] = report.reason;
    return json.dump();
}

std::string jsonOf(const Counters& counters) {
    const Json json{{"type", "summary"},
                    {"controlConnections", counters.controlConnections},
                    {"eventConnections", counters.eventConnections},
                    {"handshakes", counters.handshakes},
                    {"failedHandshakes", counters.failedHandshakes},
                    {"subscriptions", counters.subscriptions},
                    {"events", counters.events},
                    {"requests", counters.requests},
                    {"replies", counters.replies},
                    {"wholes", counters.wholes},
                    {"malformed", counters.malformed},
                    {"cut", counters.cut},
                    {"bytes", counters.bytes}};
    return json.dump();
}

std::string jsonOfNote(const std::string& line) {
    return Json{{"type", "note"}, {"text", isUtf8(line) ? line : latin1ToUtf8(line)}}.dump();
}

}  // namespace QZAgent
