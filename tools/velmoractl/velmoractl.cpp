// velmoractl [--endpoint NAME] [--json] call <Interface.method> [params-json]
// velmoractl [--endpoint NAME] [--json] watch [event...]
// Exit status: 0 on success, 1 for a failed call, 2 for bad usage or no server.
#include "frame/Exception.h"
#include "interfaces/IRPC.h"
#include "rpc/RPCClient.h"

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <thread>
#include <string>
#include <vector>

using namespace Velmora;

namespace {

struct Options {
    std::string endpoint = "ZAV";
    bool json = false;
    std::vector<std::string> words;
};

int usage()
{
    std::fprintf(stderr, "usage: velmoractl [--endpoint NAME] [--json] call <Interface.method> [params-json]\n"
                         "       velmoractl [--endpoint NAME] [--json] watch [event...]\n");
    return 2;
}

std::string pretty(Json::Value const& value)
{
    if (value.isString())
        return value.asString();
    if (value.isNull())
        return "ok";
    std::string text = value.toStyledString();
    while (!text.empty() && text.back() == '\n')
        text.pop_back();
    return text;
}

int call(RPCClient& client, Options const& options)
{
    if (options.words.size() < 2 || options.words.size() > 3)
        return usage();
    Json::Value params(Json::objectValue);
    if (options.words.size() == 3) {
        params = IRPC::parse(options.words[2]);
        if (!params.isObject() && !params.isArray()) {
            std::fprintf(stderr, "velmoractl: the parameters must be a JSON object or array\n");
            return 2;
        }
    }
    RPCConnection::Reply const reply = client.call(options.words[1], params);
    if (options.json) {
        Json::Value message;
        if (reply.ok)
            message["result"] = reply.result;
        else {
            message["error"]["code"] = reply.code;
            message["error"]["message"] = reply.message;
        }
        std::printf("%s\n", IRPC::write(message).c_str());
    } else if (reply.ok) {
        std::printf("%s\n", pretty(reply.result).c_str());
    } else {
        std::fprintf(stderr, "velmoractl: %s failed: %s (%d)\n", options.words[1].c_str(), reply.message.c_str(),
                     reply.code);
    }
    return reply.ok ? 0 : 1;
}

volatile std::sig_atomic_t stopRequested = 0;

void stop(int) { stopRequested = 1; }

int watch(RPCClient& client, Options const& options)
{
    Json::Value events(Json::arrayValue);
    for (std::size_t i = 1; i < options.words.size(); ++i)
        events.append(options.words[i]);
    if (events.empty())
        events.append("*");
    Json::Value params;
    params["events"] = events;
    client.callOrThrow("RPC.subscribe", params);
    std::signal(SIGINT, stop);
    std::signal(SIGTERM, stop);
    while (!stopRequested && client.isConnected())
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    return client.isConnected() ? 0 : 1;
}

} // namespace

int main(int argc, char** argv)
{
    Options options;
    for (int i = 1; i < argc; ++i) {
        std::string const word = argv[i];
        if (word == "--endpoint" && i + 1 < argc)
            options.endpoint = argv[++i];
        else if (word == "--json")
            options.json = true;
        else if (word == "--help" || word == "-h")
            return usage();
        else
            options.words.push_back(word);
    }
    if (options.words.empty() || (options.words[0] != "call" && options.words[0] != "watch"))
        return usage();

    RPCClient client(1);
    client.setNotificationHandler([&](std::string const& name, Json::Value const& params) {
        if (options.json) {
            Json::Value message;
            message["event"] = name;
            message["params"] = params;
            std::printf("%s\n", IRPC::write(message).c_str());
        } else {
            std::printf("%s %s\n", name.c_str(), IRPC::write(params).c_str());
        }
        std::fflush(stdout);
    });
    try {
        client.connect(options.endpoint);
        return options.words[0] == "call" ? call(client, options) : watch(client, options);
    } catch (Exception const& e) {
        std::fprintf(stderr, "velmoractl: cannot reach endpoint %s: %s\n", options.endpoint.c_str(), e.what());
        return 2;
    }
}
