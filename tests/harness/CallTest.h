#pragma once

#include "harness/RecordingUplink.h"
#include "harness/values.h"
#include "interaction/ClientInteraction.h"
#include "interaction/ServerInteraction.h"

namespace harness {

/// Calls that report to the uplink that records. Each has a group, without which none reports.
class CallTest : public testing::Test {
protected:
    using Server = std::unique_ptr<SDK::ServerInteraction>;
    using Client = std::unique_ptr<SDK::ClientInteraction>;

    CallTest() { reports(); }

    static std::string reports() { return RecordingUplink::instance().kinds(); }

    static Server newServer(const char* key = nullptr) {
        Server server(SDK::ServerInteraction::create(key));
        server->itsGroupName = "shop";
        return server;
    }
    static Client newClient(const char* key = nullptr, const char* clientKey = nullptr) {
        Client client(SDK::ClientInteraction::create(key, clientKey, false, true));
        client->itsGroupName = "shop";
        return client;
    }
    static SDK::Interaction* onThread(bool isClient = false) {
        return SDK::Interaction::get(nullptr, isClient);
    }
};

}  // namespace harness
