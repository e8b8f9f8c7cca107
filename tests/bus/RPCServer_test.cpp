#include "BusTestSupport.h"
#include "FdCount.h"

#include "Exception.h"
#include "IRPC.h"
#include "RPCClient.h"
#include "RPCRegistry.h"
#include "RPCServer.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <vector>

#include <fcntl.h>
#include <netinet/in.h>
#include <sys/resource.h>
#include <unistd.h>

using namespace Velmora;
using BusTest::RawPeer;
using BusTest::waitFor;

namespace {

// A server with a few methods of its own, on the Unix endpoint and on TCP.
class TestServer : public RPCServer {
public:
    explicit TestServer(std::string const& name = "T") : RPCServer(name)
    {
        MethodTable table;
        table["echo"] = static_cast<RPCMethod>(&TestServer::echo);
        table["fail"] = static_cast<RPCMethod>(&TestServer::fail);
        table["nothing"] = static_cast<RPCMethod>(&TestServer::nothing);
        interfaces["ITest"] = table;
    }
    ~TestServer() override { shutdown(); }
    std::string getFixedRPCAddress() override { return "127.0.0.1:0"; }

private:
    std::string echo(IRPC::RPCSynchronousMethodObject const& method)
    {
        return IRPC::RPCResultObject(method.getMethod(), IRPC::parse(method.getParameters())).serialize();
    }
    std::string fail(IRPC::RPCSynchronousMethodObject const& method)
    {
        try {
            throwException("TestServer", __LINE__, "fail", ReturnInvalidParameter);
        } catch (Exception const& e) {
            return IRPC::RPCErrorObject(method.getMethod(), e.what()).serialize();
        }
    }
    std::string nothing(IRPC::RPCSynchronousMethodObject const& method)
    {
        return IRPC::RPCReturnObject(method.getMethod()).serialize();
    }
};

Json::Value object(char const* key, Json::Value value)
{
    Json::Value result(Json::objectValue);
    result[key] = std::move(value);
    return result;
}

Json::Value events(std::vector<std::string> const& names)
{
    Json::Value list(Json::arrayValue);
    for (auto const& name : names)
        list.append(name);
    return object("events", list);
}

// Collects the notifications a client receives.
struct Inbox {
    void attach(RPCClient& client)
    {
        client.setNotificationHandler([this](std::string const& name, Json::Value const& params) {
            std::lock_guard lock(mutex);
            received.emplace_back(name, params);
        });
    }
    std::size_t count()
    {
        std::lock_guard lock(mutex);
        return received.size();
    }
    std::vector<std::string> names()
    {
        std::lock_guard lock(mutex);
        std::vector<std::string> result;
        for (auto const& [name, params] : received)
            result.push_back(name);
        return result;
    }
    std::mutex mutex;
    std::vector<std::pair<std::string, Json::Value>> received;
};

bool subscribeToAll(RawPeer& peer)
{
    peer.send("{\"jsonrpc\":\"2.0\",\"id\":1,\"method\":\"RPC.subscribe\",\"params\":{\"events\":[\"*\"]}}\n");
    return !peer.readLine().empty();
}

class RPCServerTest : public ::testing::Test {
protected:
    BusTest::RuntimeDir runtime;
};

} // namespace

TEST_F(RPCServerTest, CallsGiveResultsNullReturnsAndServerErrorTexts)
{
    TestServer server;
    server.init();
    RPCClient client;
    client.connect("T");

    auto echoed = client.call("ITest.echo", object("a", 7));
    ASSERT_TRUE(echoed.ok);
    EXPECT_EQ(7, echoed.result["a"].asInt());

    auto returned = client.call("ITest.nothing", Json::Value());
    ASSERT_TRUE(returned.ok);
    EXPECT_TRUE(returned.result.isNull());

    auto failed = client.call("ITest.fail", Json::Value());
    EXPECT_FALSE(failed.ok);
    EXPECT_EQ("Invalid parameter", failed.message);

    for (char const* unknown : {"ITest.absent", "INone.echo", "echo", ".", ""}) {
        auto reply = client.call(unknown, Json::Value());
        EXPECT_EQ(IRPC::METHOD_NOT_FOUND, reply.code) << unknown;
    }
    EXPECT_THROW(client.callOrThrow("ITest.fail", Json::Value()), Exception);
}

TEST_F(RPCServerTest, BadInputsGetErrorsAndTheEndpointServesOn)
{
    TestServer server;
    server.init();
    RawPeer peer(runtime.socket("T"));
    ASSERT_TRUE(peer.connected);

    struct Case {
        char const* text;
        int code;
    } const cases[] = {
        {"{not json", IRPC::PARSE_ERROR},
        {"[1,2,3]", IRPC::INVALID_REQUEST},
        {"42", IRPC::INVALID_REQUEST},
        {"{\"jsonrpc\":\"2.0\",\"id\":1,\"method\":5}", IRPC::INVALID_REQUEST},
        {"{\"jsonrpc\":\"2.0\",\"id\":1,\"method\":\"ITest.echo\",\"params\":\"text\"}", IRPC::INVALID_REQUEST},
        {"{\"jsonrpc\":\"2.0\",\"id\":{\"x\":1},\"method\":\"ITest.echo\"}", IRPC::INVALID_REQUEST},
        {"{\"jsonrpc\":\"2.0\",\"id\":3}", IRPC::INVALID_REQUEST},
        {"{\"jsonrpc\":\"2.0\",\"id\":4,\"method\":\"ITest.nope\"}", IRPC::METHOD_NOT_FOUND},
        {"{\"jsonrpc\":\"2.0\",\"id\":5,\"method\":\"RPC.subscribe\",\"params\":{\"events\":7}}", IRPC::SERVER_ERROR},
    };
    for (auto const& c : cases) {
        ASSERT_TRUE(peer.send(std::string(c.text) + "\n"));
        Json::Value const reply = IRPC::parse(peer.readLine());
        EXPECT_EQ(c.code, reply["error"]["code"].asInt()) << c.text;
        EXPECT_TRUE(reply["error"]["message"].isString()) << c.text;
    }
    // A request still works on the same connection, ids kept as sent.
    ASSERT_TRUE(peer.send("{\"jsonrpc\":\"2.0\",\"id\":\"abc\",\"method\":\"ITest.echo\",\"params\":[1]}\r\n"));
    Json::Value const reply = IRPC::parse(peer.readLine());
    EXPECT_EQ("abc", reply["id"].asString());
    EXPECT_EQ(1, reply["result"][0].asInt());
}

TEST_F(RPCServerTest, OversizedMessageIsRejectedAndTheConnectionClosed)
{
    TestServer server;
    server.init();
    RawPeer big(runtime.socket("T"));
    std::string const huge = "{\"jsonrpc\":\"2.0\",\"id\":1,\"method\":\"ITest.echo\",\"params\":{\"x\":\"" +
                             std::string(RPCConnection::MAX_MESSAGE_SIZE + 10, 'a') + "\"}}\n";
    big.send(huge); // may fail half-way once the server hangs up
    Json::Value const reply = IRPC::parse(big.readLine());
    EXPECT_EQ(IRPC::INVALID_REQUEST, reply["error"]["code"].asInt());
    EXPECT_TRUE(big.seesEndOfStream());

    RPCClient client;
    client.connect("T");
    EXPECT_TRUE(client.call("ITest.echo", object("a", 1)).ok);
}

TEST_F(RPCServerTest, NotificationsReachOnlyTheirSubscribers)
{
    TestServer server;
    server.init();
    RPCClient named, all, none;
    Inbox namedInbox, allInbox, noneInbox;
    namedInbox.attach(named);
    allInbox.attach(all);
    noneInbox.attach(none);
    named.connect("T");
    all.connect("T");
    none.connect("T");
    ASSERT_TRUE(named.call("RPC.subscribe", events({"IX::a"})).ok);
    ASSERT_TRUE(all.call("RPC.subscribe", events({"*"})).ok);

    server.handleRPCNotification("IX::a", "{\"v\":1}\n");
    server.handleRPCNotification("IX::b", "[]");
    server.handleRPCNotification(IRPC::RPCNotificationObject("IX::a", "{\"v\":2}"));

    ASSERT_TRUE(waitFor([&] { return allInbox.count() == 3 && namedInbox.count() == 2; }));
    EXPECT_EQ((std::vector<std::string>{"IX::a", "IX::b", "IX::a"}), allInbox.names());
    EXPECT_EQ(2, namedInbox.received[1].second["v"].asInt()); // in order
    EXPECT_TRUE(allInbox.received[1].second.isArray());

    ASSERT_TRUE(named.call("RPC.unsubscribe", events({"IX::a"})).ok);
    server.handleRPCNotification("IX::a", "{}");
    ASSERT_TRUE(waitFor([&] { return allInbox.count() == 4; }));
    EXPECT_EQ(2u, namedInbox.count());
    EXPECT_EQ(0u, noneInbox.count());
}

TEST_F(RPCServerTest, ServerCallsARegisteredPeerWithADeadline)
{
    ::setenv("VELMORA_RPC_TIMEOUT_MS", "300", 1);
    TestServer server;
    server.init();
    std::atomic<bool> release{false};
    RPCClient peer;
    peer.setMethod("IPeer.add", [](Json::Value const& params) {
        return Json::Value(params["a"].asInt() + params["b"].asInt());
    });
    peer.setMethod("IPeer.hang", [&](Json::Value const&) {
        waitFor([&] { return release.load(); });
        return Json::Value();
    });
    peer.setMethod("IPeer.refuse", [](Json::Value const&) -> Json::Value {
        throw std::runtime_error("refused");
    });
    peer.connect("T");
    ASSERT_TRUE(peer.call("RPC.register", object("uid", "42")).ok);

    auto const connection = RPCRegistry::getInstance().find("42");
    ASSERT_TRUE(connection);
    Json::Value params;
    params["a"] = 2;
    params["b"] = 3;
    EXPECT_EQ(5, connection->callOrThrow("IPeer.add", params).asInt());
    auto const refused = connection->call("IPeer.refuse", Json::Value());
    EXPECT_EQ("refused", refused.message);
    EXPECT_EQ(IRPC::METHOD_NOT_FOUND, connection->call("IPeer.absent", Json::Value()).code);

    try {
        connection->call("IPeer.hang", Json::Value());
        ADD_FAILURE() << "a hung peer must miss the deadline";
    } catch (Exception const& e) {
        EXPECT_EQ(ReturnTimedOut, e.getCode());
    }
    release = true;
    // The late answer is dropped and the connection still serves.
    EXPECT_EQ(5, connection->callOrThrow("IPeer.add", params).asInt());
    ::unsetenv("VELMORA_RPC_TIMEOUT_MS");
}

TEST_F(RPCServerTest, APeerThatHangsUpMidCallFailsTheCallAtOnce)
{
    TestServer server;
    server.init();
    RawPeer peer(runtime.socket("T"));
    peer.send("{\"jsonrpc\":\"2.0\",\"id\":1,\"method\":\"RPC.register\",\"params\":{\"uid\":\"77\"}}\n");
    ASSERT_FALSE(peer.readLine().empty());
    auto const connection = RPCRegistry::getInstance().find("77");
    ASSERT_TRUE(connection);

    std::thread hangUp([&] {
        peer.readLine(); // the server's call arrives
        ::shutdown(peer.fd, SHUT_RDWR);
    });
    auto const started = std::chrono::steady_clock::now();
    try {
        connection->call("IPeer.anything", Json::Value(), 60000);
        ADD_FAILURE() << "the call must fail";
    } catch (Exception const& e) {
        EXPECT_EQ(ReturnGenericFailure, e.getCode());
    }
    hangUp.join();
    EXPECT_LT(std::chrono::steady_clock::now() - started, std::chrono::seconds(30));
    EXPECT_TRUE(waitFor([] { return !RPCRegistry::getInstance().find("77"); }));
    EXPECT_THROW(connection->call("IPeer.anything", Json::Value()), Exception);
}

TEST_F(RPCServerTest, StaleSocketIsReplacedButALiveEndpointIsNotStolen)
{
    {
        // A socket file whose listener is gone, as a killed process leaves it.
        RawPeer unused(runtime.socket("none"));
        int const fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        runtime.socket("T").copy(address.sun_path, sizeof(address.sun_path) - 1);
        ASSERT_EQ(0, ::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)));
        ::close(fd);
    }
    TestServer first;
    ASSERT_NO_THROW(first.init());
    TestServer second;
    EXPECT_THROW(second.init(), Exception);

    RPCClient client;
    client.connect("T");
    EXPECT_TRUE(client.call("RPC.ping", Json::Value()).ok);
}

TEST_F(RPCServerTest, HttpPostIsAnsweredWithTheReply)
{
    TestServer server;
    server.init();
    ASSERT_NE(0, server.getPort());
    int const fd = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(server.getPort());
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ASSERT_EQ(0, ::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)));
    std::string const body = "{\"jsonrpc\":\"2.0\",\"id\":9,\"method\":\"ITest.echo\",\"params\":{\"k\":\"v\"}}";
    std::string const request = "POST / HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\nContent-Type: "
                                "application/json\r\nContent-Length: " +
                                std::to_string(body.size()) + "\r\n\r\n" + body;
    ASSERT_EQ(static_cast<ssize_t>(request.size()), ::send(fd, request.data(), request.size(), MSG_NOSIGNAL));
    std::string response;
    char chunk[4096];
    for (ssize_t n; (n = ::recv(fd, chunk, sizeof(chunk), 0)) > 0;)
        response.append(chunk, static_cast<std::size_t>(n));
    ::close(fd);
    ASSERT_NE(std::string::npos, response.find("200 OK"));
    Json::Value const reply = IRPC::parse(response.substr(response.find("\r\n\r\n") + 4));
    EXPECT_EQ(9, reply["id"].asInt());
    EXPECT_EQ("v", reply["result"]["k"].asString());
}

TEST_F(RPCServerTest, AFloodOfConnectionsIsCappedAndLeavesNothingBehind)
{
    {
        // Warm up: runtimes (sanitizers, the logger) start threads of their own once.
        TestServer warmUp;
        warmUp.init();
    }
    int const fdsBefore = openDescriptorCount();
    int const threadsBefore = BusTest::threadCount();
    {
        TestServer server;
        server.init();
        {
            std::vector<std::unique_ptr<RawPeer>> flood;
            for (std::size_t i = 0; i < RPCServer::MAX_CONNECTIONS + 40; ++i)
                flood.push_back(std::make_unique<RawPeer>(runtime.socket("T")));
            EXPECT_TRUE(waitFor([&] { return server.getConnectionCount() == RPCServer::MAX_CONNECTIONS; }));
            // The refused ones are hung up on.
            EXPECT_TRUE(flood.back()->seesEndOfStream());
        }
        EXPECT_TRUE(waitFor([&] { return server.getConnectionCount() == 0; }));
        RPCClient client;
        client.connect("T");
        EXPECT_TRUE(client.call("RPC.ping", Json::Value()).ok);
    }
    EXPECT_EQ(fdsBefore, openDescriptorCount());
    EXPECT_TRUE(waitFor([&] { return BusTest::threadCount() == threadsBefore; }));
}

// Out of descriptors, the endpoint pauses accepting rather than spinning on the
// failure, and a peer left waiting in the backlog is served once one is free.
TEST_F(RPCServerTest, OutOfDescriptorsTheEndpointWaitsAndThenServesTheQueuedPeer)
{
    TestServer server;
    server.init();
    struct DescriptorTable {
        DescriptorTable()
        {
            ::getrlimit(RLIMIT_NOFILE, &saved);
            rlimit tight = saved;
            tight.rlim_cur = 1024;
            ::setrlimit(RLIMIT_NOFILE, &tight);
            for (int fd; (fd = ::fcntl(0, F_DUPFD_CLOEXEC, 0)) >= 0;)
                fillers.push_back(fd);
        }
        ~DescriptorTable()
        {
            while (freeOne()) {
            }
            ::setrlimit(RLIMIT_NOFILE, &saved);
        }
        bool freeOne()
        {
            if (fillers.empty())
                return false;
            ::close(fillers.back());
            fillers.pop_back();
            return true;
        }
        rlimit saved{};
        std::vector<int> fillers;
    } table;
    ASSERT_TRUE(table.freeOne()); // room for the peer's own socket only
    RawPeer peer(runtime.socket("T"));
    ASSERT_TRUE(peer.connected);
    ASSERT_TRUE(peer.send("{\"jsonrpc\":\"2.0\",\"id\":1,\"method\":\"RPC.ping\"}\n"));
    EXPECT_EQ("", peer.readLine(300)) << "served without a descriptor to accept with";
    table.freeOne();
    EXPECT_NE("", peer.readLine());
}

TEST_F(RPCServerTest, ASlowReaderIsDroppedWhileOthersKeepReceiving)
{
    TestServer server;
    server.init();
    RawPeer slow(runtime.socket("T"));
    ASSERT_TRUE(subscribeToAll(slow));
    RPCClient fast;
    Inbox inbox;
    inbox.attach(fast);
    fast.connect("T");
    ASSERT_TRUE(fast.call("RPC.subscribe", events({"IX::big"})).ok);
    ASSERT_EQ(2u, server.getConnectionCount());

    std::string const big = "{\"blob\":\"" + std::string(512 * 1024, 'x') + "\"}";
    std::size_t const total = RPCConnection::MAX_PENDING_OUTPUT / (512 * 1024) + 16;
    for (std::size_t i = 1; i <= total; ++i) {
        server.handleRPCNotification("IX::big", big);
        ASSERT_TRUE(waitFor([&] { return inbox.count() == i; })); // the fast one keeps pace
    }
    EXPECT_TRUE(waitFor([&] { return server.getConnectionCount() == 1; }));
}

TEST_F(RPCServerTest, MessagesFromManyThreadsArriveWholeAndInOrderPastAFullSocket)
{
    TestServer server;
    server.init();
    RawPeer peer(runtime.socket("T"));
    ASSERT_TRUE(subscribeToAll(peer));

    // Nobody reads while they send: the socket fills, sends go part way and
    // the rest queues behind them, while other threads keep sending.
    constexpr int SENDERS = 3;
    constexpr int EACH = 150;
    std::string const padding(8 * 1024, 'p');
    std::vector<std::thread> senders;
    for (int t = 0; t < SENDERS; ++t)
        senders.emplace_back([&, t] {
            for (int n = 0; n < EACH; ++n)
                server.handleRPCNotification("IX::seq", "{\"t\":" + std::to_string(t) + ",\"n\":" + std::to_string(n) +
                                                            ",\"pad\":\"" + padding + "\"}");
        });
    for (auto& sender : senders)
        sender.join();

    std::vector<int> next(SENDERS, 0);
    for (int i = 0; i < SENDERS * EACH; ++i) {
        Json::Value const message = IRPC::parse(peer.readLine());
        ASSERT_TRUE(message.isObject()) << "message " << i << " is not whole";
        int const t = message["params"]["t"].asInt();
        ASSERT_EQ(next[t], message["params"]["n"].asInt()) << "sender " << t;
        ++next[t];
    }
}

TEST_F(RPCServerTest, PeersThatHangUpWithRepliesInFlightLeaveTheServerServing)
{
    TestServer server;
    server.init();
    // Replies too big for the socket buffer are still being written when
    // their peers hang up.
    std::string const request = "{\"jsonrpc\":\"2.0\",\"id\":1,\"method\":\"ITest.echo\",\"params\":{\"x\":\"" +
                                std::string(32 * 1024, 'e') + "\"}}\n";
    for (int round = 0; round < 3; ++round) {
        std::vector<std::unique_ptr<RawPeer>> peers;
        for (int i = 0; i < 5; ++i) {
            peers.push_back(std::make_unique<RawPeer>(runtime.socket("T")));
            for (int n = 0; n < 10; ++n)
                peers.back()->send(request);
            if (i % 2 == 0)
                peers.back()->readLine();
        }
    }
    EXPECT_TRUE(waitFor([&] { return server.getConnectionCount() == 0; }));
    RPCClient client;
    client.connect("T");
    EXPECT_TRUE(client.call("RPC.ping", Json::Value()).ok);
}
