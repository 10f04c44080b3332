// A complete interceptor with the classes, and around it the program that it looks into: a service
// on a message bus. An order comes in on one thread and asks for a price; the price comes on
// another thread, and the order is answered there.

#include <cstring>
#include <iostream>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>

#include "helpers/Helpers.h"
#include "interaction/ClientInteraction.h"
#include "interaction/ServerInteraction.h"
#include "uplink/Uplink.h"

namespace {

using Quenvale::Interceptor::SDK::ClientInteraction;
using Quenvale::Interceptor::SDK::Helpers;
using Quenvale::Interceptor::SDK::Interaction;
using Quenvale::Interceptor::SDK::ServerInteraction;
namespace Util = Quenvale::Interceptor::SDK::Util;

// What the program knows of a message. A reply has the id of its request.
struct Message {
    std::string id;
    std::string url;
    std::string operation;
    std::string body;
    std::string context;  // what travels under the name QZ_Header
};

class Interceptor {
public:
    // An order has come in. From here on its id leads to it, on any thread.
    void requestArrived(const Message& request) {
        ServerInteraction* call = ServerInteraction::create(request.id.c_str());
        Helpers::readHeader(request.context.c_str(), call);
        describe(*call, request);
        call->requestAnalyzed();  // the request is reported
    }

    // A request goes out on behalf of the order `cause`. The result travels with it.
    std::string requestLeaves(const Message& request, const std::string& cause) {
        // The second key keeps the first one leading to the order alone.
        std::unique_ptr<ClientInteraction> call(
            ClientInteraction::create(cause.c_str(), request.id.c_str(), false, false));
        describe(*call, request);
        call->requestAnalyzed();  // the request is reported
        const Util::String context = Helpers::writeHeader(call.get(), false);
        call->manageExternally();  // it is ours from here on, and not the thread's
        const std::lock_guard<std::mutex> guard(itsLock);
        itsRequests[request.id] = std::move(call);
        return context.empty() ? "" : context.c_str();
    }

    // The reply to it has come, on whatever thread.
    void replyArrived(const Message& reply) {
        const std::unique_ptr<ClientInteraction> call = take(reply.id);
        if (call == nullptr) return;
        setContent(*call, reply.body);
        call->end();  // the reply is reported
    }

    // The order is answered, or failed.
    void replyLeaves(const Message& reply, const char* failure) {
        const std::unique_ptr<Interaction> call(Interaction::get(reply.id.c_str(), false));
        if (call == nullptr) return;
        setContent(*call, reply.body);
        call->itsFailure = failure;
        call->end();  // the reply is reported
    }

private:
    static void describe(Interaction& call, const Message& message) {
        call.setUrl(message.url.c_str());
        call.setOpName(message.operation.c_str());
        call.loadFromCache();  // the decision; the identifiers are fixed from here on
        setContent(call, message.body);
    }

    // A payload that the agent does not want need not be copied.
    static void setContent(Interaction& call, const std::string& body) {
        if (call.itIncludesPayload && !body.empty()) {
            auto* bytes = new unsigned char[body.size()];
            std::memcpy(bytes, body.data(), body.size());
            Util::nullify(&call.itsPayload, false);
            call.itsPayload = new Util::ByteArray(bytes, static_cast<int>(body.size()), true);
        }
        call.itsMsgSize = static_cast<long long>(body.size());
    }

    std::unique_ptr<ClientInteraction> take(const std::string& id) {
        const std::lock_guard<std::mutex> guard(itsLock);
        const auto found = itsRequests.find(id);
        if (found == itsRequests.end()) return nullptr;
        std::unique_ptr<ClientInteraction> call = std::move(found->second);
        itsRequests.erase(found);
        return call;
    }

    std::mutex itsLock;
    std::map<std::string, std::unique_ptr<ClientInteraction>> itsRequests;
};

// ---- The program.

void answer(Interceptor& interceptor, const Message& order) {
    const Message question = {"price-of-" + order.id, "bus://price.example/prices/ask", "ask", "7",
                              ""};
    interceptor.requestArrived(order);
    std::cout << "QZ_Header: " << interceptor.requestLeaves(question, order.id) << '\n';
    std::thread([&] {
        interceptor.replyArrived({question.id, "", "", "19.90", ""});
        interceptor.replyLeaves({order.id, "", "", "thanks", ""}, "the price is above the limit");
    }).join();
}

}  // namespace

int main() {
    Interceptor interceptor;
    answer(interceptor, {"order-1", "bus://orders.example/orders/place", "place", "article=6", ""});
    answer(interceptor, {"order-2", "bus://orders.example/orders/place", "place", "article=7",
                         "Interaction=i-2;Flow=f-2;FlowFields=customer:42;"});
    if (Interaction::uplink() != nullptr) Interaction::uplink()->flushAllQueues();
    return 0;
}
