// The road of one launch through the real window policy: a remote
// IWindowManager.launch on a subscribed connection reaches the master
// window manager, whose process reports RUNNING; the same connection then
// hears the window list and the focus naming the new window, and a remote
// terminate brings the focus back to the master window.
#include "WindowBox.h"
#include "BusTestSupport.h"
#include "ZAVRPCServer.h"

using namespace Velmora;
using namespace WindowTest;

namespace {

// What one connection received, in order; answers and notifications may interleave.
class Received {
public:
    explicit Received(BusTest::RawPeer& peer) : peer(peer) {}
    // The first message that satisfies `wanted`, read on from the peer as needed; null when none comes.
    Json::Value await(std::function<bool(Json::Value const&)> const& wanted)
    {
        for (std::size_t i = 0;; ++i) {
            if (i == messages.size()) {
                std::string const line = peer.readLine(30000);
                if (line.empty())
                    return Json::Value();
                messages.push_back(IRPC::parse(line));
            }
            if (wanted(messages[i]))
                return messages[i];
        }
    }
    std::string all() const
    {
        std::string text;
        for (auto const& message : messages)
            text += IRPC::write(message) + "\n";
        return text;
    }
    Json::Value answer(int id)
    {
        return await([id](Json::Value const& message) { return message["id"] == id; });
    }
    Json::Value notification(std::string const& name, std::function<bool(Json::Value const&)> const& wanted)
    {
        return await([&](Json::Value const& message) { return message["method"] == name && wanted(message["params"]); });
    }

private:
    BusTest::RawPeer& peer;
    std::vector<Json::Value> messages;
};

} // namespace

TEST(LaunchOverTheBus, TheCallerHearsItsWindowListedAndFocusedThenTheMasterWindowAgain)
{
    WindowBox box;
    std::string const master = box.windows->master();
    ASSERT_TRUE(box.journal.await("focus >" + master)); // a settled box: the master window runs
    ZAVRPCServer server({box.windows.get()}, nullptr, &box.services, nullptr, nullptr, nullptr, nullptr, "");
    server.init();
    BusTest::RawPeer peer(box.runtime / "ZAV.sock");
    ASSERT_TRUE(peer.connected);
    EXPECT_EQ(IRPC::parse(peer.ask(R"({"jsonrpc":"2.0","id":1,"method":"RPC.subscribe","params":{"events":["*"]}})"))["result"],
              Json::Value());

    std::ofstream(box.sandbox.root / "app.env") << "\n";
    Received received(peer);
    auto const call = [&](int id, std::string const& method, std::string const& params) {
        EXPECT_TRUE(peer.send(R"({"jsonrpc":"2.0","id":)" + std::to_string(id) + R"(,"method":")" + method +
                              R"(","params":)" + params + "}\n"));
        return received.answer(id)["result"];
    };
    std::string const uid =
        call(2, "IWindowManager.launch", R"({"proxy":0,"applicationType":"OTHER","applicationURL":"app"})").asString();
    ASSERT_FALSE(uid.empty());
    EXPECT_FALSE(received.notification("IWindowManager::onFocusChange", [&](Json::Value const& params) {
        return params["newFocus"] == uid;
    }).isNull()) << received.all();
    EXPECT_FALSE(received.notification("IWindowManager::onWindowListChange", [&](Json::Value const& params) {
        return params.size() == 2 && (params[0] == uid || params[1] == uid);
    }).isNull());
    EXPECT_EQ(call(3, "IApplicationManager.getState", R"({"uid":")" + uid + "\"}"), "RUNNING");

    EXPECT_TRUE(call(4, "IApplicationManager.terminate", R"({"uid":")" + uid + "\"}").isNull());
    EXPECT_FALSE(received.notification("IWindowManager::onWindowListChange", [&](Json::Value const& params) {
        return params.size() == 1 && params[0] == master;
    }).isNull());
    EXPECT_FALSE(received.notification("IWindowManager::onFocusChange", [&](Json::Value const& params) {
        return params["newFocus"] == master;
    }).isNull());
    server.shutdown();
}
