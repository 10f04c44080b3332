#pragma once

#include <map>
#include <optional>

#include "harness/loopback.h"

namespace harness {

/// A program run beside the test, spoken to line by line over its standard input and output. Its
/// standard error is the test's.
///
/// Threads: one at a time. Limits are milliseconds and generous: they only end a test that hangs.
class Child {
public:
    static constexpr int kLimit = 60000;

    /// The environment is the test's own without the variables of the library, plus `environment`.
    Child(std::string program, std::vector<std::string> arguments,
          const std::map<std::string, std::string>& environment);
    ~Child();  // Kills what still runs.
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    /// Sends a line and gives the line that answers; empty when the program is gone or too slow.
    std::string ask(const std::string& line, int limit = kLimit);
    void tell(const std::string& line) { itsSocket->send(line + "\n"); }
    std::string readLine(int limit = kLimit);
    /// All output until the program closes it.
    std::string readAll();

    /// The exit code, or minus the signal that ended it, or 1000 when it runs on.
    int wait();

private:
    pid_t itsId = -1;
    std::optional<RawSocket> itsSocket;
};

}  // namespace harness
