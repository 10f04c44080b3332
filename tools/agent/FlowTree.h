#pragma once

#include <cstddef>
#include <cstdint>
#include <list>
#include <map>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "agent/Event.h"

namespace QZAgent {

/// How much is kept of flows that go on. Times are ms.
struct FlowLimits {
    std::size_t flows = 1000;
    std::size_t interactions = 20000;       // over all flows
    std::size_t interactionsPerFlow = 500;  // what comes beyond is counted and not drawn
    /// A flow is drawn this long after its last event when every call in it is answered and every
    /// caller is there; one whose clients call something that reports nothing takes longer, since
    /// a process may keep its events for as long as it likes.
    std::int64_t settled = 1000;
    std::int64_t patience = 20000;
};

/// Gathers events into flows, and draws each flow as the tree of its interactions: a server under
/// the client that called it, in whatever process, and a client under its server.
///
/// What is drawn is forgotten. A flow is drawn when it seems complete, when room is wanted for
/// others (the one that was silent for longest goes first), or at the end.
///
/// Threads:   one at a time.
/// Times:     `now` is ms of any clock that doesn't go back.
class FlowTree {
public:
    explicit FlowTree(const FlowLimits& limits = FlowLimits()) : itsLimits(limits) {}

    /// These three give the text of what there is to draw now, often none: for each flow a line
    /// that begins with "flow ", then a line or more per interaction, then an empty line.
    std::string add(const Event& event, std::int64_t now);
    std::string drawComplete(std::int64_t now);
    std::string drawAll();

    /// One call, as far as its events have come. Long texts are kept cut.
    struct Interaction {
        bool isClient = false;
        std::string id;
        std::string callerID;  // a client's server, a server's client; empty where there is none
        std::string opName;
        std::string url;
        std::string group;
        std::string failure;
        std::string subNode;
        std::optional<std::int64_t> begin;  // ms since 1970
        std::optional<std::int64_t> end;
        bool isAnswered = false;
        bool hasFailed = false;
        std::vector<Checkpoint> passed;
        std::vector<std::string> checkpoints;  // its own
    };

    struct Flow {
        std::string id;
        std::int64_t lastSeen = 0;
        std::size_t left = 0;  // events of interactions beyond the limit
        std::vector<Interaction> interactions;
        std::map<std::string, std::size_t> places;  // of interactions, by side and id
    };

private:
    using Flows = std::list<Flow>;

    Flow& flowOf(const Event& event, std::int64_t now);
    std::string drawFirst();

    FlowLimits itsLimits;
    Flows itsFlows;  // The one that was silent for longest is in front.
    std::unordered_map<std::string, Flows::iterator> itsPlaces;
    std::size_t itsCount = 0;  // interactions in all flows
};

}  // namespace QZAgent
