#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "harness/RecordingUplink.h"
#include "harness/shown.h"
#include "interaction/ClientInteraction.h"
#include "interaction/ServerInteraction.h"

namespace harness {

/// Calls that report to the uplink that records. Each has a group, without which none reports.
class CallTest : public testing::Test {
protected:
    using Server = std::unique_ptr<Quenvale::Interceptor::SDK::ServerInteraction>;
    using Client = std::unique_ptr<Quenvale::Interceptor::SDK::ClientInteraction>;

    CallTest() { reports(); }

    static std::string reports() { return RecordingUplink::instance().kinds(); }

    static Server newServer(const char* key = nullptr) {
        Server server(Quenvale::Interceptor::SDK::ServerInteraction::create(key));
        server->itsGroupName = "shop";
        return server;
    }
    static Client newClient(const char* key = nullptr, const char* clientKey = nullptr) {
        Client client(
            Quenvale::Interceptor::SDK::ClientInteraction::create(key, clientKey, false, true));
        client->itsGroupName = "shop";
        return client;
    }
    static Quenvale::Interceptor::SDK::Interaction* onThread(bool isClient = false) {
        return Quenvale::Interceptor::SDK::Interaction::get(nullptr, isClient);
    }
};

}  // namespace harness
