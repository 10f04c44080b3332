#pragma once

#include <string>

#include "agent/AgentPeer.h"

namespace QZAgent {

/// One JSON object, on one line without its end, "type" telling what it is.
///
/// A text that is no UTF-8 is read as Latin-1 and its name is listed under "latin1". A payload is
/// the text itself where it is printable UTF-8, else base64; "payloadEncoding" tells which.
std::string jsonOf(const ReceivedEvent& received);
std::string jsonOf(const MalformedReport& report);
std::string jsonOf(const Counters& counters);
std::string jsonOfNote(const std::string& line);

}  // namespace QZAgent
