#pragma once

#include <string>

#include "agent/AgentPeer.h"

namespace QZAgent {

/// For reading: a headline with kind, side, operation and the like, then one indented line per
/// field. Every line ends with a line feed.
std::string textOf(const ReceivedEvent& received);
std::string textOf(const MalformedReport& report);
std::string textOf(const Counters& counters);

}  // namespace QZAgent
