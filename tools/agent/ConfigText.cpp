#include "agent/ConfigText.h"

#include <cstdlib>

namespace QZAgent {

namespace {

class Lines {
public:
    void add(const std::string& line) { itsText += line + "\n"; }
    void add(int number) { add(std::to_string(number)); }
    void count(std::size_t number) { add(std::to_string(number)); }
    void row(const FilterRow& row) {
        add(row.group);
        add(row.service);
        add(row.operation);
    }
    void rows(const std::vector<FilterRow>& table) {
        count(table.size());
        for (const FilterRow& each : table) row(each);
    }
    void all(const std::vector<std::string>& lines) {
        count(lines.size());
        for (const std::string& line : lines) add(line);
    }
    const std::string& text() const { return itsText; }

private:
    std::string itsText;
};

}  // namespace

ConfigText ConfigText::reportAll(const std::string& host, int port) {
    ConfigText config;
    config.host = host;
    config.port = port;
    config.serverFilters.emplace_back();
    config.clientFilters.emplace_back();
    config.pathFilters.emplace_back();
    return config;
}

std::string ConfigText::text() const {
    Lines lines;
    if (trust) {
        lines.add("trustKey=" + trust->key);
        lines.add(std::string("assertsTrust=") + (trust->assertsTrust ? "true" : "false"));
        lines.add(std::string("checksCallerAddress=") +
                  (trust->checksCallerAddress ? "true" : "false"));
        lines.add("trustInterval=" + std::to_string(trust->interval));
    }
    lines.add(host);
    lines.add(port);
    lines.add(eventTag);
    lines.rows(serverFilters);
    lines.rows(clientFilters);
    lines.count(checkpointFilters.size());
    for (const CheckpointRow& row : checkpointFilters) {
        lines.row(row.filter);
        lines.add(row.name);
    }
    lines.rows(pathFilters);
    lines.all(params);
    lines.all(flowFieldNames);
    return lines.text();
}

std::optional<int> portOfConfig(const std::string& text) {
    std::size_t start = 0;
    const int trustLines = text.compare(0, 9, "trustKey=") == 0 ? 4 : 0;
    for (int before = trustLines + 1; before > 0; --before) {
        const std::size_t end = text.find('\n', start);
        if (end == std::string::npos) return std::nullopt;
        start = end + 1;
    }
    const long port = std::strtol(text.c_str() + start, nullptr, 10);
    if (port < 1 || port > 65535) return std::nullopt;
    return static_cast<int>(port);
}

}  // namespace QZAgent
