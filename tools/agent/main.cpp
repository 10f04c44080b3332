#include <pthread.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <ctime>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "agent/AgentPeer.h"
#include "agent/ConfigCheck.h"
#include "agent/ConfigFile.h"
#include "agent/Options.h"
#include "agent/Printer.h"

namespace QZAgent {
namespace {

constexpr int kUsualEventsPort = 4849;
constexpr long kLookInterval = 200L * 1000 * 1000;  // ns between looks at the configuration file

int complain(const std::string& error, int status) {
    std::fprintf(stderr, "qz-agent: %s\n", error.c_str());
    return status;
}

int checkConfig(const std::string& path) {
    ConfigFile file(path);
    const std::optional<std::string> text = file.read();
    if (!text) return complain(file.error(), 2);
    const ConfigCheck check(*text);
    std::fputs(check.report.c_str(), stdout);
    return check.isOdd ? 1 : 0;
}

/// One run of the program, from its options to its summary.
class Run {
public:
    explicit Run(const Options& options)
        : itsOptions(options),
          itsPrinter(options.json, options.quiet, options.tree),
          itsFile(options.configFile) {}

    int run();

private:
    bool hasFile() const { return !itsOptions.configFile.empty(); }
    bool prepare(PeerSettings& settings, std::string& error);
    bool start(PeerSettings& settings, std::string& error);
    bool startPeer(const PeerSettings& settings, std::string& error);
    void warnAboutPort(const std::string& config);
    void takeFile(const std::string& config);
    void waitForSignal(const sigset_t& ends);

    const Options& itsOptions;
    Printer itsPrinter;
    ConfigFile itsFile;
    std::unique_ptr<AgentPeer> itsPeer;
};

bool Run::prepare(PeerSettings& settings, std::string& error) {
    settings.address = itsOptions.address;
    settings.controlPort = itsOptions.controlPort;
    settings.agentId = itsOptions.agentId;
    settings.eventsPort = itsOptions.eventsPort.value_or(kUsualEventsPort);
    settings.onEvent = [this](const ReceivedEvent& received) { itsPrinter.event(received); };
    settings.onMalformed = [this](const MalformedReport& report) { itsPrinter.malformed(report); };
    settings.onNote = [this](const std::string& line) { itsPrinter.note(line); };
    if (!hasFile()) return true;
    settings.config = itsFile.read();
    if (!settings.config) {
        error = itsFile.error();
        return false;
    }
    if (itsOptions.eventsPort) return true;
    const std::optional<int> port = portOfConfig(*settings.config);
    if (!port) error = itsOptions.configFile + " has no port in its port line; give --events";
    settings.eventsPort = port.value_or(0);
    return port.has_value();
}

bool Run::startPeer(const PeerSettings& settings, std::string& error) {
    itsPeer = std::make_unique<AgentPeer>(settings);
    itsPeer->setFaults(itsOptions.faults, itsOptions.faultsOn);
    if (itsPeer->start()) return true;
    error = itsPeer->error();
    return false;
}

bool Run::start(PeerSettings& settings, std::string& error) {
    if (startPeer(settings, error)) return true;
    if (hasFile() || itsOptions.eventsPort) return false;
    // Nobody asked for the usual port: any will do, since the configuration names it.
    settings.eventsPort = 0;
    return startPeer(settings, error);
}

void Run::warnAboutPort(const std::string& config) {
    const std::optional<int> port = portOfConfig(config);
    if (port == itsPeer->eventsPort()) return;
    complain("warning: " + itsOptions.configFile + " sends events to port " +
                 (port ? std::to_string(*port) : "(none)") + ", they are awaited on port " +
                 std::to_string(itsPeer->eventsPort()),
             0);
}

void Run::takeFile(const std::string& config) {
    const std::optional<int> port = portOfConfig(config);
    if (!itsOptions.eventsPort && port && *port != itsPeer->eventsPort() &&
        itsPeer->moveEvents(*port) == 0) {
        complain("warning: " + itsPeer->error(), 0);
    }
    const int told = itsPeer->pushConfig(config);
    itsPrinter.note(itsOptions.configFile + " has changed: pushed to " + std::to_string(told) +
                    " subscribers");
    warnAboutPort(config);
}

void Run::waitForSignal(const sigset_t& ends) {
    const timespec interval{0, kLookInterval};
    while (sigtimedwait(&ends, nullptr, &interval) < 0 && !itsPrinter.isBroken()) {
        itsPrinter.flows();
        if (!hasFile()) continue;
        const std::optional<std::string> changed = itsFile.poll();
        if (changed) takeFile(*changed);
    }
}

int Run::run() {
    // Taken in waitForSignal alone; threads made from here on inherit the mask. A script's
    // background programs are born with SIGINT ignored, and what is ignored can't be waited for.
    std::signal(SIGINT, SIG_DFL);
    sigset_t ends;
    sigemptyset(&ends);
    sigaddset(&ends, SIGINT);
    sigaddset(&ends, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &ends, nullptr);
    std::signal(SIGPIPE, SIG_IGN);

    PeerSettings settings;
    std::string error;
    {
        const auto held = itsPrinter.hold();
        if (!prepare(settings, error) || !start(settings, error)) return complain(error, 1);
        itsPrinter.listening(itsOptions.address, itsPeer->controlPort(), itsPeer->eventsPort());
    }
    if (hasFile()) warnAboutPort(itsPeer->config());
    waitForSignal(ends);
    itsPeer->stop();
    itsPrinter.summary(itsPeer->counters());
    return 0;
}

}  // namespace
}  // namespace QZAgent

int main(int argc, char** argv) {
    QZAgent::Options options;
    std::string error;
    if (!QZAgent::parseOptions(std::vector<std::string>(argv + 1, argv + argc), options, error)) {
        return QZAgent::complain(error + "; --help tells more", 2);
    }
    if (options.help) {
        std::fputs(QZAgent::usage(), stdout);
        return 0;
    }
    if (!options.checkFile.empty()) return QZAgent::checkConfig(options.checkFile);
    return QZAgent::Run(options).run();
}
