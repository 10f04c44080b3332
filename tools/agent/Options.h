#pragma once

#include <optional>
#include <string>
#include <vector>

#include "agent/AgentPeer.h"
#include "agent/Faults.h"

namespace QZAgent {

/// The command line of qz-agent.
struct Options {
    std::string address = "127.0.0.1";
    int controlPort = 4848;
    std::optional<int> eventsPort;  // 0 is a free port
    std::string configFile;         // empty is the built-in configuration
    std::string checkFile;          // empty unless a configuration is only to be checked
    std::string agentId = "qz-agent";
    bool json = false;
    bool quiet = false;
    bool tree = false;
    bool help = false;
    Faults faults;
    Port faultsOn = Port::Both;
};

/// `arguments` without the program's name. False with `error` set when they make no sense.
bool parseOptions(const std::vector<std::string>& arguments, Options& options, std::string& error);

const char* usage();

}  // namespace QZAgent
