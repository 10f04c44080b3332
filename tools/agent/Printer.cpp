#include "agent/Printer.h"

#include <cstdio>

#include "agent/EventJson.h"
#include "agent/EventText.h"
#include "agent/Printable.h"

namespace QZAgent {

void Printer::write(const std::string& text) {
    const std::lock_guard<std::mutex> guard(itsLock);
    writeHeld(text);
}

void Printer::writeHeld(const std::string& text) {
    const bool isWritten = std::fwrite(text.data(), 1, text.size(), stdout) == text.size();
    if (std::fflush(stdout) != 0 || !isWritten) itIsBroken = true;
}

void Printer::listening(const std::string& address, int controlPort, int eventsPort) {
    writeHeld("listening control " + address + ":" + std::to_string(controlPort) + " events " +
              address + ":" + std::to_string(eventsPort) + "\n");
}

void Printer::event(const ReceivedEvent& received) {
    if (!itIsQuiet) write(itIsJson ? jsonOf(received) + "\n" : textOf(received));
}

void Printer::malformed(const MalformedReport& report) {
    write(itIsJson ? jsonOf(report) + "\n" : textOf(report));
}

void Printer::note(const std::string& line) {
    if (!itIsQuiet) write((itIsJson ? jsonOfNote(line) : escaped(line)) + "\n");
}

void Printer::summary(const Counters& counters) {
    write(itIsJson ? jsonOf(counters) + "\n" : textOf(counters));
}

}  // namespace QZAgent
