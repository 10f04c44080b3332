// An interceptor with the classes, outside of the tree: an uplink of its own that hears of a call,
// a stream, a container, a document, and an error of either kind that crosses the library's border.
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "interaction/ServerInteraction.h"
#include "io/ByteOutputStream.h"
#include "io/DataOutputStream.h"
#include "uplink/AgentEvent.h"
#include "uplink/Uplink.h"
#include "util/Map.h"
#include "xml/XMLDocument.h"

namespace {

using namespace Quenvale::Interceptor::SDK;

int failures = 0;

void expect(bool fact, const char* what) {
    if (fact) return;
    ++failures;
    std::cerr << "wrong: " << what << '\n';
}

/// Keeps what an agent would be sent.
class Recorder final : public Uplink {
public:
    bool getAlive() override { return true; }
    void notifyAgent(Interaction* interaction) override {
        Util::ByteArray event = AgentEvent(interaction, false, false).serialize();
        events.emplace_back(reinterpret_cast<const char*>(event.data),
                            static_cast<std::size_t>(event.length));
        event.releaseContent();
    }
    void flushAllQueues() override {}
    void shutdown() override {}

    std::vector<std::string> events;
};

void reportACall(Recorder& recorder) {
    const std::unique_ptr<ServerInteraction> server(ServerInteraction::create(Util::String::NIL));
    server->setUrl("http://h/svc/a");
    server->setOpName("getQuote");
    server->requestAnalyzed();
    expect(server->itsOpID == "6zXhIOgbNdAzRQS6Y93HcQ==", "operation id");
    expect(Interaction::get(Util::String::NIL, false) == server.get(), "innermost server");

    server->end();
    expect(recorder.events.size() == 2, "two events of the call");
    for (const std::string& event : recorder.events)
        expect(event.find(server->getFlowID().c_str()) != std::string::npos, "flow in the event");
}

// An error of either kind crosses the library's border.
void meetRefusals() {
    IO::ByteOutputStream bytes(16);
    IO::DataOutputStream out(&bytes);
    out.writeUnsignedInt(300);
    expect(bytes.getCount() == 2 && bytes.getBuffer()[0] == 0xAC, "300 in two bytes");
    try {
        out.writeUnsignedInt(-1);
        expect(false, "a negative number is refused");
    } catch (Util::IOException* refusal) {
        expect(refusal->getMessage().c_str() != nullptr, "its message");
        delete refusal;
    }
    RofXML::XMLDocument document;
    document.parse("<shop open='yes'><item>7 &lt; 8</item></shop>");
    expect(document.hasAttribute("open") && document.getTags().size() == 1, "a document's tree");
    try {
        document.parse("<shop>&none;</shop>");
        expect(false, "an unknown entity is refused");
    } catch (const Util::String& message) {
        expect(!message.empty(), "its message");
    }
    Util::Map<int> map;
    map.put("one", 1);
    expect(map.find("one") == 1 && map.find("two") == 0, "a map's values");
}

}  // namespace

int main() {
    auto* const recorder = new Recorder;  // The library may report until the process ends.
    Interaction::ourUplink = recorder;
    reportACall(*recorder);
    meetRefusals();
    std::cout << (failures == 0 ? "ok" : "wrong") << '\n';
    return failures;
}
