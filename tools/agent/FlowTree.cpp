#include "agent/FlowTree.h"

#include <algorithm>
#include <iterator>
#include <sstream>

#include "agent/Printable.h"

namespace QZAgent {

namespace {

using Interaction = FlowTree::Interaction;
using Flow = FlowTree::Flow;

constexpr std::size_t kKeptText = 160;  // bytes
constexpr std::size_t kKeptCheckpoints = 16;
constexpr std::size_t kDeepestIndent = 90;  // columns
/// A checkpoint's time above it is a point in time and not a span: 2001.
constexpr std::int64_t kFirstPointInTime = 1000LL * 1000 * 1000 * 1000;

std::string cut(const std::optional<std::string>& text) {
    return text.value_or("").substr(0, kKeptText);
}

std::string placeKey(bool isClient, const std::string& id) {
    return (isClient ? "c" : "s") + id;
}

void takeRequest(Interaction& call, const Event& event) {
    // A server has a parent id as well, of its own making: only the header ties it to a caller.
    call.callerID = cut(call.isClient ? event.parentID : event.upstreamInteractionID);
    call.opName = cut(event.opName);
    call.url = cut(event.url);
    call.group = cut(event.groupName);
    call.subNode = cut(event.subNode);
    call.begin = event.time;
    // An event that tells both sides has the time of the end.
    if (event.kind() == EventKind::Whole && event.time)
        call.begin = *event.time - event.rtTime.value_or(0);
    for (const Checkpoint& each : event.incomingCheckpoints) {
        if (call.passed.size() < kKeptCheckpoints)
            call.passed.push_back({cut(each.name), each.elapsed});
    }
    for (const std::string& name : event.newCheckpoints) {
        if (call.checkpoints.size() < kKeptCheckpoints) call.checkpoints.push_back(cut(name));
    }
}

void takeReply(Interaction& call, const Event& event) {
    call.isAnswered = true;
    call.failure = cut(event.failure);
    call.hasFailed =
        event.failure || event.hasFlag(Event::FAILURE) || event.failed.value_or(0) != 0;
    call.end = event.time;
}

/// Who is under whom, and the drawing.
class Drawing {
public:
    explicit Drawing(const Flow& flow);
    bool isComplete() const { return itsUnanswered == 0 && itsUnjoined == 0 && itsFlow.left == 0; }
    bool hasSilentClient() const;
    std::string text();

private:
    void draw(std::size_t at, const std::string& before, const char* branch,
              const std::string& indent);
    void line(std::size_t at);
    void checkpoints(const Interaction& call, const std::string& indent);
    bool isSubRequest(std::size_t at) const;
    std::string since(std::int64_t time) const;

    const Flow& itsFlow;
    std::vector<std::optional<std::size_t>> itsCallers;
    std::vector<std::vector<std::size_t>> itsCallees;
    std::vector<std::size_t> itsRoots;
    std::vector<bool> itsDrawn;
    std::int64_t itsBegin = 0;
    std::int64_t itsEnd = 0;
    std::size_t itsFailures = 0;
    std::size_t itsUnanswered = 0;
    std::size_t itsUnjoined = 0;
    std::ostringstream itsText;
};

Drawing::Drawing(const Flow& flow)
    : itsFlow(flow),
      itsCallers(flow.interactions.size()),
      itsCallees(flow.interactions.size()),
      itsDrawn(flow.interactions.size()) {
    bool hasTime = false;
    for (std::size_t at = 0; at < flow.interactions.size(); ++at) {
        const Interaction& call = flow.interactions[at];
        const auto caller = flow.places.find(placeKey(!call.isClient, call.callerID));
        if (!call.callerID.empty() && caller != flow.places.end()) {
            itsCallers[at] = caller->second;
            itsCallees[caller->second].push_back(at);
        } else {
            itsRoots.push_back(at);
            if (!call.callerID.empty() || !call.begin) ++itsUnjoined;
        }
        if (call.hasFailed) ++itsFailures;
        if (!call.isAnswered) ++itsUnanswered;
        for (const auto& time : {call.begin, call.end}) {
            if (!time) continue;
            itsBegin = hasTime ? std::min(itsBegin, *time) : *time;
            itsEnd = hasTime ? std::max(itsEnd, *time) : *time;
            hasTime = true;
        }
    }
    const auto isEarlier = [&](std::size_t one, std::size_t other) {
        return flow.interactions[one].begin < flow.interactions[other].begin;
    };
    std::stable_sort(itsRoots.begin(), itsRoots.end(), isEarlier);
    for (auto& callees : itsCallees) std::stable_sort(callees.begin(), callees.end(), isEarlier);
}

bool Drawing::hasSilentClient() const {
    for (std::size_t at = 0; at < itsCallees.size(); ++at) {
        if (itsFlow.interactions[at].isClient && itsCallees[at].empty()) return true;
    }
    return false;
}

std::string Drawing::text() {
    std::ostringstream body;
    for (const std::size_t root : itsRoots) draw(root, "", "", "    ");
    // Calls that name each other as callers hang below no root.
    for (std::size_t at = 0; at < itsDrawn.size(); ++at) {
        if (itsDrawn[at]) continue;
        ++itsUnjoined;
        draw(at, "", "", "    ");
    }
    body << "flow " << escaped(itsFlow.id) << ": " << itsFlow.interactions.size()
         << (itsFlow.interactions.size() == 1 ? " interaction in " : " interactions in ")
         << itsEnd - itsBegin << " ms";
    if (itsFailures > 0) body << ", " << itsFailures << " failed";
    if (itsUnanswered > 0) body << ", " << itsUnanswered << " without a reply";
    if (itsUnjoined > 0) body << ", " << itsUnjoined << " unjoined";
    if (itsFlow.left > 0) body << ", " << itsFlow.left << " more events are left out";
    body << '\n' << itsText.str() << '\n';
    return body.str();
}

void Drawing::draw(std::size_t at, const std::string& before, const char* branch,
                   const std::string& indent) {
    itsDrawn[at] = true;
    itsText << before << branch;
    line(at);
    const auto& callees = itsCallees[at];
    checkpoints(itsFlow.interactions[at], indent);
    for (std::size_t i = 0; i < callees.size(); ++i) {
        if (itsDrawn[callees[i]]) continue;
        const bool isLast = i + 1 == callees.size();
        const bool isDeep = indent.size() >= kDeepestIndent;
        draw(callees[i], indent, isLast ? "`-- " : "|-- ",
             isDeep ? indent : indent + (isLast ? "    " : "|   "));
    }
}

void Drawing::line(std::size_t at) {
    const Interaction& call = itsFlow.interactions[at];
    itsText << (isSubRequest(at) ? "sub-request" : call.isClient ? "client" : "server");
    if (!call.begin) {
        itsText << ' ' << escaped(call.id) << ", its request is not here";
    } else {
        itsText << ' ' << escaped(call.opName) << ' ' << escaped(call.url);
        if (!call.group.empty()) itsText << " [" << escaped(call.group) << ']';
        itsText << ' ' << since(*call.begin);
    }
    if (!call.isAnswered) {
        itsText << ", no reply";
    } else if (call.begin && call.end) {
        itsText << ", took " << *call.end - *call.begin << " ms";
    }
    if (call.hasFailed) {
        itsText << ", FAILED";
        if (!call.failure.empty()) itsText << ": " << escaped(call.failure);
    }
    if (!call.callerID.empty() && !itsCallers[at]) {
        itsText << ", unjoined: " << (call.isClient ? "server " : "client ")
                << escaped(call.callerID) << " is not here";
    }
    itsText << '\n';
}

void Drawing::checkpoints(const Interaction& call, const std::string& indent) {
    for (const Checkpoint& each : call.passed) {
        itsText << indent << "* passed " << escaped(each.name) << ' '
                << (each.elapsed >= kFirstPointInTime ? since(each.elapsed)
                                                      : std::to_string(each.elapsed) + " ms")
                << '\n';
    }
    for (const std::string& name : call.checkpoints) {
        itsText << indent << "* checkpoint " << escaped(name) << '\n';
    }
}

/// A client and a server that never left their process: they share the url of the server around
/// them, and its place.
bool Drawing::isSubRequest(std::size_t at) const {
    const Interaction& call = itsFlow.interactions[at];
    if (!call.isClient || !itsCallers[at] || itsCallees[at].size() != 1) return false;
    const Interaction& around = itsFlow.interactions[*itsCallers[at]];
    const Interaction& inner = itsFlow.interactions[itsCallees[at].front()];
    return call.url == around.url && inner.url == around.url && inner.subNode == around.subNode;
}

std::string Drawing::since(std::int64_t time) const {
    const std::int64_t offset = time - itsBegin;
    return (offset < 0 ? "at " : "at +") + std::to_string(offset) + " ms";
}

}  // namespace

std::string FlowTree::add(const Event& event, std::int64_t now) {
    Flow& flow = flowOf(event, now);
    const std::string id = cut(event.interactionID);
    const std::string key = placeKey(event.isClient(), id);
    auto place = flow.places.find(key);
    if (place == flow.places.end()) {
        if (flow.interactions.size() >= itsLimits.interactionsPerFlow) {
            ++flow.left;
            return "";
        }
        place = flow.places.emplace(key, flow.interactions.size()).first;
        flow.interactions.emplace_back();
        flow.interactions.back().isClient = event.isClient();
        flow.interactions.back().id = id;
        ++itsCount;
    }
    Interaction& call = flow.interactions[place->second];
    if (event.kind() != EventKind::Reply) takeRequest(call, event);
    if (event.kind() != EventKind::Request) takeReply(call, event);

    std::string text;
    while (itsFlows.size() > 1 &&
           (itsFlows.size() > itsLimits.flows || itsCount > itsLimits.interactions)) {
        text += drawFirst();
    }
    return text;
}

/// The flow moves to the end of the list.
Flow& FlowTree::flowOf(const Event& event, std::int64_t now) {
    const std::string id = cut(event.flowID);
    const auto found = itsPlaces.find(id);
    if (found == itsPlaces.end()) {
        itsFlows.emplace_back();
        itsFlows.back().id = id;
        itsPlaces.emplace(id, std::prev(itsFlows.end()));
    } else {
        itsFlows.splice(itsFlows.end(), itsFlows, found->second);
    }
    itsFlows.back().lastSeen = now;
    return itsFlows.back();
}

std::string FlowTree::drawFirst() {
    const Flow& flow = itsFlows.front();
    std::string text = Drawing(flow).text();
    itsCount -= flow.interactions.size();
    itsPlaces.erase(flow.id);
    itsFlows.pop_front();
    return text;
}

std::string FlowTree::drawComplete(std::int64_t now) {
    std::string text;
    for (auto flow = itsFlows.begin(); flow != itsFlows.end();) {
        const std::int64_t silence = now - flow->lastSeen;
        if (silence < itsLimits.settled) break;  // The others have been silent for less.
        const auto next = std::next(flow);
        const Drawing drawing(*flow);
        if (drawing.isComplete() && (silence >= itsLimits.patience || !drawing.hasSilentClient())) {
            itsFlows.splice(itsFlows.begin(), itsFlows, flow);
            text += drawFirst();
        }
        flow = next;
    }
    return text;
}

std::string FlowTree::drawAll() {
    std::string text;
    while (!itsFlows.empty()) text += drawFirst();
    return text;
}

}  // namespace QZAgent
