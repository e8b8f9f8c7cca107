// Figures of the bus: a trivial call over the Unix socket and over WebSocket,
// 64 concurrent callers, and an application call, each against a raw echo
// over the same kind of socket.
#include "FigureReporter.h"

#include "APPClient.h"
#include "frame/Exception.h"
#include "rpc/RPCServer.h"

#include <utility>

#include <boost/asio.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/websocket.hpp>

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

extern char** environ;

using namespace Velmora;
namespace asio = boost::asio;
namespace beast = boost::beast;
namespace websocket = beast::websocket;
using tcp = asio::ip::tcp;
using Local = asio::local::stream_protocol;

namespace {

std::string const REQUEST = "{\"jsonrpc\":\"2.0\",\"id\":1,\"method\":\"RPC.ping\"}";

std::string const& runtimeDir()
{
    static std::string const dir = [] {
        char pattern[] = "/tmp/velmora-bench-XXXXXX";
        std::string path = ::mkdtemp(pattern);
        ::setenv("VELMORA_RUNTIME_DIR", path.c_str(), 1);
        ::setenv("VELMORA_DEBUG", "0", 0);
        return path;
    }();
    return dir;
}

// Raw line echo on a Unix socket and WebSocket echo on TCP, asio threads as the bus uses.
class RawEcho {
public:
    RawEcho() : unixAcceptor(io, Local::endpoint(runtimeDir() + "/echo.sock")), tcpAcceptor(io, {asio::ip::make_address("127.0.0.1"), 0})
    {
        acceptUnix();
        acceptWeb();
        for (int i = 0; i < 4; ++i)
            threads.emplace_back([this] { io.run(); });
    }
    ~RawEcho()
    {
        io.stop();
        for (auto& thread : threads)
            thread.join();
    }
    unsigned short port() const { return tcpAcceptor.local_endpoint().port(); }

private:
    struct LineSession : std::enable_shared_from_this<LineSession> {
        explicit LineSession(Local::socket socket) : socket(std::move(socket)) {}
        void read()
        {
            asio::async_read_until(socket, buffer, '\n', [self = shared_from_this()](auto error, std::size_t n) {
                if (error)
                    return;
                self->line.assign(asio::buffers_begin(self->buffer.data()), asio::buffers_begin(self->buffer.data()) + n);
                self->buffer.consume(n);
                asio::async_write(self->socket, asio::buffer(self->line), [self](auto writeError, std::size_t) {
                    if (!writeError)
                        self->read();
                });
            });
        }
        Local::socket socket;
        asio::streambuf buffer;
        std::string line;
    };
    struct WebSession : std::enable_shared_from_this<WebSession> {
        explicit WebSession(tcp::socket socket) : ws(std::move(socket)) {}
        void start()
        {
            ws.async_accept([self = shared_from_this()](auto error) {
                if (!error)
                    self->read();
            });
        }
        void read()
        {
            ws.async_read(buffer, [self = shared_from_this()](auto error, std::size_t) {
                if (error)
                    return;
                self->ws.text(true);
                self->ws.async_write(self->buffer.data(), [self](auto writeError, std::size_t) {
                    self->buffer.consume(self->buffer.size());
                    if (!writeError)
                        self->read();
                });
            });
        }
        websocket::stream<beast::tcp_stream> ws;
        beast::flat_buffer buffer;
    };
    void acceptUnix()
    {
        unixAcceptor.async_accept(asio::make_strand(io), [this](auto error, Local::socket socket) {
            if (!error)
                std::make_shared<LineSession>(std::move(socket))->read();
            acceptUnix();
        });
    }
    void acceptWeb()
    {
        tcpAcceptor.async_accept(asio::make_strand(io), [this](auto error, tcp::socket socket) {
            if (!error)
                std::make_shared<WebSession>(std::move(socket))->start();
            acceptWeb();
        });
    }
    asio::io_context io;
    Local::acceptor unixAcceptor;
    tcp::acceptor tcpAcceptor;
    std::vector<std::thread> threads;
};

class BusServer : public RPCServer {
public:
    BusServer() : RPCServer("bench") { init(); }
    ~BusServer() override { shutdown(); }
    std::string getFixedRPCAddress() override { return "127.0.0.1:0"; }
};

struct Fixture {
    Fixture() { runtimeDir(); }
    RawEcho echo;
    BusServer server;
};

Fixture& fixture()
{
    static Fixture instance;
    return instance;
}

// A blocking line client: the same for the echo and for the bus.
class LineClient {
public:
    explicit LineClient(std::string const& path) : socket(io)
    {
        socket.connect(Local::endpoint(path));
    }
    void roundTrip()
    {
        asio::write(socket, asio::buffer(REQUEST + "\n"));
        std::size_t const n = asio::read_until(socket, buffer, '\n');
        buffer.consume(n);
    }

private:
    asio::io_context io;
    Local::socket socket;
    asio::streambuf buffer;
};

class WebClient {
public:
    explicit WebClient(unsigned short port) : ws(io)
    {
        ws.next_layer().connect({asio::ip::make_address("127.0.0.1"), port});
        ws.handshake("127.0.0.1", "/");
        ws.text(true);
    }
    void roundTrip()
    {
        ws.write(asio::buffer(REQUEST));
        ws.read(buffer);
        buffer.consume(buffer.size());
    }

private:
    asio::io_context io;
    websocket::stream<tcp::socket> ws;
    beast::flat_buffer buffer;
};

template <class Client, class... Args>
void runRoundTrips(benchmark::State& state, Args&&... args)
{
    Client client(std::forward<Args>(args)...);
    for (auto _ : state)
        client.roundTrip();
}

void BM_RawUnixEcho(benchmark::State& state) { fixture(); runRoundTrips<LineClient>(state, runtimeDir() + "/echo.sock"); }
void BM_RpcUnixRoundTrip(benchmark::State& state) { fixture(); runRoundTrips<LineClient>(state, runtimeDir() + "/bench.sock"); }
void BM_RawWebSocketEcho(benchmark::State& state) { runRoundTrips<WebClient>(state, fixture().echo.port()); }
void BM_RpcWebSocketRoundTrip(benchmark::State& state) { runRoundTrips<WebClient>(state, fixture().server.getPort()); }

// The application side: APPClient::getState answered by the test program.
class AppFixture {
public:
    AppFixture() : server("ZAV"), client(Client::Master, "777")
    {
        server.init();
        client.init();
        std::string parameters = "VELMORA_APP_PARAMETERS={\"authorizationToken\":\"777\"}";
        std::string host = "VELMORA_APP_HOSTNAME=ZAV";
        std::string dir = "VELMORA_RUNTIME_DIR=" + runtimeDir();
        char program[] = VELMORA_TEST_APP;
        char* argv[] = {program, nullptr};
        char* envp[] = {parameters.data(), host.data(), dir.data(), nullptr};
        ::posix_spawn(&pid, program, nullptr, nullptr, argv, envp);
        for (int i = 0; i < 1000; ++i) {
            try {
                client.getState("777");
                return;
            } catch (Exception const&) {
                std::this_thread::sleep_for(std::chrono::milliseconds(5));
            }
        }
    }
    ~AppFixture()
    {
        ::kill(pid, SIGKILL);
        ::waitpid(pid, nullptr, 0);
    }
    RPCServer server;
    APPClient client;
    pid_t pid = -1;
};

void BM_AppGetState(benchmark::State& state)
{
    static AppFixture app;
    for (auto _ : state)
        benchmark::DoNotOptimize(app.client.getState("777"));
}

void BM_RawUnixEcho64(benchmark::State& state)
{
    fixture();
    runRoundTrips<LineClient>(state, runtimeDir() + "/echo.sock");
}

void BM_RpcUnix64(benchmark::State& state)
{
    fixture();
    runRoundTrips<LineClient>(state, runtimeDir() + "/bench.sock");
}

} // namespace

BENCHMARK(BM_RawUnixEcho)->UseRealTime();
BENCHMARK(BM_RpcUnixRoundTrip)->UseRealTime();
BENCHMARK(BM_RawWebSocketEcho)->UseRealTime();
BENCHMARK(BM_RpcWebSocketRoundTrip)->UseRealTime();
BENCHMARK(BM_RawUnixEcho64)->Threads(64)->UseRealTime();
BENCHMARK(BM_RpcUnix64)->Threads(64)->UseRealTime();
BENCHMARK(BM_AppGetState)->UseRealTime();

int main(int argc, char** argv)
{
    runtimeDir();
    int const status = VelmoraBench::runFigures(
        argc, argv,
        {
            {"rpc_unix_roundtrip_ratio", "BM_RpcUnixRoundTrip/real_time", "BM_RawUnixEcho/real_time"},
            {"rpc_ws_roundtrip_ratio", "BM_RpcWebSocketRoundTrip/real_time", "BM_RawWebSocketEcho/real_time"},
            {"rpc_64_clients_ratio", "BM_RpcUnix64/real_time/threads:64", "BM_RawUnixEcho64/real_time/threads:64", 1.0, true},
            {"app_call_roundtrip_ratio", "BM_AppGetState/real_time", "BM_RawUnixEcho/real_time"},
        });
    std::error_code ignored;
    std::filesystem::remove_all(runtimeDir(), ignored);
    return status;
}
