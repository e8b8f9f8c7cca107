// The world of a real velmora-server: a sysroot with the launch scripts (which
// start the SDK's test program), a private runtime directory, a supervisor's
// notification socket, and velmoractl run as a shell would run it.
#pragma once

#include "BusTestSupport.h"
#include "interfaces/IRPC.h"
#include "rpc/RPCClient.h"
#include "ServerProcess.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <string>
#include <vector>

namespace HostTest {

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

    // Runs velmoractl with `arguments` (shell words) against this world's
    // endpoints, as a user runs it: without the test run's debug level.
    BusTest::Output ctl(std::string const& arguments) const
    {
        std::string const command = "env -u VELMORA_DEBUG " + std::string(VELMORA_CTL) + " " + arguments + " 2>&1";
        return BusTest::finish(::popen(command.c_str(), "r"));
    }

    // A velmora-server with this world's sysroot and environment, `extra` on top of it.
    ServerProcess server(std::vector<std::string> arguments, std::map<std::string, std::string> extra = {})
    {
        arguments.insert(arguments.begin(), {"--sysroot", sysroot.string()});
        extra.merge(environment()); // the extra values win
        return ServerProcess(VELMORA_SERVER, arguments, extra, base / ("server" + std::to_string(++servers) + ".log"));
    }

    BusTest::RuntimeDir runtime; // also sets VELMORA_RUNTIME_DIR for this process
    fs::path const base = runtime.path;
    fs::path const sysroot = base / "box";
    NotifySocket notify{base / "notify"};

private:
    int servers = 0;
};

// Connects `client` to the server and has it wake waitFor() at every `event`
// (by default a change of a window list).
inline void connectWatching(Velmora::RPCClient& client, std::string const& event = "IWindowManager::onWindowListChange")
{
    client.setNotificationHandler([](std::string const&, Json::Value const&) { BusTest::notifyChanged(); });
    client.connect("ZAV"); // no retry: READY=1 comes after the endpoint opened
    client.callOrThrow("RPC.subscribe", Velmora::IRPC::parse(R"({"events":[")" + event + R"("]})"));
}

// A call to a window manager, whose thread a loaded machine may keep for
// seconds in a window's first calls: a deadline that no load misses; an error
// answer fails the test.
inline Json::Value callManager(Velmora::RPCClient& client, std::string const& method, Json::Value const& params)
{
    Velmora::RPCConnection::Reply const reply = client.call(method, params, 60000);
    EXPECT_TRUE(reply.ok) << method << ": " << reply.message;
    return reply.result;
}

// Launches an OTHER window at `url` over the bus: its uid, empty when the launch is put off.
inline std::string launch(Velmora::RPCClient& client, std::string const& url)
{
    Json::Value params = Velmora::IRPC::parse(R"({"proxy":0,"applicationType":"OTHER"})");
    params["applicationURL"] = url;
    return callManager(client, "IWindowManager.launch", params).asString();
}

} // namespace HostTest
