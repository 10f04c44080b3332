#pragma once

#include "capi/QZInt-c.h"
#include "capi/records.h"
#include "harness/RecordingUplink.h"

namespace harness {

/// Calls through the C interface that report to the uplink that records.
class RecordTest : public testing::Test {
protected:
    RecordTest() { reports(); }

    static std::vector<Report> reports() { return RecordingUplink::instance().take(); }
    static std::string kinds() { return RecordingUplink::instance().kinds(); }

    /// A text of the interface's, which is given back.
    static std::string taken(char* text) {
        const std::string result = text == nullptr ? "(null)" : text;
        qz_free(text);
        return result;
    }
    static std::string heldBy(ServerInteractionStruct* record) {
        PayloadStruct* payload = siGetPayload(record);
        const std::string result(reinterpret_cast<char*>(payload->data),
                                 static_cast<unsigned>(payload->size));
        qz_freePayload(payload);
        return result;
    }

    static ServerInteractionStruct* server() {
        ServerInteractionStruct* record = qz_beginServer();
        siSetUrl(record, "http://h/shop/cart");
        return record;
    }
    static void end(ServerInteractionStruct* record) {
        qz_endServer(record);
        freeServerInteraction(record);
    }
    static void end(ClientInteractionStruct* record) {
        qz_endClient(record);
        freeClientInteraction(record);
    }
    template <class Record>
    static InteractionStubStruct* stub(Record* record) {
        return record->interaction->stub;
    }
    template <class Record>
    static FlowStubStruct* flow(Record* record) {
        return stub(record)->site->flow;
    }
};

}  // namespace harness
