#include "agent/Printer.h"

#include <chrono>
#include <cstdio>

#include "agent/EventJson.h"
#include "agent/EventText.h"
#include "agent/Printable.h"

namespace QZAgent {

namespace {

std::int64_t steadyTime() {
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::milliseconds>(now).count();
}

}  // namespace

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
    if (itHasTree) {
        const std::lock_guard<std::mutex> guard(itsLock);
        drawHeld(itsFlows.add(received.event, steadyTime()));
    }
    if (itIsQuiet || (itHasTree && !itIsJson)) return;
    write(itIsJson ? jsonOf(received) + "\n" : textOf(received));
}

void Printer::malformed(const MalformedReport& report) {
    write(itIsJson ? jsonOf(report) + "\n" : textOf(report));
}

void Printer::note(const std::string& line) {
    if (!itIsQuiet) write((itIsJson ? jsonOfNote(line) : escaped(line)) + "\n");
}

void Printer::flows() {
    if (!itHasTree) return;
    const std::lock_guard<std::mutex> guard(itsLock);
    drawHeld(itsFlows.drawComplete(steadyTime()));
}

/// A reader of JSON lines finds nothing else among them.
void Printer::drawHeld(const std::string& trees) {
    if (trees.empty()) return;
    if (itIsJson) {
        std::fwrite(trees.data(), 1, trees.size(), stderr);
    } else {
        writeHeld(trees);
    }
}

void Printer::summary(const Counters& counters) {
    {
        const std::lock_guard<std::mutex> guard(itsLock);
        drawHeld(itsFlows.drawAll());
    }
    write(itIsJson ? jsonOf(counters) + "\n" : textOf(counters));
}

}  // namespace QZAgent
