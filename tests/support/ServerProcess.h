// A child process as a supervisor starts it (a velmora-server, a slave, a
// test program), and the datagram socket (NOTIFY_SOCKET) on which it hears
// from it. Each object belongs to one thread.
#pragma once

#include "ScratchDirectory.h"

#include <cerrno>
#include <csignal>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace HostTest {

namespace fs = std::filesystem;

// Waits up to `milliseconds` for process `pid` to end, without reaping it; one
// already reaped has ended.
inline bool awaitEnd(pid_t pid, int milliseconds = 30000)
{
    int const watch = static_cast<int>(::syscall(SYS_pidfd_open, pid, 0));
    if (watch < 0)
        return errno == ESRCH;
    pollfd ended{watch, POLLIN, 0};
    bool const done = ::poll(&ended, 1, milliseconds) == 1;
    ::close(watch);
    return done;
}

// The datagram socket a supervisor listens on; each datagram is one message
// such as "READY=1" or "WATCHDOG=1".
class NotifySocket {
public:
    explicit NotifySocket(fs::path path) : path(std::move(path))
    {
        fd = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        sockaddr_un const address = addressOf(this->path);
        ::bind(fd, reinterpret_cast<sockaddr const*>(&address), sizeof(address)); // a failure shows as silence
    }
    ~NotifySocket() { ::close(fd); }
    NotifySocket(NotifySocket const&) = delete;
    NotifySocket& operator=(NotifySocket const&) = delete;

    // The next message, or empty when none comes within `timeoutMs`.
    std::string receive(int timeoutMs = 30000)
    {
        pollfd poller{fd, POLLIN, 0};
        if (::poll(&poller, 1, timeoutMs) <= 0)
            return std::string();
        char buffer[4096];
        ssize_t const n = ::recv(fd, buffer, sizeof(buffer), 0);
        return n > 0 ? std::string(buffer, static_cast<std::size_t>(n)) : std::string();
    }
    // Queues messages of its own until the queue is full, as a supervisor's
    // that has fallen behind in its reading; a sender then finds no room.
    void fill()
    {
        int const sender = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
        sockaddr_un const address = addressOf(path);
        while (::sendto(sender, "FILLER=1", 8, 0, reinterpret_cast<sockaddr const*>(&address), sizeof(address)) == 8) {
        }
        ::close(sender);
    }
    // Reads messages until one contains `text`; false when a wait times out.
    bool awaitMessage(std::string const& text, int timeoutMs = 30000)
    {
        for (std::string message; !(message = receive(timeoutMs)).empty();)
            if (message.find(text) != std::string::npos)
                return true;
        return false;
    }

    fs::path const path;

private:
    static sockaddr_un addressOf(fs::path const& socketPath)
    {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        socketPath.string().copy(address.sun_path, sizeof(address.sun_path) - 1);
        return address;
    }

    int fd = -1;
};

// One process of `program` with `arguments`, this process's
// environment with `environment` on top, and its output in the file `logFile`.
// Ended if its owner leaves it running: SIGTERM, so that a server ends the
// services it started (a simulator outlives a server that is killed), and
// SIGKILL when it is still there after a minute.
class ServerProcess {
public:
    ServerProcess(std::string const& program, std::vector<std::string> arguments,
                  std::map<std::string, std::string> const& environment, fs::path logFile)
        : output(std::move(logFile))
    {
        arguments.insert(arguments.begin(), program);
        std::map<std::string, std::string> variables = environment;
        for (char** entry = environ; *entry; ++entry) {
            std::string const text = *entry;
            variables.emplace(text.substr(0, text.find('=')), text.substr(text.find('=') + 1)); // the given ones win
        }
        std::vector<std::string> entries;
        for (auto const& [name, value] : variables)
            entries.push_back(name + "=" + value);
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, output.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        posix_spawn_file_actions_adddup2(&actions, STDOUT_FILENO, STDERR_FILENO);
        std::vector<char*> argv = pointers(arguments);
        std::vector<char*> envp = pointers(entries);
        if (::posix_spawn(&pid, program.c_str(), &actions, nullptr, argv.data(), envp.data()) != 0)
            pid = -1;
        posix_spawn_file_actions_destroy(&actions);
    }
    ~ServerProcess()
    {
        if (pid <= 0)
            return;
        ::kill(pid, SIGTERM);
        if (!awaitEnd(pid, 60000))
            ::kill(pid, SIGKILL);
        ::waitpid(pid, nullptr, 0);
    }
    ServerProcess(ServerProcess const&) = delete;
    ServerProcess& operator=(ServerProcess const&) = delete;

    // Sends `signal` (none: just waits) and gives the exit status, or -1 for a death by signal.
    int stop(int signal = SIGTERM)
    {
        if (pid <= 0)
            return -1;
        if (signal)
            ::kill(pid, signal);
        int status = 0;
        while (::waitpid(pid, &status, 0) < 0 && errno == EINTR)
            ;
        pid = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
    std::string log() const { return contentsOf(output); }

    pid_t pid = -1;

private:
    static std::vector<char*> pointers(std::vector<std::string>& words)
    {
        std::vector<char*> result;
        for (std::string& word : words)
            result.push_back(word.data());
        result.push_back(nullptr);
        return result;
    }
    fs::path output;
};

// What a program run to its end printed, and its exit status (-1 for a death by signal).
struct Finished {
    int status;
    std::string output;
};
inline Finished runToEnd(std::string const& program, std::vector<std::string> arguments, fs::path const& logFile,
                         std::map<std::string, std::string> const& environment = {{"VELMORA_DEBUG", "0"}})
{
    ServerProcess process(program, std::move(arguments), environment, logFile);
    int const status = process.stop(0);
    return {status, process.log()};
}

} // namespace HostTest
