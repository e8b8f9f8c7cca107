// Helpers of the bus tests: a private runtime directory per test, a raw
// socket peer that speaks bytes (for inputs no well-behaved client sends),
// and waiting for a condition with an upper bound.
#pragma once

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <string>
#include <thread>

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace BusTest {

// Points VELMORA_RUNTIME_DIR at a fresh directory for the life of the object.
class RuntimeDir {
public:
    RuntimeDir()
    {
        char pattern[] = "/tmp/velmora-bus-XXXXXX";
        path = ::mkdtemp(pattern);
        ::setenv("VELMORA_RUNTIME_DIR", path.c_str(), 1);
    }
    ~RuntimeDir()
    {
        std::error_code ignored;
        std::filesystem::remove_all(path, ignored);
        ::unsetenv("VELMORA_RUNTIME_DIR");
    }
    std::string socket(std::string const& name) const { return path + "/" + name + ".sock"; }
    std::string path;
};

inline bool waitFor(std::function<bool()> const& condition, int timeoutMs = 10000)
{
    auto const end = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    while (std::chrono::steady_clock::now() < end) {
        if (condition())
            return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return condition();
}

// A Unix socket peer driven byte by byte.
class RawPeer {
public:
    explicit RawPeer(std::string const& path)
    {
        fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        path.copy(address.sun_path, sizeof(address.sun_path) - 1);
        connected = ::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)) == 0;
    }
    ~RawPeer()
    {
        if (fd >= 0)
            ::close(fd);
    }
    RawPeer(RawPeer const&) = delete;
    RawPeer& operator=(RawPeer const&) = delete;

    bool send(std::string const& bytes)
    {
        std::size_t done = 0;
        while (done < bytes.size()) {
            ssize_t const n = ::send(fd, bytes.data() + done, bytes.size() - done, MSG_NOSIGNAL);
            if (n <= 0)
                return false;
            done += static_cast<std::size_t>(n);
        }
        return true;
    }

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

inline int threadCount()
{
    int count = 0;
    for ([[maybe_unused]] auto const& entry : std::filesystem::directory_iterator("/proc/self/task"))
        ++count;
    return count;
}

} // namespace BusTest
