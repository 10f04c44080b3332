// Asks the library about each context header on standard input, one a line, as the server's side of
// an interceptor in C++ asks about the header of each request.
//
//   trust-check [PEER]     the address that the requests come from; 127.0.0.1 by default
//
// Whether trust is checked at all is in the agent's configuration: without a trust block in it, and
// without an agent, every caller is trusted. Each header is reported as a call, a refused one as a
// failed call. The exit status is 1 if one was refused.

#include <iostream>
#include <memory>
#include <string>

#include "helpers/Helpers.h"
#include "interaction/Interaction.h"
#include "interaction/ServerInteraction.h"
#include "uplink/Uplink.h"

namespace {

using Quenvale::Interceptor::SDK::Helpers;
using Quenvale::Interceptor::SDK::Interaction;
using Quenvale::Interceptor::SDK::ServerInteraction;
namespace Util = Quenvale::Interceptor::SDK::Util;

bool serve(const std::string& header, const char* peer) {
    const std::unique_ptr<ServerInteraction> call(ServerInteraction::create(Util::String::NIL));
    // In front of requestAnalyzed(): the flow and the caller are in it.
    const bool hasContext = Helpers::readHeader(Util::String(header.c_str()), call.get());
    call->setUrl("http://localhost/trust-check");
    call->setOpName("CHECK");
    call->setGroupName("demo-trust");
    call->setPeerAddr(peer);
    call->requestAnalyzed();

    const bool isTrusted = hasContext && Helpers::checkTrust(call.get());
    if (!isTrusted) call->itsFailure = "the caller is not trusted";
    std::cout << (isTrusted ? "trusted" : "refused") << ": flow " << call->getFlowID().c_str()
              << '\n';
    call->end();
    return isTrusted;
}

}  // namespace

int main(int argc, char** argv) {
    const char* const peer = argc > 1 ? argv[1] : "127.0.0.1";
    bool areAllTrusted = true;
    for (std::string header; std::getline(std::cin, header);) {
        areAllTrusted = serve(header, peer) && areAllTrusted;
    }
    if (Interaction::uplink() != nullptr) Interaction::uplink()->flushAllQueues();
    return areAllTrusted ? 0 : 1;
}
