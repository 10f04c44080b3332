#include "agent/Event.h"

namespace QZAgent {

EventKind Event::kind() const {
    if (hasFlag(WHOLE)) return EventKind::Whole;
    return hasFlag(REPLIED) ? EventKind::Reply : EventKind::Request;
}

bool Event::hasPayload() const {
    return (mask >> kPayloadBit & 1) != 0;
}

const std::string* Event::msgField(const std::string& name) const {
    for (const auto& field : msgFields) {
        if (field.first == name) return &field.second;
    }
    return nullptr;
}

const std::vector<Field>& eventFields() {
    using S = FieldScope;
    // Never destroyed: the agent's thread may still decode while a program leaves main().
    static const auto& rows = *new std::vector<Field>{
        {"flowID", 2, S::Always, &Event::flowID},
        {"formatMark", 43, S::Always, &Event::formatMark},
        {"interactionID", 5, S::Always, &Event::interactionID},
        {"upstreamInteractionID", 46, S::Request, &Event::upstreamInteractionID},
        {"time", 0, S::Always, &Event::time},
        {"msgSize", 25, S::Always, &Event::msgSize},
        {"sizeB", 26, S::Always, &Event::sizeB},
        {"sizeC", 27, S::Always, &Event::sizeC},
        {"sizeD", 28, S::Always, &Event::sizeD},
        {"debugInfo", 20, S::Always, &Event::debugInfo},
        {"rtTime", 1, S::WholeOnly, &Event::rtTime},
        {"parentID", 3, S::Request, &Event::parentID},
        {"flowAttr1", 4, S::Request, &Event::flowAttr1},
        {"locus", 6, S::Request, &Event::locus},
        {"sequenceNumber", 7, S::Request, &Event::sequenceNumber},
        {"url", 14, S::Request, &Event::url},
        {"securityID", 8, S::Request, &Event::securityID},
        {"securityAttr1", 9, S::Request, &Event::securityAttr1},
        {"groupName", 10, S::Request, &Event::groupName},
        {"serviceName", 11, S::Request, &Event::serviceName},
        {"opName", 12, S::Request, &Event::opName},
        {"groupID", 13, S::Request, &Event::groupID},
        {"serviceID", 44, S::Request, &Event::serviceID},
        {"siteAttr", 15, S::Request, &Event::siteAttr},
        {"opID", 16, S::Request, &Event::opID},
        {"otherOpID", 42, S::ServerRequest, &Event::otherOpID},
        {"localAddr", 38, S::Request, &Event::localAddr},
        {"peerAddr", 17, S::Request, &Event::peerAddr},
        {"calleeAddr", 48, S::ServerRequest, &Event::calleeAddr},
        {"callerAddr", 49, S::ServerRequest, &Event::callerAddr},
        {"peerType", 21, S::Request, &Event::peerType},
        {"platformType", 45, S::Request, &Event::platformType},
        {"appType", 22, S::Request, &Event::appType},
        {"svcType", 23, S::Request, &Event::svcType},
        {"opType", 24, S::Request, &Event::opType},
        {"pathID", 32, S::Request, &Event::pathID},
        {"pPathID", 41, S::Request, &Event::pPathID},
        {"flowAttr2", 34, S::Request, &Event::flowAttr2},
        {"coTime", 30, S::Reply, &Event::coTime},
        {"failure", 18, S::Reply, &Event::failure},
        {"failed", 37, S::Reply, &Event::failed},
        {"subNode", 33, S::Request, &Event::subNode},
    };
    return rows;
}

const char* kindName(EventKind kind) {
    switch (kind) {
        case EventKind::Request:
            return "request";
        case EventKind::Reply:
            return "reply";
        default:
            return "whole";
    }
}

}  // namespace QZAgent
