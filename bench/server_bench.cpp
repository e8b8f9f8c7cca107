// Server figures, against a velmora-server process with the master classes and
// one session, booted from RPM packages with the media and power simulators as
// its services, and with its master window:
//   rpc_launch_to_focus_ratio  IWindowManager.launch sent over WebSocket, to the
//                              IWindowManager::onFocusChange that names the new
//                              window on the same connection, against the same
//                              launch to focus in this process (the window
//                              figures' box)
//   server_idle_rss_kib        the server's resident memory, idle after its boot
//   rpc_window_list_64_ratio   getWindowList calls per second from 64 clients on
//                              the Unix socket, against a raw echo of the same
//                              text to 64 clients
#include "FigureReporter.h"
#include "PackageWorld.h"
#include "RawEcho.h"
#include "ScratchDirectory.h"
#include "ServerProcess.h"
#include "WindowBenchBox.h"
#include "interfaces/IRPC.h"

#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <optional>
#include <set>
#include <string>
#include <thread>

using namespace VelmoraBench;

namespace {

std::string const WINDOW_LIST = "{\"jsonrpc\":\"2.0\",\"id\":1,\"method\":\"IWindowManager.getWindowList\","
                                "\"params\":{\"proxy\":0}}";

long residentKiB(pid_t pid)
{
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    for (std::string line; std::getline(status, line);)
        if (line.rfind("VmRSS:", 0) == 0)
            return std::stol(line.substr(6));
    return 0;
}

// One WebSocket connection to the server, subscribed to the window events.
class WindowEvents {
public:
    explicit WindowEvents(unsigned short port) : ws(io)
    {
        ws.next_layer().connect({asio::ip::make_address("127.0.0.1"), port});
        ws.handshake("127.0.0.1", "/");
        ws.text(true);
        Json::Value events;
        events["events"].append("IWindowManager::onFocusChange");
        events["events"].append("IWindowManager::onWindowListChange");
        call("RPC.subscribe", events);
    }

    // Sends a request and reads until its reply.
    Json::Value call(std::string const& method, Json::Value const& params)
    {
        send(method, params);
        std::optional<Json::Value> reply;
        while (!reply)
            reply = take(read());
        return *reply;
    }

    // Launch to the focus on the new window, in seconds; the window is gone again on return.
    double cycle()
    {
        Json::Value launch;
        launch["proxy"] = 0;
        launch["applicationType"] = "OTHER";
        launch["applicationURL"] = "bench";
        auto const start = Clock::now();
        send("IWindowManager.launch", launch);
        std::string uid;
        std::set<std::string> focused; // the focus may come before the reply
        while (uid.empty() || !focused.count(uid)) {
            Json::Value const message = read();
            if (auto reply = take(message))
                uid = reply->asString();
            else if (message["method"] == "IWindowManager::onFocusChange")
                focused.insert(message["params"]["newFocus"].asString());
        }
        double const seconds = std::chrono::duration<double>(Clock::now() - start).count();
        Json::Value end;
        end["uid"] = uid;
        send("IApplicationManager.terminate", end);
        awaitWindowList([&](Json::Value const& list) {
            for (Json::Value const& listed : list)
                if (listed.asString() == uid)
                    return false;
            return true;
        });
        return seconds;
    }

    // Reads until a window list change that `wanted` accepts.
    template <class Wanted>
    void awaitWindowList(Wanted wanted)
    {
        for (;;) {
            Json::Value const message = read();
            if (message["method"] == "IWindowManager::onWindowListChange" && wanted(message["params"]))
                return;
        }
    }

private:
    void send(std::string const& method, Json::Value const& params)
    {
        Json::Value request;
        request["jsonrpc"] = "2.0";
        request["id"] = ++lastId;
        request["method"] = method;
        request["params"] = params;
        ws.write(asio::buffer(Velmora::IRPC::write(request)));
    }
    Json::Value read()
    {
        buffer.consume(buffer.size());
        ws.read(buffer);
        return Velmora::IRPC::parse(beast::buffers_to_string(buffer.data()));
    }
    // The result of a reply to the last request; nothing for other messages.
    std::optional<Json::Value> take(Json::Value const& message) const
    {
        if (!message.isMember("id") || message["id"].asInt() != lastId)
            return std::nullopt;
        return message["result"];
    }

    asio::io_context io;
    websocket::stream<tcp::socket> ws;
    beast::flat_buffer buffer;
    int lastId = 0;
};

// The server with its box: sysroot, RPM root with the service packages,
// runtime directory and supervisor socket. Made once, before the in-process
// box, and stopped at exit.
class ServerBox {
public:
    static ServerBox& get()
    {
        static ServerBox box;
        return box;
    }
    // SIGTERM: the server ends its services and windows itself.
    ~ServerBox() { server->stop(SIGTERM); }

    std::string socketPath() const { return runtime + "/ZAV.sock"; }
    std::string echoPath() const { return runtime + "/echo.sock"; }
    unsigned short port = 0;
    long idleKiB = 0;

private:
    ServerBox()
    {
        installServices();
        fs::create_directories(sysroot / "usr/local/bin");
        for (auto const& script : fs::directory_iterator(VELMORA_LAUNCH_SCRIPTS))
            fs::copy_file(script.path(), sysroot / "usr/local/bin" / script.path().filename());
        fs::path const keys = sysroot / "usr/local/etc/velmora";
        fs::create_directories(keys);
        VelmoraTest::TestPki const& pki = VelmoraTest::TestPki::get();
        writeFile(keys / "DORICProtected.crt", VelmoraTest::toPem(pki.doricHolder.get()));
        writeFile(keys / "ACIssuer.crt", VelmoraTest::toPem(pki.issuer.get()));
        writeFile(keys / "ACIssuer.key", VelmoraTest::toPem(pki.issuerKey.get()));

        std::string const path = std::getenv("PATH") ? std::getenv("PATH") : "/usr/bin:/bin";
        server.emplace(VELMORA_SERVER,
                       std::vector<std::string>{"--sysroot", sysroot.string(), "--velmora:masterType", "OTHER",
                                                "--velmora:masterURL", "home"},
                       std::map<std::string, std::string>{
                           {"VELMORA_RUNTIME_DIR", runtime},
                           {"NOTIFY_SOCKET", notify.path.string()},
                           {"VELMORA_DEBUG", "1"},
                           {"PATH", fs::path(VELMORA_TEST_APP).parent_path().string() + ":" + VELMORA_SIM_DIR + ":" +
                                        path}},
                       fs::path(runtime) / "server.log");
        port = readyPort();
        waitForMasterWindow();
        // Idle: what start-up left behind settles (threads park, pages of the
        // clients' first calls are touched) before the figure is read.
        std::this_thread::sleep_for(std::chrono::seconds(2));
        idleKiB = residentKiB(server->pid);
    }

    void installServices()
    {
        std::vector<VelmoraTest::PackageSpec> const specs{
            {"velmora-start", "1.0", "Velmora/Service", "{\"applicationURL\":\"start_velmora\"}", {}},
            {"velmora-qen", "1.0", "Velmora/Service", "{\"applicationURL\":\"VelmoraQENExec\"}", {"velmora-start"}},
            {"velmora-power", "1.0", "Velmora/Service", "{\"applicationURL\":\"velmora-hux\"}", {"velmora-start"}}};
        fs::path const cache = fs::path(VELMORA_PACKAGE_CACHE) / "server";
        VelmoraTest::PackageWorld::buildMany(cache, specs);
        std::vector<fs::path> files;
        for (auto const& spec : specs)
            files.push_back(cache / (spec.name + "-1.0.rpm"));
        packages.installWithTool(files);
    }

    // The TCP port from the READY message's status line.
    unsigned short readyPort()
    {
        for (std::string message; !(message = notify.receive(60000)).empty();) {
            if (message.find("READY=1") == std::string::npos)
                continue;
            auto const colon = message.rfind(':');
            return static_cast<unsigned short>(std::stoul(message.substr(colon + 1)));
        }
        throw std::runtime_error("velmora-server did not get ready; see " + runtime + "/server.log");
    }

    // Boot complete: the master window is in the session's window list.
    void waitForMasterWindow()
    {
        WindowEvents events(port);
        Json::Value session;
        session["proxy"] = 0;
        if (events.call("IWindowManager.getWindowList", session).empty())
            events.awaitWindowList([](Json::Value const& list) { return !list.empty(); });
    }

    VelmoraTest::PackageWorld packages; // sets VELMORA_ROOT to its sysroot
    fs::path const sysroot = packages.root().parent_path() / "sysroot";
    ScratchDirectory const runtimeDirectory{"velmora-server-bench"};
    std::string const runtime = runtimeDirectory.get();
    HostTest::NotifySocket notify{fs::path(runtime) / "notify"};
    std::optional<HostTest::ServerProcess> server;
};

void BM_InProcessLaunchToFocus(benchmark::State& state)
{
    BenchBox& box = BenchBox::get();
    for (auto _ : state)
        state.SetIterationTime(box.cycle());
}
BENCHMARK(BM_InProcessLaunchToFocus)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(20);

void BM_WebSocketLaunchToFocus(benchmark::State& state)
{
    static WindowEvents events(ServerBox::get().port);
    for (auto _ : state)
        state.SetIterationTime(events.cycle());
}
BENCHMARK(BM_WebSocketLaunchToFocus)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(20);

// The benchmark's time, in nanoseconds, is the resident memory in KiB.
void BM_ServerIdleRss(benchmark::State& state)
{
    for (auto _ : state)
        state.SetIterationTime(ServerBox::get().idleKiB * 1e-9);
}
BENCHMARK(BM_ServerIdleRss)->UseManualTime()->Unit(benchmark::kNanosecond)->Iterations(1)->Repetitions(1);

void BM_RawUnixEcho64(benchmark::State& state)
{
    static RawEcho echo(ServerBox::get().echoPath());
    runRoundTrips<LineClient>(state, ServerBox::get().echoPath(), WINDOW_LIST);
}
BENCHMARK(BM_RawUnixEcho64)->Threads(64)->UseRealTime();

void BM_WindowList64(benchmark::State& state)
{
    runRoundTrips<LineClient>(state, ServerBox::get().socketPath(), WINDOW_LIST);
}
BENCHMARK(BM_WindowList64)->Threads(64)->UseRealTime();

} // namespace

int main(int argc, char** argv)
{
    // The server's box first: the in-process box's sysroot (VELMORA_ROOT) must win here.
    ServerBox::get();
    BenchBox::get();
    int const result = VelmoraBench::runFigures(
        argc, argv,
        {{"rpc_launch_to_focus_ratio", "BM_WebSocketLaunchToFocus/iterations:20/manual_time",
          "BM_InProcessLaunchToFocus/iterations:20/manual_time"},
         {"server_idle_rss_kib", "BM_ServerIdleRss/iterations:1/repeats:1/manual_time", "", 1.0},
         {"rpc_window_list_64_ratio", "BM_WindowList64/real_time/threads:64", "BM_RawUnixEcho64/real_time/threads:64",
          1.0, true}});
    BenchBox::release();
    return result;
}
