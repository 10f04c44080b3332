#include "agent/Options.h"

#include <cstdint>
#include <functional>
#include <limits>
#include <map>

namespace QZAgent {

namespace {

/// Decimal digits only, up to `most`.
std::optional<std::uint64_t> number(const std::string& text, std::uint64_t most) {
    std::uint64_t value = 0;
    if (text.empty() || text.size() > 18) return std::nullopt;
    for (const char digit : text) {
        if (digit < '0' || digit > '9') return std::nullopt;
        value = value * 10 + static_cast<std::uint64_t>(digit - '0');
    }
    return value <= most ? std::optional<std::uint64_t>(value) : std::nullopt;
}

template <typename Target>
bool store(const std::string& text, std::uint64_t most, Target& target) {
    const auto value = number(text, most);
    if (value) target = static_cast<int>(*value);
    return value.has_value();
}

bool storeCount(const std::string& text, std::optional<std::uint64_t>& target) {
    target = number(text, std::numeric_limits<std::int64_t>::max());
    return target.has_value();
}

bool storeBytes(const std::string& digits, std::string& target) {
    if (digits.empty() || digits.size() % 2 != 0) return false;
    if (digits.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos) return false;
    for (std::size_t at = 0; at < digits.size(); at += 2) {
        target.push_back(static_cast<char>(std::stoi(digits.substr(at, 2), nullptr, 16)));
    }
    return true;
}

bool storeAddress(const std::string& text, Options& options) {
    const std::size_t colon = text.rfind(':');
    if (colon == std::string::npos || colon == 0) return false;
    options.address = text.substr(0, colon);
    return store(text.substr(colon + 1), 65535, options.controlPort);
}

bool storePort(const std::string& text, Port& port) {
    static const std::map<std::string, Port> names = {
        {"control", Port::Control}, {"events", Port::Events}, {"both", Port::Both}};
    const auto found = names.find(text);
    if (found != names.end()) port = found->second;
    return found != names.end();
}

using Flags = std::map<std::string, bool*>;
using Values = std::map<std::string, std::function<bool(const std::string&)>>;

Flags flagsOf(Options& options) {
    Faults& faults = options.faults;
    return {{"--json", &options.json},
            {"--quiet", &options.quiet},
            {"--tree", &options.tree},
            {"--help", &options.help},
            {"--fault-refuse", &faults.refuse},
            {"--fault-silent-id", &faults.silentId},
            {"--fault-silent-accept", &faults.silentAccept},
            {"--fault-empty-id", &faults.emptyId},
            {"--fault-withhold-config", &faults.withholdConfig},
            {"--fault-reset", &faults.closeByReset}};
}

Values valuesOf(Options& options) {
    Faults& faults = options.faults;
    using Text = const std::string&;
    constexpr std::uint64_t most = std::numeric_limits<int>::max();
    return {
        {"--listen", [&](Text text) { return storeAddress(text, options); }},
        {"--events", [&](Text text) { return store(text, 65535, options.eventsPort); }},
        {"--config", [&](Text text) { return !(options.configFile = text).empty(); }},
        {"--check-config", [&](Text text) { return !(options.checkFile = text).empty(); }},
        {"--id", [&](Text text) { return !(options.agentId = text).empty(); }},
        {"--fault-on", [&](Text text) { return storePort(text, options.faultsOn); }},
        {"--fault-accept-byte", [&](Text text) { return store(text, 255, faults.acceptByte); }},
        {"--fault-garbage", [&](Text text) { return storeBytes(text, faults.garbage); }},
        {"--fault-close-after",
         [&](Text text) { return storeCount(text, faults.closeAfterBytes); }},
        {"--fault-close-after-event",
         [&](Text text) { return storeCount(text, faults.closeAfterEventBytes); }},
        {"--fault-read-pause", [&](Text text) { return store(text, most, faults.readPauseMs); }},
        {"--fault-read-chunk", [&](Text text) { return store(text, most, faults.readChunk); }},
    };
}

}  // namespace

bool parseOptions(const std::vector<std::string>& arguments, Options& options, std::string& error) {
    const Flags flags = flagsOf(options);
    const Values values = valuesOf(options);
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        const std::string& name = arguments[i];
        const auto flag = flags.find(name);
        const auto value = values.find(name);
        if (flag != flags.end()) {
            *flag->second = true;
        } else if (value == values.end()) {
            error = "unknown option " + name;
            return false;
        } else if (++i == arguments.size()) {
            error = name + " wants a value";
            return false;
        } else if (!value->second(arguments[i])) {
            error = name + " can't be " + arguments[i];
            return false;
        }
    }
    return true;
}

const char* usage() {
    return R"(qz-agent: a development agent. It takes connections from instrumented programs, pushes a
configuration to them and shows each event that they send.

  --listen ADDR:PORT  the control connection; 127.0.0.1:4848 by default, port 0 is a free one
  --events PORT       the port that events come to, 0 is a free one. By default 4849, or a free
                      one where that is taken; with --config the port line of FILE
  --config FILE       push FILE as it stands, and again whenever it changes. By default a
                      built-in configuration that reports everything, payloads and paths too.
                      With --events as well, FILE is not adapted: it should name that port
  --check-config FILE only say line by line how FILE is read as a configuration, and what in it
                      will not do what its author thinks. The exit status is 0 when nothing is
                      odd, 1 when something is, 2 when FILE can't be read
  --json              one JSON object a line
  --tree              each flow as a tree of its calls, in place of the events: when it seems
                      complete, when too many others go on, or at the end. With --json the
                      events come as ever and the trees go to the standard error
  --quiet             no events and no notes: what is malformed, and the summary
  --id TEXT           the id that connections are greeted with

The first line out is always "listening control ADDR:PORT events ADDR:PORT". With --json every
line behind it is a JSON object whose "type" is event, malformed, note or summary. SIGINT or
SIGTERM ends the program with a summary.

To try what a program does with an agent that misbehaves, for connections to one port or both:
  --fault-on control|events|both   where the following apply; both by default
  --fault-refuse                   close each connection before a byte
  --fault-silent-id                never send the id
  --fault-silent-accept            never send the accept byte
  --fault-empty-id                 send an id of no bytes
  --fault-accept-byte N            send N in place of the accept byte 1
  --fault-garbage HEX              send these bytes in place of the id
  --fault-withhold-config          push no configuration to a new subscriber
  --fault-close-after N            close when N bytes have come
  --fault-close-after-event N      close when N bytes have come behind the handshake
  --fault-reset                    these two by a reset
  --fault-read-pause MS            wait after each read
  --fault-read-chunk N             read at most N bytes at once
)";
}

}  // namespace QZAgent
