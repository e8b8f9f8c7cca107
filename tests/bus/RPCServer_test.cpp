#include "BusTestSupport.h"
#include "FdCount.h"
#include "ReturnCodeOf.h"
#include "Signal.h"

#include "frame/Exception.h"
#include "interfaces/IRPC.h"
#include "rpc/RPCClient.h"
#include "rpc/RPCRegistry.h"
#include "rpc/RPCServer.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/un.h>

using namespace Velmora;
using BusTest::RawPeer;
using BusTest::request;
using BusTest::waitFor;

namespace {

// A server with a few methods of its own, on its Unix endpoint.
class TestServer : public BusTest::Observed {
public:
    explicit TestServer(std::string const& name = "T") : Observed(name)
    {
        interfaces["ITest"]["echo"] = static_cast<RPCMethod>(&TestServer::echo);
        interfaces["ITest"]["bare"] = static_cast<RPCMethod>(&TestServer::bare);
        interfaces["ITest"]["relay"] = static_cast<RPCMethod>(&TestServer::relay);
    }
    ~TestServer() override { shutdown(); }

private:
    std::string echo(IRPC::RPCSynchronousMethodObject const& method)
    {
        return IRPC::RPCResultObject(method.getMethod(), IRPC::parse(method.getParameters())).serialize();
    }
    std::string bare(IRPC::RPCSynchronousMethodObject const&) { return "{}"; }
    // Blocks on a call to the program registered as "peer", as a manager does.
    std::string relay(IRPC::RPCSynchronousMethodObject const& method)
    {
        auto const peer = RPCRegistry::getInstance().find("peer");
        if (!peer)
            return IRPC::RPCErrorObject(method.getMethod(), "no peer").serialize();
        return IRPC::RPCResultObject(method.getMethod(), peer->callOrThrow("IPeer.echo", IRPC::parse(R"({"v":7})"))).serialize();
    }
};

Json::Value json(std::string const& text) { return IRPC::parse(text); }

class RPCServerTest : public ::testing::Test {
protected:
    RPCServerTest() { server.init(); }

    // Connects `client` with its notifications logged as "<name> <params>",
    // the parameters cut at 64 characters: waits read the whole log often.
    void listen(RPCClient& client, BusTest::Log& inbox)
    {
        client.setNotificationHandler([&inbox](std::string const& name, Json::Value const& params) {
            inbox.add(name + " " + IRPC::write(params).substr(0, 64));
        });
        client.connect("T");
    }

    static bool servesOn(std::string const& endpoint = "T")
    {
        RPCClient client;
        client.connect(endpoint);
        return client.call("RPC.ping", Json::Value()).ok;
    }

    BusTest::RuntimeDir runtime;
    TestServer server;
};

} // namespace

// Bad requests are answered with errors on a connection that serves on; one
// past the size limit is answered and then hung up on.
TEST_F(RPCServerTest, BadInputsGetErrorsAndAnOversizedOneClosesTheConnection)
{
    RawPeer peer(runtime.socket("T"));
    ASSERT_TRUE(peer.connected);
    std::pair<char const*, int> const cases[] = {
        {"{not json", IRPC::PARSE_ERROR},
        {"[1,2,3]", IRPC::INVALID_REQUEST},
        {"42", IRPC::INVALID_REQUEST},
        {R"({"jsonrpc":"2.0","id":1,"method":5})", IRPC::INVALID_REQUEST},
        {R"({"jsonrpc":"2.0","id":1,"method":"ITest.echo","params":"text"})", IRPC::INVALID_REQUEST},
        {R"({"jsonrpc":"2.0","id":{"x":1},"method":"ITest.echo"})", IRPC::INVALID_REQUEST},
        {R"({"jsonrpc":"2.0","id":3})", IRPC::INVALID_REQUEST},
        {R"({"jsonrpc":"2.0","id":4,"method":"ITest.nope"})", IRPC::METHOD_NOT_FOUND},
        {R"({"jsonrpc":"2.0","id":4,"method":"INone.echo"})", IRPC::METHOD_NOT_FOUND},
        {R"({"jsonrpc":"2.0","id":4,"method":"echo"})", IRPC::METHOD_NOT_FOUND},
        {R"({"jsonrpc":"2.0","id":4,"method":"."})", IRPC::METHOD_NOT_FOUND},
        {R"({"jsonrpc":"2.0","id":4,"method":""})", IRPC::METHOD_NOT_FOUND},
        {R"({"jsonrpc":"2.0","id":5,"method":"RPC.subscribe","params":{"events":7}})", IRPC::SERVER_ERROR},
    };
    for (auto const& [text, code] : cases) {
        Json::Value const reply = json(peer.ask(text));
        EXPECT_EQ(code, reply["error"]["code"].asInt()) << text;
        EXPECT_TRUE(reply["error"]["message"].isString()) << text;
    }
    // Ids come back as sent; a CR before the line feed is tolerated.
    Json::Value const reply = json(peer.ask(R"({"jsonrpc":"2.0","id":"abc","method":"ITest.echo","params":[1]})"
                                            "\r"));
    EXPECT_EQ("abc", reply["id"].asString());
    EXPECT_EQ(1, reply["result"][0].asInt());

    // Answers nobody asked for, of every malformed kind, and texts past the
    // bounds on nesting and values: reading goes on.
    for (char const* stray : {R"({"jsonrpc":"2.0","id":-1,"result":null})", R"({"jsonrpc":"2.0","id":1,"error":"x"})",
                              R"({"jsonrpc":"2.0","id":99,"error":[1]})"})
        ASSERT_TRUE(peer.send(std::string(stray) + "\n"));
    std::string wide = "[0";
    for (std::size_t i = 0; i < 300000; ++i)
        wide += ",0";
    std::string const deep = std::string(100, '[') + std::string(100, ']');
    for (std::string const& params : {wide + "]", deep})
        EXPECT_EQ(IRPC::INVALID_REQUEST, json(peer.ask(request("ITest.echo", params)))["error"]["code"].asInt());
    EXPECT_EQ(7, json(peer.ask(request("RPC.ping", "{}", 7)))["id"].asInt());
    // A handler's empty object still makes a well-formed answer.
    Json::Value const bare = json(peer.ask(request("ITest.bare", "{}")));
    EXPECT_EQ(1, bare["id"].asInt());
    EXPECT_TRUE(bare.isMember("error"));

    std::string const huge(RPCConnection::MAX_MESSAGE_SIZE + 10, 'a');
    peer.send(request("ITest.echo", R"({"x":")" + huge + "\"}") + "\n"); // may fail half-way once hung up on
    EXPECT_EQ(IRPC::INVALID_REQUEST, json(peer.readLine())["error"]["code"].asInt());
    EXPECT_TRUE(peer.seesEndOfStream());
    EXPECT_TRUE(servesOn());
}

// A subscriber that never reads is dropped once its output backs up, while
// the others keep receiving.
TEST_F(RPCServerTest, NotificationsReachOnlyTheirSubscribersInOrderAndASlowReaderIsDropped)
{
    RawPeer slow(runtime.socket("T"));
    ASSERT_FALSE(slow.ask(request("RPC.subscribe", R"({"events":["*"]})")).empty());
    RPCClient named, all, none;
    BusTest::Log namedInbox, allInbox, noneInbox;
    listen(named, namedInbox);
    listen(all, allInbox);
    listen(none, noneInbox);
    ASSERT_TRUE(named.call("RPC.subscribe", json(R"({"events":["IX::a"]})")).ok);
    ASSERT_TRUE(all.call("RPC.subscribe", json(R"({"events":["*"]})")).ok);

    server.handleRPCNotification("IX::a", "{\"v\":1}\n");
    server.handleRPCNotification("IX::b", "[]");
    server.handleRPCNotification(IRPC::RPCNotificationObject("IX::a", "{\"v\":2}"));
    ASSERT_TRUE(waitFor([&] { return allInbox.size() == 3 && namedInbox.size() == 2; }));
    EXPECT_EQ((std::vector<std::string>{"IX::a {\"v\":1}", "IX::b []", "IX::a {\"v\":2}"}), allInbox.all());
    EXPECT_EQ((std::vector<std::string>{"IX::a {\"v\":1}", "IX::a {\"v\":2}"}), namedInbox.all());

    ASSERT_TRUE(named.call("RPC.unsubscribe", json(R"({"events":["IX::a"]})")).ok);
    server.handleRPCNotification("IX::a", "{}");
    ASSERT_TRUE(waitFor([&] { return allInbox.size() == 4; }));
    EXPECT_EQ(2u, namedInbox.size());
    EXPECT_EQ(0u, noneInbox.size());

    ASSERT_EQ(4u, server.getConnectionCount());
    std::string const big = "{\"blob\":\"" + std::string(512 * 1024, 'x') + "\"}";
    std::size_t const total = RPCConnection::MAX_PENDING_OUTPUT / (512 * 1024) + 16;
    for (std::size_t i = 1; i <= total; ++i) {
        server.handleRPCNotification("IX::big", big);
        ASSERT_TRUE(waitFor([&] { return allInbox.size() == 4 + i; })); // the reading one keeps pace
    }
    EXPECT_TRUE(waitFor([&] { return server.getConnectionCount() == 3; }));
}

// The server calls a registered peer with a deadline; handlers that wait for
// the peer's answer do not hold up the reading of that answer, however many
// wait at once.
TEST_F(RPCServerTest, ServerCallsARegisteredPeerWithADeadlineAndBlockedHandlersNeverStopReading)
{
    BusTest::ScopedEnv timeout("VELMORA_RPC_TIMEOUT_MS", "20000");
    VelmoraTest::Signal released;
    RPCClient peer;
    peer.setMethod("IPeer.add", [](Json::Value const& params) {
        return Json::Value(params["a"].asInt() + params["b"].asInt());
    });
    peer.setMethod("IPeer.echo", [](Json::Value const& params) { return params; });
    peer.setMethod("IPeer.hang", [&](Json::Value const&) {
        released.waitFor(1);
        return Json::Value();
    });
    peer.setMethod("IPeer.refuse", [](Json::Value const&) -> Json::Value { throw std::runtime_error("refused"); });
    peer.connect("T");
    ASSERT_TRUE(peer.call("RPC.register", json(R"({"uid":"peer"})")).ok);

    auto const connection = RPCRegistry::getInstance().find("peer");
    ASSERT_TRUE(connection);
    Json::Value const params = json(R"({"a":2,"b":3})");
    EXPECT_EQ(5, connection->callOrThrow("IPeer.add", params).asInt());
    EXPECT_EQ("refused", connection->call("IPeer.refuse", Json::Value()).message);
    EXPECT_EQ(IRPC::METHOD_NOT_FOUND, connection->call("IPeer.absent", Json::Value()).code);
    EXPECT_EQ(ReturnTimedOut, returnCodeOf([&] { connection->call("IPeer.hang", Json::Value(), 300); }));
    released.raise();
    // The late answer is dropped and the connection still serves.
    EXPECT_EQ(5, connection->callOrThrow("IPeer.add", params).asInt());

    constexpr int CALLERS = 8;
    std::vector<std::unique_ptr<RPCClient>> callers;
    std::vector<std::thread> threads;
    std::atomic<int> answered{0};
    for (int i = 0; i < CALLERS; ++i) {
        callers.push_back(std::make_unique<RPCClient>());
        callers.back()->connect("T");
    }
    for (auto& caller : callers)
        threads.emplace_back([&, client = caller.get()] {
            auto const reply = client->call("ITest.relay", Json::Value());
            if (reply.ok && reply.result["v"].asInt() == 7)
                ++answered;
        });
    std::string const post = server.handleRPCSynchronousMethodPayload(request("ITest.relay", "{}"));
    for (auto& thread : threads)
        thread.join();
    EXPECT_EQ(CALLERS, answered.load());
    EXPECT_EQ(7, json(post)["result"]["v"].asInt());
}

// A connection holds one uid, and only a long-lived one may register. A call
// in flight ends at once, not at its deadline, when either side goes: the
// caller disconnecting, or the called peer hanging up, which also loses its
// registration. A client may be destroyed from its own handler.
TEST_F(RPCServerTest, RegistrationsAndCallsInFlightEndWithTheirConnectionAndAClientMayDeleteItself)
{
    RawPeer silent(runtime.socket("T")); // registers as the relay's peer and never answers
    auto registration = [&](char const* uid) {
        return json(silent.ask(request("RPC.register", std::string(R"({"uid":")") + uid + "\"}")));
    };
    ASSERT_TRUE(registration("peer").isMember("result"));
    EXPECT_TRUE(registration("u2").isMember("error"));
    EXPECT_TRUE(registration("peer").isMember("result"));
    EXPECT_FALSE(RPCRegistry::getInstance().find("u2"));
    auto const connection = RPCRegistry::getInstance().find("peer");
    ASSERT_TRUE(connection);
    std::string const hijack = server.handleRPCSynchronousMethodPayload(request("RPC.register", R"({"uid":"peer"})"));
    EXPECT_TRUE(json(hijack).isMember("error"));
    EXPECT_EQ(connection, RPCRegistry::getInstance().find("peer"));

    RPCClient client;
    client.connect("T");
    int code = 0;
    std::thread caller([&] { code = returnCodeOf([&] { client.call("ITest.relay", Json::Value(), 60000); }); });
    ASSERT_FALSE(silent.readLine().empty()); // the relayed call arrived: the client's call is in flight
    client.disconnect();
    caller.join();
    EXPECT_EQ(ReturnGenericFailure, code);

    std::thread hangUp([&] {
        silent.readLine(); // the server's call arrives
        ::shutdown(silent.fd, SHUT_RDWR);
    });
    // A call that ran into its deadline would say ReturnTimedOut.
    EXPECT_EQ(ReturnGenericFailure, returnCodeOf([&] { connection->call("IPeer.anything", Json::Value(), 60000); }));
    hangUp.join();
    EXPECT_TRUE(waitFor([] { return !RPCRegistry::getInstance().find("peer"); }));
    EXPECT_THROW(connection->call("IPeer.anything", Json::Value()), Exception);

    VelmoraTest::Signal deleted;
    auto* doomed = new RPCClient();
    doomed->setClosedHandler([&] {
        delete doomed;
        deleted.raise();
    });
    {
        TestServer other("D");
        other.init();
        doomed->connect("D");
    } // closes the connection: the client hears it on its own thread
    EXPECT_TRUE(deleted.waitFor(1));
}

// A bare Unix listener in the runtime directory, for a client to dial.
struct RawListener {
    explicit RawListener(std::string path) : path(std::move(path))
    {
        sockaddr_un const address = BusTest::unixAddress(this->path);
        ::unlink(this->path.c_str());
        bound = ::bind(fd, reinterpret_cast<sockaddr const*>(&address), sizeof(address)) == 0 && ::listen(fd, 1) == 0;
    }
    ~RawListener() { ::close(fd); }
    int accept() { return ::accept4(fd, nullptr, nullptr, SOCK_CLOEXEC); }

    std::string const path;
    int const fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    bool bound = false;
};

// Against a bare listener playing a program that leaves at once: what its
// client queued behind a full socket still goes out before disconnect()
// returns, and an answer followed at once by a hang-up (which often lands
// before the caller has woken) still counts. The socket file the listener
// leaves, as a killed process would, is taken over by a server.
TEST_F(RPCServerTest, AProgramLeavingAtOnceLosesNeitherWhatWasQueuedNorItsLastAnswerNorItsEndpoint)
{
    auto listener = std::make_unique<RawListener>(runtime.socket("R"));
    ASSERT_TRUE(listener->bound);
    {
        RPCClient client;
        client.connectPath(listener->path);
        RawPeer peer(listener->accept());
        constexpr std::size_t MESSAGES = 16;
        for (std::size_t n = 0; n < MESSAGES; ++n) // far beyond the socket buffer: most of it queues
            client.notify("IX::n", json(R"({"pad":")" + std::string(256 * 1024, 'p') + R"("})"));
        client.notify("IX::last", Json::Value());
        std::vector<std::string> received;
        std::thread reader([&] {
            for (std::string line; !(line = peer.readLine()).empty();)
                received.push_back(line);
        });
        client.disconnect();
        reader.join();
        ASSERT_EQ(MESSAGES + 1, received.size());
        EXPECT_NE(std::string::npos, received.back().find("IX::last"));
    }
    for (int round = 0; round < 50; ++round) {
        RPCClient client;
        client.connectPath(listener->path);
        RawPeer peer(listener->accept());
        std::thread answerer([&] {
            peer.readLine();
            peer.send(R"({"jsonrpc":"2.0","id":1,"result":"bye"})" "\n");
            ::shutdown(peer.fd, SHUT_RDWR);
        });
        RPCConnection::Reply reply;
        EXPECT_NO_THROW(reply = client.call("ILifecycleManagement.terminate", Json::Value())) << "round " << round;
        answerer.join();
        ASSERT_TRUE(reply.ok) << "round " << round;
        EXPECT_EQ("bye", reply.result.asString());
    }
    listener.reset(); // closed, its file left
    TestServer replacing("R");
    ASSERT_NO_THROW(replacing.init());
    EXPECT_TRUE(servesOn("R"));
}

// A flood of connections, and peers that hang up while replies too big for
// the socket buffer are still being written to them, leave the server serving
// and nothing behind. The fixture's server has already started whatever the
// runtimes start once, so descriptors and threads can be counted around a
// second one.
TEST_F(RPCServerTest, AFloodOfConnectionsAndHangUpsWithRepliesInFlightLeaveNothingBehind)
{
    int const fdsBefore = openDescriptorCount();
    int const threadsBefore = threadCount();
    {
        TestServer flooded("F");
        flooded.init();
        {
            std::vector<std::unique_ptr<RawPeer>> flood;
            for (std::size_t i = 0; i < RPCServer::MAX_CONNECTIONS + 40; ++i)
                flood.push_back(std::make_unique<RawPeer>(runtime.socket("F")));
            EXPECT_TRUE(waitFor([&] { return flooded.getConnectionCount() == RPCServer::MAX_CONNECTIONS; }));
            EXPECT_TRUE(flood.back()->seesEndOfStream()); // the refused ones are hung up on
        }
        std::string const echo = request("ITest.echo", R"({"x":")" + std::string(32 * 1024, 'e') + "\"}") + "\n";
        for (int round = 0; round < 3; ++round) {
            std::vector<std::unique_ptr<RawPeer>> peers;
            for (int i = 0; i < 5; ++i) {
                peers.push_back(std::make_unique<RawPeer>(runtime.socket("F")));
                for (int n = 0; n < 10; ++n)
                    peers.back()->send(echo);
                if (i % 2 == 0)
                    peers.back()->readLine();
            }
        }
        EXPECT_TRUE(waitFor([&] { return flooded.getConnectionCount() == 0; }));
        EXPECT_TRUE(servesOn("F"));
    }
    EXPECT_EQ(fdsBefore, openDescriptorCount());
    EXPECT_LE(threadCount(), threadsBefore); // joined by shutdown
}

// Out of descriptors, the endpoint pauses accepting rather than spinning on the
// failure, and a peer left waiting in the backlog is served once one is free.
TEST_F(RPCServerTest, OutOfDescriptorsTheEndpointWaitsAndThenServesTheQueuedPeer)
{
#if defined(__SANITIZE_ADDRESS__)
    // The address-sanitizer build carries UBSan, whose type checks probe memory
    // through a pipe: with no descriptor left they report every virtual call.
    GTEST_SKIP() << "needs a build whose runtime opens no descriptors of its own";
#endif
    // The process's descriptor table, filled under a tight limit until the end.
    struct FullTable {
        FullTable()
        {
            ::getrlimit(RLIMIT_NOFILE, &saved);
            rlimit const tight{1024, saved.rlim_max};
            ::setrlimit(RLIMIT_NOFILE, &tight);
            for (int fd; (fd = ::fcntl(0, F_DUPFD_CLOEXEC, 0)) >= 0;)
                fillers.push_back(fd);
        }
        ~FullTable()
        {
            for (int fd : fillers)
                ::close(fd);
            ::setrlimit(RLIMIT_NOFILE, &saved);
        }
        void freeOne()
        {
            ::close(fillers.back());
            fillers.pop_back();
        }
        rlimit saved{};
        std::vector<int> fillers;
    } table;
    ASSERT_GE(table.fillers.size(), 2u);
    table.freeOne(); // room for the peer's own socket only
    RawPeer peer(runtime.socket("T"));
    ASSERT_TRUE(peer.connected);
    ASSERT_TRUE(peer.send(request("RPC.ping") + "\n"));
    EXPECT_EQ("", peer.readLine(300)) << "served without a descriptor to accept with";
    table.freeOne();
    EXPECT_NE("", peer.readLine());
}

TEST_F(RPCServerTest, MessagesFromManyThreadsArriveWholeAndInOrderPastAFullSocket)
{
    RawPeer peer(runtime.socket("T"));
    ASSERT_FALSE(peer.ask(request("RPC.subscribe", R"({"events":["*"]})")).empty());

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
        Json::Value const message = json(peer.readLine());
        ASSERT_TRUE(message.isObject()) << "message " << i << " is not whole";
        int const t = message["params"]["t"].asInt();
        ASSERT_EQ(next[t]++, message["params"]["n"].asInt()) << "sender " << t;
    }
}
