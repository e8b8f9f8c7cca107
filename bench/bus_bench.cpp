// Figures of the bus: a trivial call over the Unix socket and over WebSocket,
// 64 concurrent callers, and an application call, each against a raw echo
// over the same kind of socket.
#include "FigureReporter.h"
#include "RawEcho.h"

#include "APPClient.h"
#include "frame/Exception.h"
#include "rpc/RPCServer.h"

#include <utility>


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
using namespace VelmoraBench;

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

class BusServer : public RPCServer {
public:
    BusServer() : RPCServer("bench") { init(); }
    ~BusServer() override { shutdown(); }
    std::string getFixedRPCAddress() override { return "127.0.0.1:0"; }
};

struct Fixture {
    RawEcho echo{runtimeDir() + "/echo.sock"};
    BusServer server;
};

Fixture& fixture()
{
    static Fixture instance;
    return instance;
}

void BM_RawUnixEcho(benchmark::State& state) { fixture(); runRoundTrips<LineClient>(state, runtimeDir() + "/echo.sock", REQUEST); }
void BM_RpcUnixRoundTrip(benchmark::State& state) { fixture(); runRoundTrips<LineClient>(state, runtimeDir() + "/bench.sock", REQUEST); }
void BM_RawWebSocketEcho(benchmark::State& state) { runRoundTrips<WebClient>(state, fixture().echo.port(), REQUEST); }
void BM_RpcWebSocketRoundTrip(benchmark::State& state) { runRoundTrips<WebClient>(state, fixture().server.getPort(), REQUEST); }

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
    runRoundTrips<LineClient>(state, runtimeDir() + "/echo.sock", REQUEST);
}

void BM_RpcUnix64(benchmark::State& state)
{
    fixture();
    runRoundTrips<LineClient>(state, runtimeDir() + "/bench.sock", REQUEST);
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
