#include "harness/Child.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <cstring>

namespace harness {

namespace {

long long now() {
    timespec t;
    clock_gettime(CLOCK_MONOTONIC, &t);
    return t.tv_sec * 1000LL + t.tv_nsec / 1000000;
}

bool isOfTheLibrary(const std::string& variable) {
    for (const char* start : {"QZ_", "QUENVALE_", "com.quenvale", "user.home"})
        if (variable.compare(0, std::strlen(start), start) == 0) return true;
    return false;
}

}  // namespace

Child::Child(const std::string& program, const std::vector<std::string>& arguments,
             const std::map<std::string, std::string>& environment) {
    std::vector<std::string> variables;
    for (char** v = environ; *v != nullptr; ++v)
        if (!isOfTheLibrary(*v)) variables.emplace_back(*v);
    for (const auto& [name, value] : environment) variables.push_back(name + "=" + value);
    std::vector<char*> env, args;
    for (auto& v : variables) env.push_back(v.data());
    env.push_back(nullptr);
    std::string path = program;
    std::vector<std::string> texts = arguments;
    args.push_back(path.data());
    for (auto& a : texts) args.push_back(a.data());
    args.push_back(nullptr);

    int in[2], out[2];
    // A write to a socket whose reader has gone raises no signal.
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, in) != 0) return;
    if (pipe2(out, O_CLOEXEC) != 0) return;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, in[0], 0);
    posix_spawn_file_actions_adddup2(&actions, out[1], 1);
    if (posix_spawn(&itsId, program.c_str(), &actions, nullptr, args.data(), env.data()) != 0)
        itsId = -1;
    posix_spawn_file_actions_destroy(&actions);
    close(in[0]);
    close(out[1]);
    itsInput = in[1];
    itsOutput = out[0];
}

Child::~Child() {
    kill();
    wait();
    close(itsInput);
    close(itsOutput);
}

std::string Child::ask(const std::string& line, int limit) {
    tell(line);
    return readLine(limit);
}

void Child::tell(const std::string& line) {
    const std::string text = line + "\n";
    // A program that has ended shows at the next read.
    send(itsInput, text.data(), text.size(), MSG_NOSIGNAL);
}

std::string Child::readLine(int limit) {
    const long long deadline = now() + limit;
    for (;;) {
        const std::size_t end = itsPending.find('\n');
        if (end != std::string::npos) {
            std::string line = itsPending.substr(0, end);
            itsPending.erase(0, end + 1);
            return line;
        }
        if (!fill(deadline)) return "";
    }
}

std::string Child::readAll(int limit) {
    const long long deadline = now() + limit;
    while (fill(deadline)) {
    }
    return itsPending;
}

int Child::wait(int limit) {
    if (itsId <= 0) return 1000;
    const int handle = static_cast<int>(syscall(SYS_pidfd_open, itsId, 0));
    pollfd ended = {handle, POLLIN, 0};
    const bool hasEnded = poll(&ended, 1, limit) > 0;
    close(handle);
    if (!hasEnded) return 1000;
    int status = 0;
    waitpid(itsId, &status, 0);
    itsId = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

void Child::kill() {
    if (itsId > 0) ::kill(itsId, SIGKILL);
}

bool Child::fill(long long deadline) {
    const long long left = deadline - now();
    pollfd output = {itsOutput, POLLIN, 0};
    if (left <= 0 || poll(&output, 1, static_cast<int>(left)) <= 0) return false;
    char buffer[4096];
    const ssize_t count = read(itsOutput, buffer, sizeof buffer);
    if (count <= 0) return false;
    itsPending.append(buffer, static_cast<std::size_t>(count));
    return true;
}

}  // namespace harness
