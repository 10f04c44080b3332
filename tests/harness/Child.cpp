#include "harness/Child.h"

#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>

namespace harness {

namespace {

bool isOfTheLibrary(const std::string& variable) {
    for (const char* start : {"QZ_", "QUENVALE_", "com.quenvale", "user.home"})
        if (variable.compare(0, std::strlen(start), start) == 0) return true;
    return false;
}

std::vector<char*> pointersTo(std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    for (std::string& text : texts) pointers.push_back(text.data());
    pointers.push_back(nullptr);
    return pointers;
}

}  // namespace

Child::Child(std::string program, std::vector<std::string> arguments,
             const std::map<std::string, std::string>& environment) {
    std::vector<std::string> variables;
    for (char** v = environ; *v != nullptr; ++v)
        if (!isOfTheLibrary(*v)) variables.emplace_back(*v);
    for (const auto& [name, value] : environment) variables.push_back(name + "=" + value);
    arguments.insert(arguments.begin(), program);

    int ends[2];
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    for (const int stream : {0, 1}) posix_spawn_file_actions_adddup2(&actions, ends[0], stream);
    if (posix_spawn(&itsId, program.c_str(), &actions, nullptr, pointersTo(arguments).data(),
                    pointersTo(variables).data()) != 0)
        itsId = -1;
    posix_spawn_file_actions_destroy(&actions);
    close(ends[0]);
    itsSocket.emplace(ends[1]);
}

Child::~Child() {
    if (itsId > 0) kill(itsId, SIGKILL);
    wait();
}

std::string Child::ask(const std::string& line, int limit) {
    tell(line);
    return readLine(limit);
}

std::string Child::readLine(int limit) {
    const timeval time = {limit / 1000, limit % 1000 * 1000};
    setsockopt(itsSocket->descriptor(), SOL_SOCKET, SO_RCVTIMEO, &time, sizeof time);
    for (std::string line;;) {
        const std::string byte = itsSocket->receive(1);
        if (byte.empty()) return "";
        if (byte == "\n") return line;
        line += byte;
    }
}

std::string Child::readAll() {
    std::string all;
    for (std::string byte; !(byte = itsSocket->receive(1)).empty();) all += byte;
    return all;
}

// The end of the program closes its end of the socket, whatever it was doing.
int Child::wait() {
    readAll();
    if (itsId <= 0 || itsSocket->outcome() == "timeout") return 1000;
    int status = 0;
    waitpid(itsId, &status, 0);
    itsId = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

}  // namespace harness
