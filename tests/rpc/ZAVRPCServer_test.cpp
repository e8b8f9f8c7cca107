// The RPC surface over the real bus on scripted managers; texts that are no request are the bus's own tests.
#include "RpcWorld.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <netinet/in.h>

using namespace RpcTest;
using BusTest::RawPeer;
using BusTest::waitFor;

namespace {

// One remote call: its parameters, and either the expected result (JSON;
// an object matches when every member it names matches) or "error:" and the
// expected error text; `call` begins what the manager must be asked ("" none).
struct Row {
    char const* method;
    char const* params;
    char const* expect;
    char const* call = "";
};

bool matches(Json::Value const& expected, Json::Value const& actual)
{
    if (!expected.isObject())
        return expected == actual;
    if (!actual.isObject())
        return false;
    for (auto const& name : expected.getMemberNames())
        if (!actual.isMember(name) || !matches(expected[name], actual[name]))
            return false;
    return true;
}

// Runs each row on one connection, in order.
void runTable(RpcWorld& world, std::vector<Row> const& rows)
{
    RawPeer peer(world.runtime.socket("ZAV"));
    ASSERT_TRUE(peer.connected);
    int id = 0;
    for (Row const& row : rows) {
        SCOPED_TRACE(std::string(row.method) + " " + row.params);
        Json::Value const reply = IRPC::parse(peer.ask(BusTest::request(row.method, row.params, ++id)));
        EXPECT_EQ(reply["id"].asInt(), id);
        std::string const expect = row.expect;
        if (expect.rfind("error:", 0) == 0) {
            EXPECT_EQ(reply["error"]["message"].asString(), expect.substr(6)) << IRPC::write(reply);
        } else {
            EXPECT_TRUE(matches(IRPC::parse(expect), reply["result"])) << IRPC::write(reply);
        }
        auto const called = [&] { return std::ranges::any_of(world.calls.all(), [&](auto const& line) { return line.starts_with(row.call); }); };
        if (*row.call) {
            EXPECT_TRUE(waitFor(called)) << row.call << " not in\n" << ::testing::PrintToString(world.calls.all());
        }
    }
    EXPECT_EQ(IRPC::parse(peer.ask(BusTest::request("RPC.ping")))["result"], true);
}

} // namespace

// IApplicationManager finds the uid in any session, then among the services;
// the other interfaces follow, each table on a connection of its own.
TEST(RPCSurface, EveryInterfaceOnOneInstance)
{
    RpcWorld world;
    std::string const huge = "{\"uid\":\"" + std::string(900000, 'u') + "\"}";
    runTable(world, {
        {"IApplicationManager.getState", R"({"uid":"a0"})", R"("RUNNING")"},
        {"IApplicationManager.getState", R"({"uid":"c1"})", R"("RUNNING")"},
        {"IApplicationManager.getState", R"({"uid":"svc"})", R"("STARTED svc")"},
        {"IApplicationManager.getState", R"({"uid":"nobody"})", "error:invalid interface"},
        // Listed, but gone from the table: the manager's own failure passes through.
        {"IApplicationManager.getState", R"({"uid":"gone"})", "error:Invalid parameter"},
        {"IApplicationManager.getState", R"({"uid":5})", "error:Invalid parameter"},
        {"IApplicationManager.getState", R"({})", "error:Invalid parameter"},
        {"IApplicationManager.getState", huge.c_str(), "error:invalid interface"},
        {"IApplicationManager.setState", R"({"uid":"b1","requestedState":"SUSPENDED"})", "null", "setState b1 SUSPENDED"},
        // Both strings are read before the uid is looked for.
        {"IApplicationManager.setState", R"({"uid":"nobody"})", "error:Invalid parameter"},
        {"IApplicationManager.setState", R"({"uid":"nobody","requestedState":"X"})", "error:invalid interface"},
        {"IApplicationManager.activate", R"({"uid":"a0"})", "error:not implemented"},
        {"IApplicationManager.suspend", R"([])", "error:not implemented"},
        {"IApplicationManager.terminate", R"({"uid":"c1"})", "null", "terminate c1"},
        {"IApplicationManager.terminate", R"({"uid":"svc"})", "error:Invalid parameter"},
        {"IApplicationManager.getRuntimeStatistics", R"({"uid":"b1"})", R"({"@type":"RuntimeStatistics","name":"b1"})"},
    });

    // IWindowManager selects by uid or by session, and keeps its odd rows.
    char const* const key = R"({"@type":"KeyEvent","code":30,"pressed":true})";
    std::string const handleEvent = std::string(R"({"uid":"b1","event":)") + key + "}";
    std::string const dispatchEvent = std::string(R"({"proxy":0,"event":)") + key + "}";
    runTable(world, {
        {"IWindowManager.handleFocus", R"({"uid":"c1","obtained":true})", "null", "handleFocus c1 1"},
        // The selection comes first: an unknown uid wins over a missing member.
        {"IWindowManager.handleFocus", R"({"uid":"svc"})", "error:invalid uid"},
        {"IWindowManager.handleFocus", R"({"uid":"a0"})", "error:Invalid parameter"},
        {"IWindowManager.isFocused", R"({"uid":"a0"})", "true"},
        {"IWindowManager.isFocused", R"({"uid":"c1"})", "false"},
        {"IWindowManager.handleEvent", handleEvent.c_str(), "true", "handleEvent b1 {\"@type\":\"KeyEvent\",\"code\":30,\"pressed\":true}"},
        {"IWindowManager.handleEvent", R"({"uid":"b1","event":{"code":30}})", "error:Invalid parameter"},
        {"IWindowManager.handleEvent", R"({"uid":"b1","event":{"@type":"PortInfo"}})", "error:Invalid parameter"},
        {"IWindowManager.setVisibility", R"({"uid":"a0","visibility":false})", "null", "setVisibility a0 0"},
        {"IWindowManager.getVisibility", R"({"uid":"b1"})", "true"},
        {"IWindowManager.setOpacity", R"({"uid":"a0","opacity":128})", "null", "setOpacity a0 128"},
        {"IWindowManager.setOpacity", R"({"uid":"a0","opacity":-1})", "error:Invalid parameter"},
        {"IWindowManager.setOpacity", R"({"uid":"a0","opacity":4294967296})", "error:Invalid parameter"},
        // Opacity 200 answers 1, and so does the z-order, which asks for the opacity.
        {"IWindowManager.getOpacity", R"({"uid":"a0"})", "1"},
        {"IWindowManager.getOpacity", R"({"uid":"c1"})", "0"},
        {"IWindowManager.getZOrder", R"({"uid":"b1"})", "1"},
        {"IWindowManager.getZOrder", R"({"uid":"c1"})", "0"},
        {"IWindowManager.setZOrder", R"({"uid":"c1","zorder":true})", "null", "setZOrder c1 1"},
        {"IWindowManager.setZOrder", R"({"uid":"c1","zorder":5})", "error:Invalid parameter"},
        {"IWindowManager.getWindowList", R"({"proxy":1})", R"(["b1","c1"])"},
        {"IWindowManager.getWindowList", R"({"proxy":2})", "error:invalid proxy"},
        {"IWindowManager.getWindowList", R"({"proxy":"0"})", "error:Invalid parameter"},
        // The parameter object is the launch record, proxy and all.
        {"IWindowManager.launch", R"({"proxy":1,"applicationType":"OTHER","applicationURL":"x","launchFlag":true})",
         R"("new-x")", R"(launch 1 {"@type":"WindowLaunchParameters","applicationParameters":"","applicationType":"OTHER","applicationURL":"x")"},
        {"IWindowManager.launch", R"({"proxy":7,"applicationURL":"x"})", "error:invalid proxy"},
        {"IWindowManager.launch", R"({"proxy":0,"applicationURL":{"a":[1,2]}})", "error:Invalid parameter"},
        {"IWindowManager.launch", R"({"proxy":1.5})", "error:Invalid parameter"},
        {"IWindowManager.getLaunchParameters", R"({"uid":"c1"})", R"({"applicationURL":"url-c1","authorizationToken":"c1","launchFlag":true})"},
        {"IWindowManager.dispatchEvent", dispatchEvent.c_str(), "null", "dispatchEvent 0 {\"@type\":\"KeyEvent\",\"code\":30,\"pressed\":true}"},
        {"IWindowManager.dispatchEvent", R"({"proxy":5,"event":{}})", "error:invalid proxy"},
        {"IWindowManager.dispatchEvent", R"({"proxy":0})", "error:Invalid parameter"},
        {"IWindowManager.raise", R"({})", "error:Method not found"},
    });

    // Services, packages, the port mapper and settings.
    runTable(world, {
        {"IServiceManager.getServiceList", "{}", R"(["svc"])"},
        {"IServiceManager.authorizationTokenCreation", R"({"token":7,"authAttrInternal":"{\"IWindowManager\":{\"launch\":1}}"})",
         "null", R"(tokenCreation 7 {"IWindowManager":{"launch":1}})"},
        {"IServiceManager.authorizationTokenCreation", R"({"token":-7,"authAttrInternal":"{}"})", "error:Invalid parameter"},
        {"IServiceManager.authorizationTokenCreation", R"({"token":7})", "error:Invalid parameter"},
        {"IServiceManager.authorizationTokenCreation", R"({"token":1,"authAttrInternal":"{\"I\":{\"f\":\"x\"}}"})",
         "error:Invalid parameter"},
        {"IServiceManager.authorizationTokenDeletion", R"({"token":7})", "null", "tokenDeletion 7"},
        {"IPackageManager.getPackageInfoList", R"({"listRequest":{"groups":["Velmora/Service"]}})", "[]"},
        {"IPackageManager.getExtendedPackageInfoList", R"({"listRequest":{}})", "[]"},
        {"IPackageManager.getManifestPackageInfoList", R"({"listRequest":[]})", "error:Invalid parameter"},
        {"IPackageManager.getManifestPackageInfoList", R"({})", "error:Invalid parameter"},
        {"IPackageManager.getPackageInfo", R"({"package":"p"})", R"({"@type":"PackageInfo"})"},
        {"IPackageManager.getExtendedPackageInfo", R"({"package":"p"})", R"({"@type":"ExtendedPackageInfo"})"},
        {"IPackageManager.getManifestPackageInfo", R"({"package":"p"})", R"({"@type":"ManifestPackageInfo"})"},
        {"IPackageManager.getPackageInfo", R"({"package":null})", "error:Invalid parameter"},
        {"IPackageInstaller.packageInstall", R"({"packages":"a","force":true})", "error:Invalid parameter"},
        {"IPackageInstaller.packageRemove", R"({"packages":["a"]})", "error:Invalid parameter"},
        // The mapper assigns nothing: a registration fails and a lookup finds nothing, even right after.
        {"IPortMapper.registerService", R"({"uid":"web"})", "false"},
        {"IPortMapper.lookupService", R"({"uid":"web"})", R"({"@type":"PortInfo","name":"","port":0})"},
        {"IPortMapper.lookupService", R"({})", "error:Invalid parameter"},
        // The settings interface stands, with no method.
        {"ISettingsDB.getEntities", R"({})", "error:Method not found"},
        {"IStateManager.checkStreamingSubscription", R"({})", "error:Method not found"},
    });
}

TEST(RPCSurface, SubscribersHearTheChangesThatBecomeNotificationsAndNothingElse)
{
    RpcWorld world;
    BusTest::Log heard;
    auto const subscriber = world.subscriber(heard);
    auto& session0 = *world.sessions[0];
    auto& session1 = *world.sessions[1];
    auto const hear = [&](std::string const& line) { return waitFor([&] { return heard.has(line); }); };

    // Changes nobody hears of: compositing, layout, settings, packages, boot, state.
    session0.onVisibilityChange("a0", false, true);
    session0.onLayoutChange(session0, "a", "b");
    world.settings->onEntityListChange(VectorObject<std::string>{"e"});
    world.settings->onCurrentValuesChange("e", {});
    world.packages->onPackageInfoChanged();
    world.packages->onPackageRepositoryChanged();
    world.services->onBootComplete();
    world.services->onServiceFailure("svc");
    world.stateManager->onStateChange();

    session0.onWindowListChange(session0, VectorObject<std::string>{});
    session1.onFocusChange(session1, "", "b1");
    world.services->onServiceListChange(VectorObject<std::string>{"svc", "web"});
    session1.onError("c1", "launch");
    world.server->onKeepAlive("a0", "RUNNING");
    world.server->onStateChange("a0", "INITIALIZING", "RUNNING");
    EXPECT_TRUE(subscriber->call("IPackageInstaller.packageInstall", IRPC::parse(R"({"packages":["a","b"],"force":true})")).ok);
    ASSERT_TRUE(hear(R"(IPackageInstaller::onRequestEnd {"action":"install","packages":["a","b"],"result":0})"));
    EXPECT_TRUE(subscriber->call("IPackageInstaller.packageRemove", IRPC::parse(R"({"packages":[],"force":false})")).ok);
    ASSERT_TRUE(hear(R"(IPackageInstaller::onRequestEnd {"action":"remove","packages":[],"result":2})"));
    // Any client may send any notification; the parameters go on whole.
    EXPECT_EQ(subscriber->call("IWindowManager.notify", IRPC::parse(R"({"event":"X","n":1})")).result, true);
    ASSERT_TRUE(hear(R"(X {"event":"X","n":1})"));
    // Line breaks in them, as an HTTP body may have, neither split the message
    // nor let a line of it pass for an answer.
    world.server->handleRPCSynchronousMethodPayload(
        BusTest::request("IWindowManager.notify", "{\"event\":\"Y\",\"n\":[\n{\"id\":1,\"result\":2}\n]}"));
    ASSERT_TRUE(hear(R"(Y {"event":"Y","n":[{"id":1,"result":2}]})"));

    EXPECT_EQ(heard.all(), (std::vector<std::string>{
        "IWindowManager::onWindowListChange []",
        R"(IWindowManager::onFocusChange {"newFocus":"b1","oldFocus":""})",
        R"(IServiceManager::onServiceListChange ["svc","web"])",
        R"(IApplicationManager::onError {"errorType":"launch","uid":"c1"})",
        R"(IApplicationManager::onKeepAlive {"state":"RUNNING","uid":"a0"})",
        R"(IApplicationManager::onStateChange {"newState":"RUNNING","oldState":"INITIALIZING","uid":"a0"})",
        R"(IPackageInstaller::onRequestEnd {"action":"install","packages":["a","b"],"result":0})",
        R"(IPackageInstaller::onRequestEnd {"action":"remove","packages":[],"result":2})",
        R"(X {"event":"X","n":1})",
        R"(Y {"event":"Y","n":[{"id":1,"result":2}]})",
    }));
}

TEST(RPCSurface, TheStubInstanceOffersNoWindowsAndEmptyAnswers)
{
    RpcWorld world(true);
    runTable(world, {
        {"IWindowManager.getWindowList", R"({"proxy":0})", "error:Method not found"},
        {"IWindowManager.notify", R"({"event":"X"})", "error:Method not found"},
        {"IApplicationManager.getState", R"({"uid":"x"})", "error:invalid interface"},
        {"IServiceManager.getServiceList", "{}", "[]"},
        {"IPackageManager.getPackageInfoList", R"({"listRequest":{}})", "[]"},
        {"IPackageInstaller.packageInstall", R"({"packages":["a"],"force":false})", "null"},
        {"ISettingsDB.reset", "{}", "error:Method not found"},
    });
}

TEST(RPCSurface, ABusyManagerHoldsOnlyItsOwnCallersWhileHundredsOfOthersAreServed)
{
    RpcWorld world;
    std::string const held = BusTest::request("IWindowManager.launch", R"({"proxy":0,"applicationURL":"wait"})");
    // One caller leaves while its launch is held, another waits for it.
    {
        RawPeer leaving(world.runtime.socket("ZAV"));
        ASSERT_TRUE(leaving.send(held + "\n"));
    }
    RawPeer waiting(world.runtime.socket("ZAV"));
    ASSERT_TRUE(waiting.send(held + "\n"));

    std::vector<std::unique_ptr<RawPeer>> peers;
    for (int i = 0; i < 300; ++i) {
        peers.push_back(std::make_unique<RawPeer>(world.runtime.socket("ZAV")));
        std::string const request = i % 2 ? BusTest::request("IWindowManager.getWindowList", R"({"proxy":1})")
                                          : BusTest::request("IServiceManager.getServiceList", "{}");
        ASSERT_TRUE(peers.back()->send(request + "\n"));
    }
    for (int i = 0; i < 300; ++i)
        EXPECT_TRUE(IRPC::parse(peers[i]->readLine(30000))["result"].isArray()) << i;
    // Session 0 answers again once its launch goes on, for the caller still there.
    world.gate.raise();
    EXPECT_EQ(IRPC::parse(waiting.readLine(30000))["result"], "new-wait");
    EXPECT_EQ(IRPC::parse(waiting.ask(BusTest::request("IWindowManager.getWindowList", R"({"proxy":0})")))["result"].size(), 2u);
}

// getWindowList and launch go to their session's thread: a session whose
// manager has stopped must still answer them, not leave the caller waiting.
TEST(RPCSurface, ASessionWhoseManagerHasStoppedAnswersItsCallersWithAnError)
{
    RpcWorld world;
    world.sessions[0]->uninit();
    RawPeer peer(world.runtime.socket("ZAV"));
    for (auto const& [method, params] : {std::pair{"IWindowManager.getWindowList", R"({"proxy":0})"},
                                         std::pair{"IWindowManager.launch", R"({"proxy":0,"applicationURL":"x"})"}}) {
        Json::Value const reply = IRPC::parse(peer.ask(BusTest::request(method, params)));
        EXPECT_EQ(reply["error"]["message"], "Invalid state") << method;
    }
    EXPECT_EQ(IRPC::parse(peer.ask(BusTest::request("IWindowManager.getWindowList", R"({"proxy":1})")))["result"].size(), 2u);
    EXPECT_EQ(world.calls.all(), std::vector<std::string>{}); // nothing launched
}

// A request queued behind a busy manager when the server shuts down is not
// run, and the server waits for it before going.
TEST(RPCSurface, ARequestQueuedOnABusyManagerIsNotRunOnceTheServerShutsDown)
{
    RpcWorld world;
    RawPeer peer(world.runtime.socket("ZAV"));
    ASSERT_TRUE(peer.send(BusTest::request("IWindowManager.launch", R"({"proxy":0,"applicationURL":"wait"})", 1) + "\n" +
                          BusTest::request("IWindowManager.launch", R"({"proxy":0,"applicationURL":"late"})", 2) + "\n"));
    ASSERT_TRUE(world.calls.waitFor([&] { return world.calls.has("waiting 0"); }));
    EXPECT_TRUE(IRPC::parse(peer.ask(BusTest::request("RPC.ping", "{}", 3))).isMember("result")); // both read
    std::thread stopping([&] {
        world.server->shutdown();
        world.server.reset();
    });
    EXPECT_EQ(peer.readLine(), ""); // hung up on while the manager is still busy
    world.gate.raise();
    stopping.join();
    std::vector<std::string> const calls = world.calls.all();
    ASSERT_EQ(calls.size(), 2u);
    EXPECT_NE(calls.back().find(R"("applicationURL":"wait")"), std::string::npos) << calls.back();
}

namespace {

// The reply to an HTTP request with `origin` ("" for none) sent to the loopback
// port: a POST of a ping, read to its end, or a WebSocket upgrade, read as far
// as its first answer.
std::string replyTo(unsigned short port, std::string const& origin, bool upgrade)
{
    RawPeer peer(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)); // closes the socket
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (::connect(peer.fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0)
        return "";
    std::string const body = BusTest::request("RPC.ping");
    std::string request = upgrade ? "GET / HTTP/1.1\r\nUpgrade: websocket\r\nConnection: Upgrade\r\n"
                                    "Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\nSec-WebSocket-Version: 13\r\n"
                                  : "POST / HTTP/1.1\r\nConnection: close\r\nContent-Type: application/json\r\n"
                                    "Content-Length: " + std::to_string(body.size()) + "\r\n";
    request += "Host: 127.0.0.1\r\n";
    if (!origin.empty())
        request += "Origin: " + origin + "\r\n";
    request += "\r\n";
    if (!upgrade)
        request += body;
    peer.send(request);
    std::string reply;
    char chunk[4096];
    for (ssize_t n; (reply.empty() || !upgrade) && (n = ::recv(peer.fd, chunk, sizeof(chunk), 0)) > 0;)
        reply.append(chunk, static_cast<std::size_t>(n));
    return reply;
}

int statusOf(std::string const& reply)
{
    int status = -1;
    std::sscanf(reply.c_str(), "HTTP/1.1 %d", &status);
    return status;
}

} // namespace

TEST(RPCSurface, OnlyTheBoxsOwnPagesAndTheAllowlistMayCallTheLoopbackPort)
{
    BusTest::ScopedEnv allowlist("VELMORA_ALLOWED_ORIGINS", "https://portal.example,http://tv.local:8080");
    RpcWorld world;
    unsigned short const port = world.server->getPort();
    ASSERT_NE(port, 0);
    struct {
        char const* origin;
        bool allowed;
    } const rows[] = {
        {"", true}, // curl and native programs send none
        {"null", true}, {"file://", true},
        {"http://127.0.0.1:8123", true}, {"http://localhost", true}, {"https://[::1]:443", true},
        {"https://portal.example", true}, {"http://tv.local:8080", true},
        {"http://tv.local:8081", false}, {"https://portal.example.evil", false},
        {"http://evil.example", false}, {"http://127.0.0.1.evil.example", false},
        {"http://localhost.evil:80", false}, // a rebound name for 127.0.0.1
    };
    for (auto const& row : rows) {
        SCOPED_TRACE(row.origin);
        std::string const posted = replyTo(port, row.origin, false);
        EXPECT_EQ(statusOf(posted), row.allowed ? 200 : 403);
        if (row.allowed) { // the answer is the body
            Json::Value const answer = IRPC::parse(posted.substr(posted.find("\r\n\r\n") + 4));
            EXPECT_EQ(answer["id"], 1);
            EXPECT_EQ(answer["result"], true);
        }
        EXPECT_EQ(statusOf(replyTo(port, row.origin, true)), row.allowed ? 101 : 403);
    }
}
