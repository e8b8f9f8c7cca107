// velmora-sim ENDPOINT COMMAND [JSON]: sends Sim.<COMMAND> with the JSON
// object (default {}) to a simulated platform service and prints the answer,
// so that a person at the demo can inject its events, e.g.
//   velmora-sim QEN speak '{"transcript": "weather london"}'
//   velmora-sim HUX wakeUp '{"reason": 0}'
// Exit status: 0 done, 1 the call failed, 2 bad usage or no such service.
#include "frame/Exception.h"
#include "interfaces/IRPC.h"
#include "rpc/RPCClient.h"

#include <cstdio>
#include <string>

using namespace Velmora;

int main(int argc, char** argv)
{
    if (argc < 3 || argc > 4) {
        std::fprintf(stderr, "usage: velmora-sim ENDPOINT COMMAND [JSON]\n");
        return 2;
    }
    Json::Value params(Json::objectValue);
    if (argc == 4) {
        params = IRPC::parse(argv[3]);
        if (!params.isObject()) {
            std::fprintf(stderr, "velmora-sim: the parameters must be a JSON object\n");
            return 2;
        }
    }
    RPCClient client(1);
    try {
        client.connect(argv[1]);
    } catch (Exception const& e) {
        std::fprintf(stderr, "velmora-sim: %s is not reachable\n", argv[1]);
        return 2;
    }
    RPCConnection::Reply const reply = client.call(std::string("Sim.") + argv[2], params);
    if (!reply.ok) {
        std::fprintf(stderr, "velmora-sim: %s\n", reply.message.c_str());
        return 1;
    }
    std::printf("%s\n", IRPC::write(reply.result).c_str());
    return 0;
}
