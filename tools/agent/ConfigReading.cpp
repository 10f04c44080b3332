#include "agent/ConfigReading.h"

#include <strings.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <map>
#include <tuple>

#include "agent/ConfigLines.h"
#include "agent/Printable.h"

namespace QZAgent {

namespace {

// A table ends where so many rows have been empty since the text ran out.
constexpr int kLongestEmptyRun = 4096;
constexpr std::size_t kIdLength = 24;  // The base64 form of 16 bytes.

std::string quoted(const std::string& text) {
    return '"' + escaped(text) + '"';
}

bool isBlank(const std::string& text) {
    return text.find_first_not_of(" \t\r\n\v\f") == std::string::npos;
}

bool isOneOf(std::string word, std::initializer_list<const char*> words) {
    while (!word.empty() && word.back() == '\r') word.pop_back();
    for (const char* each : words) {
        if (strcasecmp(word.c_str(), each) == 0) return true;
    }
    return false;
}

/// Finds the row of a table that takes every call which a later one is for. A row is met by calls
/// that its wildcards let through, so that its more general forms are looked for.
class EarlierRows {
public:
    /// The number of the row, from 1, or 0. Adds `row` when it is the first of its kind.
    int add(const FilterRow& row, const std::string& name) {
        ++itsCount;
        int first = 0;
        for (unsigned wildcards = 0; wildcards < 8; ++wildcards) {
            const auto found =
                itsRows.find({wildcards & 1 ? "" : row.group, wildcards & 2 ? "" : row.service,
                              wildcards & 4 ? "" : row.operation, name});
            if (found != itsRows.end() && (first == 0 || found->second < first)) {
                first = found->second;
            }
        }
        itsRows.emplace(std::tie(row.group, row.service, row.operation, name), itsCount);
        return first;
    }

private:
    std::map<std::tuple<std::string, std::string, std::string, std::string>, int> itsRows;
    int itsCount = 0;
};

/// One walk along the text, in the order of the format.
class Walk {
public:
    Walk(const std::string& text, const std::optional<ConfigChange>& change)
        : itsLines(text), itsChange(change), itIsEmpty(text.empty()) {}

    ConfigReading take();

private:
    void readAll();
    bool readTrust(const std::string& keyLine);
    bool readTrustValue(const char* prefix, std::string& value);
    bool readFlag(const char* prefix, const char* what, bool& flag);
    bool readInterval(int& interval);
    void readHost();
    void readPort();
    std::vector<FilterRow> readFilters(const std::string& table);
    std::vector<CheckpointRow> readCheckpoints();
    std::vector<std::string> readTexts(const std::string& block, const std::string& each);
    void readRest();
    void noteMissing();

    void advance(const std::string& what);
    int readNumber(const std::string& what);
    int readCount(const std::string& what, int columns);
    std::string readCell(const std::string& what);
    FilterRow readRow(const std::string& what);
    std::string asText();
    bool endsEarly(bool isEmptyRow);

    void show(const std::string& value) { itsLine->value = value; }
    void find(const std::string& finding) { itsLine->findings.push_back(finding); }

    ConfigLines itsLines;
    const std::optional<ConfigChange> itsChange;
    const bool itIsEmpty;
    ConfigReading itsReading;
    std::string itsRaw;             // The line that was read last.
    ConfigLine* itsLine = nullptr;  // Where it is told of.
    ConfigLine itsMissingLine;      // Stands for lines behind the end.
    std::size_t itsMissing = 0;     // Lines.
    std::string itsFirstMissing;
    std::size_t itsCountsRead = 0;
    int itsEmptyRun = 0;
};

void Walk::advance(const std::string& what) {
    if (itsLines.isAtEnd()) {
        if (itsMissing++ == 0) itsFirstMissing = what;
        itsRaw.clear();
        itsMissingLine = ConfigLine();
        itsLine = &itsMissingLine;
        return;
    }
    const ConfigLines::Piece piece = itsLines.next();
    itsRaw = piece.text;
    itsReading.lines.push_back({piece.number, piece.isRest, what, escaped(piece.text), {}});
    itsLine = &itsReading.lines.back();
    if (piece.number == 1 && !piece.isRest && itsRaw.compare(0, 3, "\xef\xbb\xbf") == 0) {
        find("begins with a byte order mark, which is part of the line");
    }
    if (piece.swallowed > 0) {
        find("begins with a zero byte: " + std::to_string(piece.swallowed) +
             " bytes from here on are lost, and it reads as empty");
    } else if (piece.hasZero) {
        find("a zero byte ends the line");
    }
    if (!piece.isWhole && piece.swallowed == 0) {
        find("longer than 254 bytes: what follows byte 255 reads as the next line");
    }
}

int Walk::readNumber(const std::string& what) {
    advance(what);
    char* end = nullptr;
    errno = 0;
    const long value = std::strtol(itsRaw.c_str(), &end, 10);
    const int taken = static_cast<int>(value);
    show(std::to_string(taken));
    if (end == itsRaw.c_str()) {
        find((itsRaw.empty() ? "an empty line" : quoted(itsRaw)) + " is no number: it reads as 0");
    } else if (!isBlank(end)) {
        find(quoted(end) + " behind the number is not read");
    }
    if (errno == ERANGE || taken != value) {
        find(quoted(itsRaw) + " is out of range: it reads as " + std::to_string(taken));
    }
    return taken;
}

int Walk::readCount(const std::string& what, int columns) {
    const std::size_t place = itsCountsRead++;
    int rows = readNumber(what);
    if (rows < 0) find("below 0: it reads as 0");
    if (itsLine != &itsMissingLine) {
        const bool isNumber = itsLine->findings.empty();
        itsReading.counts.push_back({itsReading.lines.size() - 1, rows, columns, isNumber});
        itsReading.doesFit = itsReading.doesFit && isNumber;
    }
    if (itsChange && itsChange->count == place) rows = itsChange->rows;
    itsEmptyRun = 0;
    return rows;
}

std::string Walk::asText() {
    if (!itsRaw.empty() && itsRaw.back() == '\r') {
        find("the carriage return at its end is part of it");
    } else if (!itsRaw.empty() && (isBlank(itsRaw.substr(0, 1)) || isBlank({itsRaw.back()}))) {
        find("the blanks around it are part of it");
    }
    if (itsRaw[0] == '#') find("there are no comments: this line counts");
    return itsRaw;
}

std::string Walk::readCell(const std::string& what) {
    advance(what);
    asText();
    if (itsRaw.empty()) show("(any)");
    if (itsRaw == "*") find("\"*\" is no wildcard: an empty line is");
    return itsRaw;
}

FilterRow Walk::readRow(const std::string& what) {
    FilterRow row;
    row.group = readCell(what + ", group");
    row.service = readCell(what + ", service");
    row.operation = readCell(what + ", operation");
    const bool isId =
        row.operation.size() == kIdLength && row.operation.compare(kIdLength - 2, 2, "==") == 0;
    if (!row.operation.empty() && !isId) {
        find("no operation has this id: ids are hashes, 24 characters that end in \"==\"");
    }
    return row;
}

// A count of billions ends here, and so do the rows of a text that was cut.
bool Walk::endsEarly(bool isEmptyRow) {
    itsEmptyRun = isEmptyRow && itsLines.isDry() ? itsEmptyRun + 1 : 0;
    return itsEmptyRun >= kLongestEmptyRun;
}

std::vector<FilterRow> Walk::readFilters(const std::string& table) {
    std::vector<FilterRow> rows;
    EarlierRows earlier;
    const int count = readCount(table + " rows", 3);
    for (int i = 1; i <= count; ++i) {
        const FilterRow row = readRow(table + " row " + std::to_string(i));
        rows.push_back(row);
        const int hiding = earlier.add(row, "");
        if (hiding > 0) {
            find("row " + std::to_string(i) + " is hidden: row " + std::to_string(hiding) +
                 " fits all calls that it is for");
        }
        if (endsEarly(row.group.empty() && row.service.empty() && row.operation.empty())) break;
    }
    return rows;
}

std::vector<CheckpointRow> Walk::readCheckpoints() {
    std::vector<CheckpointRow> rows;
    EarlierRows earlier;
    const int count = readCount("checkpoint rows", 4);
    for (int i = 1; i <= count; ++i) {
        const std::string what = "checkpoint row " + std::to_string(i);
        const FilterRow row = readRow(what);
        advance(what + ", name");
        rows.push_back({row, asText()});
        if (itsRaw.empty()) find("an empty name counts as a name");
        const int same = earlier.add(row, itsRaw);
        if (same > 0) {
            find("row " + std::to_string(same) +
                 " gives this name to the same calls: they have it twice");
        }
        if (endsEarly(row.group.empty() && row.service.empty() && row.operation.empty() &&
                      itsRaw.empty())) {
            break;
        }
    }
    return rows;
}

std::vector<std::string> Walk::readTexts(const std::string& block, const std::string& each) {
    std::vector<std::string> texts;
    std::map<std::string, int> seen;
    const int count = readCount(block, 1);
    for (int i = 1; i <= count; ++i) {
        advance(each + " " + std::to_string(i));
        texts.push_back(asText());
        if (itsRaw.empty()) find("an empty line counts as one of them");
        const auto [first, isNew] = seen.emplace(itsRaw, i);
        if (!isNew) find("the same as number " + std::to_string(first->second));
        if (endsEarly(itsRaw.empty())) break;
    }
    return texts;
}

void Walk::readHost() {
    // The line was read already: only its text tells whether a trust block stands in front.
    itsLine->what = "host for events, with QZ_REMOTE_UPLINK only";
    itsReading.config.host = asText();
    if (itsRaw.find('=') != std::string::npos) {
        find(
            "reads as the host. A trust block is four lines at the front: \"trustKey=\", "
            "\"assertsTrust=\", \"checksCallerAddress=\", \"trustInterval=\"");
    }
    if (isBlank(itsRaw)) {
        find("no host");
    } else if (itsRaw.find_first_not_of("0123456789\r") == std::string::npos) {
        find("a number: was the line of the host left out?");
    }
}

void Walk::readPort() {
    const int port = itsReading.config.port = readNumber("port for events");
    if (port < 1 || port > 65535) {
        find("not from 1 to 65535: events go to port " +
             std::to_string(static_cast<unsigned>(port) & 0xffff));
    }
}

bool Walk::readTrustValue(const char* prefix, std::string& value) {
    advance(prefix);
    const std::size_t length = std::strlen(prefix);
    if (itsRaw.compare(0, length, prefix) != 0) {
        itsLine->what = "refused";
        find(std::string("\"") + prefix +
             "\" is awaited here. The whole text is refused: no row counts until another comes");
        itsReading.isRefused = true;
        return false;
    }
    value = itsRaw.substr(length);
    return true;
}

bool Walk::readFlag(const char* prefix, const char* what, bool& flag) {
    std::string value;
    if (!readTrustValue(prefix, value)) return false;
    flag = value[0] == 't' || value[0] == 'T';
    itsLine->what = what;
    show(flag ? "true" : "false");
    const bool isPlain = flag ? isOneOf(value, {"t", "true"})
                              : isOneOf(value, {"f", "false", "n", "no", "off", "0"});
    if (!isPlain) {
        find(quoted(value) + " reads as " + itsLine->value +
             ": true is what begins with \"t\" or \"T\"");
    }
    return true;
}

bool Walk::readInterval(int& interval) {
    std::string value;
    if (!readTrustValue("trustInterval=", value)) return false;
    const char digit = value[0];
    const bool isDigit = digit >= '0' && digit <= '9';
    interval = isDigit ? digit - '0' : 0;
    itsLine->what = "trust interval";
    show(std::to_string(interval) + " s");
    if (!isDigit) find(quoted(value) + " is no digit: it reads as 0");
    if (isDigit && !isBlank(value.substr(1))) {
        find(quoted(value) + ": only the first digit counts, " + itsLine->value);
    }
    if (interval == 0) find("with 0 s no call is ever trusted");
    return true;
}

bool Walk::readTrust(const std::string& keyLine) {
    TrustBlock& trust = itsReading.config.trust.emplace();
    const std::string key = keyLine.substr(std::strlen("trustKey="));
    trust.key = key.substr(0, 1);
    itsLine->what = "trust key";
    show(quoted(trust.key));
    if (key.empty()) {
        find("no key: headers don't name the caller's address");
    } else if (trust.key == "\r") {
        find("no key but the carriage return");
    } else if (key.size() > 1 && key.substr(1) != "\r") {
        find(quoted(key) + " is longer than one character: only " + quoted(trust.key) + " counts");
    }
    return readFlag("assertsTrust=", "headers name the caller's address", trust.assertsTrust) &&
           readFlag("checksCallerAddress=", "the caller's address counts",
                    trust.checksCallerAddress) &&
           readInterval(trust.interval);
}

void Walk::readRest() {
    bool isTold = itsReading.isRefused;
    while (!itsLines.isAtEnd()) {
        const ConfigLines::Piece piece = itsLines.next();
        itsReading.lines.push_back(
            {piece.number, piece.isRest, "not read", escaped(piece.text), {}});
        itsLine = &itsReading.lines.back();
        // Empty lines at the end of a file are no one's intention.
        if (isTold || (isBlank(piece.text) && !piece.hasZero)) continue;
        find("the configuration is complete before this line: it is not read");
        itsReading.doesFit = false;
        isTold = true;
    }
}

void Walk::noteMissing() {
    if (itsMissing == 0) return;
    itsReading.doesFit = false;
    itsReading.findings.push_back("the text ends before \"" + itsFirstMissing + "\"" +
                                  (itsReading.isRefused
                                       ? ", and is refused"
                                       : "; what is missing, " + std::to_string(itsMissing) +
                                             (itsMissing == 1 ? " line, reads" : " lines, reads") +
                                             " as empty lines and as 0"));
}

void Walk::readAll() {
    advance("host");
    const std::string first = itsRaw;
    if (first.compare(0, std::strlen("trustKey="), "trustKey=") == 0) {
        if (!readTrust(first)) return;
        advance("host");
    }
    readHost();
    readPort();
    const int tag = itsReading.config.eventTag = readNumber("event tag");
    if (tag == 0 && itsLine->findings.empty()) find("goes into events as 1");
    itsReading.config.serverFilters = readFilters("server payload");
    itsReading.config.clientFilters = readFilters("client payload");
    itsReading.config.checkpointFilters = readCheckpoints();
    itsReading.config.pathFilters = readFilters("path");
    itsReading.config.params = readTexts("parameters, not used", "parameter");
    itsReading.config.flowFieldNames = readTexts("flow field names", "flow field name");
}

ConfigReading Walk::take() {
    if (itIsEmpty) {
        itsReading.isRefused = true;
        itsReading.findings.emplace_back(
            "an empty text is no configuration: the one in force before it stays");
        return std::move(itsReading);
    }
    readAll();
    readRest();
    noteMissing();
    return std::move(itsReading);
}

}  // namespace

std::size_t ConfigReading::findingCount() const {
    std::size_t count = findings.size();
    for (const ConfigLine& line : lines) count += line.findings.size();
    return count;
}

ConfigReading readConfig(const std::string& text, const std::optional<ConfigChange>& change) {
    return Walk(text, change).take();
}

}  // namespace QZAgent
