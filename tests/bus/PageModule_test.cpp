#include "BusTestSupport.h"

#include "APPClient.h"
#include "RPCServer.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <mutex>
#include <sys/wait.h>
#include <thread>

using namespace Velmora;

namespace {

class WebServer : public RPCServer {
public:
    WebServer() : RPCServer("ZAV") {}
    ~WebServer() override { shutdown(); }
    std::string getFixedRPCAddress() override { return "127.0.0.1:0"; }
};

struct Recorder : IApplication::IApplicationListener {
    void onKeepAlive(std::string const& uid, std::string const& state) override { add("alive " + uid + " " + state); }
    void onStateChange(std::string const& uid, std::string const&, std::string const& state) override
    {
        add(uid + " " + state);
    }
    void add(std::string const& report)
    {
        std::lock_guard lock(mutex);
        reports.push_back(report);
    }
    std::vector<std::string> all()
    {
        std::lock_guard lock(mutex);
        return reports;
    }
    std::mutex mutex;
    std::vector<std::string> reports;
};

} // namespace

// A page on the JavaScript module, run by node over WebSocket.
TEST(PageModuleTest, APageRegistersReportsRunningAndAnswersTheServer)
{
    BusTest::RuntimeDir runtime;
    WebServer server;
    server.init();
    APPClient client(Client::Master, "6001");
    Recorder recorder;
    client.addListener(&recorder);
    client.init();

    std::string const command = std::string("node ") + VELMORA_PAGE_APP + " " + std::to_string(server.getPort()) +
                                " '{\"authorizationToken\":\"6001\"}'";
    FILE* page = ::popen(command.c_str(), "r");
    ASSERT_TRUE(BusTest::waitFor([&] { return recorder.all().size() == 2; }));
    EXPECT_EQ((std::vector<std::string>{"6001 RUNNING", "alive 6001 RUNNING"}), recorder.all());
    EXPECT_EQ("RUNNING", client.getState("6001"));
    client.handleFocus("6001", true);
    EXPECT_TRUE(client.isFocused("6001"));
    client.terminate("6001");

    std::string output;
    char chunk[1024];
    for (std::size_t n; (n = std::fread(chunk, 1, sizeof(chunk), page)) > 0;)
        output.append(chunk, n);
    EXPECT_EQ(0, WEXITSTATUS(::pclose(page)));
    EXPECT_EQ("ping true\nerror Method not found\nfocus true\nterminate\n", output);
}
