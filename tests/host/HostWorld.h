// A real velmora-server process to test against: a private sysroot holding the
// project's launch scripts, a private runtime directory, a supervisor's
// notification socket (NOTIFY_SOCKET) that collects what the server tells it,
// and velmoractl run as a shell would run it. The launch scripts start the
// SDK's test program, whose behaviour the server's environment picks.
#pragma once

#include "BusTestSupport.h"
#include "rpc/RPCClient.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdio>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace HostTest {

namespace fs = std::filesystem;

// The datagram socket a supervisor listens on; each datagram is one message
// such as "READY=1" or "WATCHDOG=1".
class NotifySocket {
public:
    explicit NotifySocket(fs::path path) : path(std::move(path))
    {
        fd = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        this->path.string().copy(address.sun_path, sizeof(address.sun_path) - 1);
        EXPECT_EQ(0, ::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)));
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
    int fd = -1;
};

// The sysroot, runtime directory and notification socket of one test.
class HostWorld {
public:
    HostWorld()
    {
        fs::create_directories(sysroot / "usr/local/bin");
        for (auto const& script : fs::directory_iterator(VELMORA_LAUNCH_SCRIPTS))
            fs::copy_file(script.path(), sysroot / "usr/local/bin" / script.path().filename());
    }

    // What a server is started with on top of the test's own environment.
    std::map<std::string, std::string> environment() const
    {
        std::string const path = std::getenv("PATH") ? std::getenv("PATH") : "/usr/bin:/bin";
        return {{"VELMORA_RUNTIME_DIR", runtime.path},
                {"NOTIFY_SOCKET", notify.path.string()},
                {"PATH", std::string(VELMORA_TEST_APP_DIR) + ":" + path},
                {"VELMORA_TEST_APP_LOG", (base / "apps.log").string()}};
    }

    // Runs velmoractl with `arguments` (shell words) against this world's endpoints.
    BusTest::Output ctl(std::string const& arguments) const
    {
        std::string const command = std::string(VELMORA_CTL) + " " + arguments + " 2>&1";
        return BusTest::finish(::popen(command.c_str(), "r"));
    }

    BusTest::RuntimeDir runtime; // also sets VELMORA_RUNTIME_DIR for this process
    fs::path const base = runtime.path;
    fs::path const sysroot = base / "box";
    NotifySocket notify{base / "notify"};
};

// One velmora-server process, with its output in a file. Ended with SIGKILL
// if a test leaves it running.
class ServerProcess {
public:
    ServerProcess(HostWorld const& world, std::vector<std::string> arguments,
                  std::map<std::string, std::string> extraEnvironment = {})
        : output(world.base / ("server" + std::to_string(++count) + ".log"))
    {
        arguments.insert(arguments.begin(), {VELMORA_SERVER, "--sysroot", world.sysroot.string()});
        std::map<std::string, std::string> variables;
        for (char** entry = environ; *entry; ++entry) {
            std::string const text = *entry;
            auto const equals = text.find('=');
            variables[text.substr(0, equals)] = text.substr(equals + 1);
        }
        for (auto const& [name, value] : world.environment())
            variables[name] = value;
        for (auto const& [name, value] : extraEnvironment)
            variables[name] = value;
        std::vector<std::string> entries;
        for (auto const& [name, value] : variables)
            entries.push_back(name + "=" + value);
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, output.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        posix_spawn_file_actions_adddup2(&actions, STDOUT_FILENO, STDERR_FILENO);
        std::vector<char*> argv = pointers(arguments);
        std::vector<char*> envp = pointers(entries);
        EXPECT_EQ(0, ::posix_spawn(&pid, VELMORA_SERVER, &actions, nullptr, argv.data(), envp.data()));
        posix_spawn_file_actions_destroy(&actions);
    }
    ~ServerProcess()
    {
        if (pid > 0) {
            ::kill(pid, SIGKILL);
            ::waitpid(pid, nullptr, 0);
        }
    }
    ServerProcess(ServerProcess const&) = delete;
    ServerProcess& operator=(ServerProcess const&) = delete;

    // Sends `signal` (none: just waits) and gives the exit status, or -1 for a death by signal.
    int stop(int signal = SIGTERM)
    {
        if (signal)
            ::kill(pid, signal);
        int status = 0;
        while (::waitpid(pid, &status, 0) < 0 && errno == EINTR)
            ;
        pid = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
    std::string log() const
    {
        std::string text;
        if (FILE* file = std::fopen(output.c_str(), "r")) {
            char chunk[4096];
            for (std::size_t n; (n = std::fread(chunk, 1, sizeof(chunk), file)) > 0;)
                text.append(chunk, n);
            std::fclose(file);
        }
        return text;
    }

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
    static inline int count = 0;
    fs::path output;
};

// Connects `client` to the server and has it wake waitFor() at every change
// of a window list.
inline void connectWatching(Velmora::RPCClient& client)
{
    client.setNotificationHandler([](std::string const&, Json::Value const&) { BusTest::notifyChanged(); });
    client.connect("ZAV"); // no retry: READY=1 comes after the endpoint opened
    Json::Value events;
    events["events"].append("IWindowManager::onWindowListChange");
    client.callOrThrow("RPC.subscribe", events);
}

// True once no process `pid` exists (it has ended and been reaped).
inline bool processGone(pid_t pid) { return ::kill(pid, 0) < 0 && errno == ESRCH; }

} // namespace HostTest
