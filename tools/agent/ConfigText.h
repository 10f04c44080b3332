#pragma once

#include <optional>
#include <string>
#include <vector>

namespace QZAgent {

/// A row of a filter table. An empty cell is a wildcard.
struct FilterRow {
    std::string group;
    std::string service;
    std::string operation;
};

struct CheckpointRow {
    FilterRow filter;
    std::string name;
};

/// The optional head of a configuration. Readers look at the first character of each value only: an
/// honest key is one character and an honest interval one digit.
struct TrustBlock {
    std::string key;
    bool assertsTrust = false;
    bool checksCallerAddress = false;
    int interval = 0;  // s
};

/// The configuration that an agent pushes, as a value: text() gives the lines of the wire.
struct ConfigText {
    std::optional<TrustBlock> trust;
    std::string host = "127.0.0.1";
    int port = 0;
    int eventTag = 1;
    std::vector<FilterRow> serverFilters;
    std::vector<FilterRow> clientFilters;
    std::vector<CheckpointRow> checkpointFilters;
    std::vector<FilterRow> pathFilters;
    std::vector<std::string> params;
    std::vector<std::string> flowFieldNames;

    /// One wildcard row where a row turns payloads or paths on: everything is reported in full.
    static ConfigText reportAll(const std::string& host, int port);

    std::string text() const;
};

/// The port line of a configuration text, with or without a trust block in front of it. Nothing
/// when the text ends before that line or the line is no port.
std::optional<int> portOfConfig(const std::string& text);

}  // namespace QZAgent
