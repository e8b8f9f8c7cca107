// Helpers of the bus tests: a private runtime directory per test, a raw
// socket peer that speaks bytes (for inputs no well-behaved client sends),
// waiting for a condition with an upper bound, and logs of what callbacks saw.
// waitFor() sleeps until something it is told of changes: a log entry, or a
// connection, request or close on an Observed server.
#pragma once

#include "interfaces/IApplication.h"
#include "Journal.h"
#include "ScopedEnv.h"
#include "ScratchDirectory.h"
#include "rpc/RPCServer.h"

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

namespace BusTest {

using VelmoraTest::ScopedEnv;

// Points VELMORA_RUNTIME_DIR at a fresh directory for the life of the object.
class RuntimeDir {
public:
    std::string socket(std::string const& name) const { return directory.file(name + ".sock"); }
    ScratchDirectory const directory{"velmora-bus"};
    std::string const path = directory.get();

private:
    ScopedEnv variable{"VELMORA_RUNTIME_DIR", path};
};

// What waitFor() sleeps on: every change told to notifyChanged() wakes it.
inline VelmoraTest::Journal& changes()
{
    static VelmoraTest::Journal shared;
    return shared;
}

inline void notifyChanged() { changes().touch(); }

// True once `condition` holds, false when it still does not after the deadline.
inline bool waitFor(std::function<bool()> const& condition, int timeoutMs = 30000)
{
    return changes().waitFor(condition, std::chrono::milliseconds(timeoutMs));
}

// What callbacks saw, one text each, in order; safe to read while they run.
// Each entry also wakes waitFor().
class Log : public VelmoraTest::Journal {
public:
    void add(std::string entry)
    {
        Journal::add(std::move(entry));
        notifyChanged();
    }
};

// A program's reports as "<uid> <state>" and "<uid> alive <state>".
struct ReportLog : Log, Velmora::IApplication::IApplicationListener {
    void onKeepAlive(std::string const& uid, std::string const& state) override { add(uid + " alive " + state); }
    void onStateChange(std::string const& uid, std::string const&, std::string const& state) override
    {
        add(uid + " " + state);
    }
};

// What a program started with popen wrote to its stdout, and its exit status.
struct Output {
    std::string text;
    int status = -1;
};

// Reads the program's output to its end and reaps it.
inline Output finish(FILE* pipe)
{
    Output output;
    char chunk[4096];
    for (std::size_t n; (n = std::fread(chunk, 1, sizeof(chunk), pipe)) > 0;)
        output.text.append(chunk, n);
    output.status = WEXITSTATUS(::pclose(pipe));
    return output;
}

// A request line as a raw peer writes it, without its line feed.
inline std::string request(std::string const& method, std::string const& params = "{}", int id = 1)
{
    return R"({"jsonrpc":"2.0","id":)" + std::to_string(id) + R"(,"method":")" + method + R"(","params":)" + params + "}";
}

inline sockaddr_un unixAddress(std::string const& path)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof(address.sun_path) - 1);
    return address;
}

// A Unix socket peer driven byte by byte.
class RawPeer {
public:
    // Takes over a connected socket (one that a test accepted).
    explicit RawPeer(int accepted) : fd(accepted), connected(accepted >= 0) {}
    explicit RawPeer(std::string const& path) : fd(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0))
    {
        sockaddr_un const address = unixAddress(path);
        connected = ::connect(fd, reinterpret_cast<sockaddr const*>(&address), sizeof(address)) == 0;
    }
    ~RawPeer()
    {
        if (fd >= 0)
            ::close(fd);
    }
    RawPeer(RawPeer const&) = delete;
    RawPeer& operator=(RawPeer const&) = delete;

    // A blocking send on a stream socket goes whole unless the peer hangs up.
    bool send(std::string const& bytes)
    {
        return ::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(bytes.size());
    }

    // Sends one line and gives the line that answers it.
    std::string ask(std::string const& line) { return send(line + "\n") ? readLine() : std::string(); }

    // One line without its line feed; empty on timeout or end of stream.
    std::string readLine(int timeoutMs = 10000)
    {
        for (;;) {
            if (auto const end = buffer.find('\n'); end != std::string::npos) {
                std::string line = buffer.substr(0, end);
                buffer.erase(0, end + 1);
                return line;
            }
            if (!fill(timeoutMs))
                return std::string();
        }
    }

    // True when the peer has hung up (reads end of stream, after any data).
    bool seesEndOfStream(int timeoutMs = 10000)
    {
        while (fill(timeoutMs))
            buffer.clear();
        return eof;
    }

    int fd = -1;
    bool connected = false;

private:
    bool fill(int timeoutMs)
    {
        pollfd poller{fd, POLLIN, 0};
        if (::poll(&poller, 1, timeoutMs) <= 0)
            return false;
        char chunk[65536];
        ssize_t const n = ::recv(fd, chunk, sizeof(chunk), 0);
        if (n <= 0) {
            eof = true;
            return false;
        }
        buffer.append(chunk, static_cast<std::size_t>(n));
        return true;
    }
    std::string buffer;
    bool eof = false;
};

// A server that tells waitFor() of every connection opened or closed and of
// every request it answered.
class Observed : public Velmora::RPCServer {
public:
    using RPCServer::RPCServer;
    ~Observed() override { shutdown(); } // before the overrides go

protected:
    std::string handleRequest(Velmora::RPCConnection& connection,
                              Velmora::IRPC::RPCSynchronousMethodObject const& request) override
    {
        std::string reply = RPCServer::handleRequest(connection, request);
        notifyChanged();
        return reply;
    }
    bool handleOpened(std::shared_ptr<Velmora::RPCConnection> const& connection) override
    {
        bool const accepted = RPCServer::handleOpened(connection);
        notifyChanged();
        return accepted;
    }
    void handleClosed(Velmora::RPCConnection& connection) override
    {
        RPCServer::handleClosed(connection);
        notifyChanged();
    }
};

} // namespace BusTest
