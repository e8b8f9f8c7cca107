// velmora-sim ENDPOINT COMMAND [JSON]: sends Sim.<COMMAND> with the JSON
// object (default {}) to a simulated platform service and prints the answer,
// so that a person at the demo can inject its events, e.g.
//   velmora-sim QEN speak '{"transcript": "weather london"}'
//   velmora-sim HUX wakeUp '{"reason": 0}'
// Exit status: 0 done, 1 the call failed, 2 bad usage or no such service.
#include "frame/DebugPrint.h"
#include "frame/Exception.h"
#include "interfaces/IRPC.h"
#include "rpc/RPCClient.h"
#include "rpc/RuntimeDirectory.h"

#include <cstdio>
#include <cstdlib>
#include <string>

using namespace Velmora;

namespace {

// The usage on `out`, with the commands that the box's services take;
// `status` is the exit status that goes with it.
int usage(FILE* out, int status)
{
    std::fprintf(out,
                 "usage: velmora-sim ENDPOINT COMMAND [JSON]\n"
                 "Sends Sim.COMMAND with the JSON object (default {}) to a simulated platform service and\n"
                 "prints its answer (ok, or the JSON). The services' endpoints are found in VELMORA_RUNTIME_DIR,\n"
                 "which eval \"$(scripts/demo --env)\" sets.\n"
                 "  QEN speak '{\"transcript\": \"search cats\"}'            voice: what the box heard\n"
                 "  QEN connectPeer '{\"ipAddress\": \"192.168.49.2\", \"miraCast\": true, \"rtspPort\": 7236}'\n"
                 "                                                      a Wi-Fi Display peer connects\n"
                 "  QEN renderer {\"event\", \"text\"}, attach {\"result\", \"services\"}, animationFinished {\"uid\"}\n"
                 "  HUX powerStateChange {\"state\"}, powerChangeRequest {\"state\"}, wakeUp {\"reason\"}\n"
                 "  any service: emit {\"event\", \"params\"}, die {\"how\": \"crash\" | \"exit\" | \"terminate\"}, record\n"
                 "Exit status: 0 done, 1 the call failed, 2 bad usage or no such service.\n");
    return status;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc == 2 && (std::string(argv[1]) == "--help" || std::string(argv[1]) == "-h"))
        return usage(stdout, 0);
    if (argc < 3 || argc > 4)
        return usage(stderr, 2);
    // No endpoint or command starts with "-": it would be looked for as a service.
    for (int i = 1; i < 3; ++i)
        if (argv[i][0] == '-') {
            std::fprintf(stderr, "velmora-sim: %s is no option\n", argv[i]);
            return usage(stderr, 2);
        }
    Json::Value params(Json::objectValue);
    if (argc == 4) {
        params = IRPC::parse(argv[3]);
        if (!params.isObject()) {
            std::fprintf(stderr, "velmora-sim: the parameters must be a JSON object\n");
            return 2;
        }
    }
    // The library's own log lines would repeat the one message printed here.
    if (!std::getenv("VELMORA_DEBUG"))
        velmoraSetDebugLevel(0);
    RPCClient client(1);
    try {
        client.connect(argv[1]);
    } catch (Exception const& e) {
        std::fprintf(stderr, "velmora-sim: %s is not reachable in %s: is the box up? (eval \"$(scripts/demo --env)\" "
                             "points the tools at it)\n",
                     argv[1], RuntimeDirectory::path().c_str());
        return 2;
    }
    RPCConnection::Reply const reply = client.call(std::string("Sim.") + argv[2], params);
    if (!reply.ok) {
        bool const unknown = reply.message == "Method not found";
        std::fprintf(stderr, "velmora-sim: %s %s: %s\n", argv[1], argv[2],
                     unknown ? "no such command (--help lists them)" : reply.message.c_str());
        return 1;
    }
    std::printf("%s\n", reply.result.isNull() ? "ok" : IRPC::write(reply.result).c_str());
    return 0;
}
