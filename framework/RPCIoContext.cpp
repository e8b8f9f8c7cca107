#include "RPCAsio.h"

#include "DebugPrint.h"

namespace Velmora {

static char const MODULE[] = "RPCIoContext";

RPCIoContext::RPCIoContext(unsigned int threadCount) : implementation(std::make_shared<Impl>())
{
    for (unsigned int i = 0; i < threadCount; ++i)
        implementation->threads.emplace_back([this] {
            // A handler that throws must not cost the loop a thread.
            while (!implementation->io.stopped())
                runLoggingExceptions(MODULE, __LINE__, "run", [this] { implementation->io.run(); });
        });
}

RPCIoContext::~RPCIoContext() { stop(); }

void RPCIoContext::stop()
{
    implementation->work.reset();
    implementation->io.stop();
    for (auto& thread : implementation->threads)
        if (thread.joinable())
            thread.join();
    implementation->threads.clear();
    implementation->io.shutdown();
}

} // namespace Velmora
