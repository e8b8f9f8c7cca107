// Feeds arbitrary texts through the request path of the server: the bus's
// reading of one request, the dispatch to a method table and the handler,
// which reads its parameters, picks a manager and waits for the manager's
// thread. The managers are the real command layers, with a scripted policy
// for the windows and services and the stub catalogue and settings. Whatever
// comes in, the reply is one JSON object, or nothing for a notification.
#include "RpcWorld.h"

#include <cstdint>
#include <cstdlib>
#include <string>

namespace {

RpcTest::RpcWorld* world = nullptr;

void endWorld() { delete world; }

} // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, std::size_t size)
{
    // Built at the first input and ended at exit, before the statics that its
    // threads use are destroyed.
    if (!world) {
        world = new RpcTest::RpcWorld(false, [](std::string) {});
        world->gate.raise(); // no launch is held
        std::atexit(endWorld);
    }
    std::string const reply =
        world->server->handleRPCSynchronousMethodPayload(std::string(reinterpret_cast<char const*>(data), size));
    if (!reply.empty() && !Velmora::IRPC::parse(reply).isObject())
        std::abort();
    return 0;
}
