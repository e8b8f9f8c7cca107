#include "PlatformHelper.h"

#include "frame/DebugPrint.h"
#include "rpc/RuntimeDirectory.h"

#include <fcntl.h>
#include <unistd.h>

namespace Velmora {

static char const MODULE[] = "PlatformHelper";

PlatformHelper::PlatformHelper(std::string const& name) : name(name.empty() ? "platform" : name) {}

std::string PlatformHelper::flagPath() const { return RuntimeDirectory::path() + "/" + name + ".started"; }

bool PlatformHelper::start()
{
    ++startCount;
    bool ready = false;
    runLoggingExceptions(MODULE, __LINE__, "start", [&] {
        RuntimeDirectory::ensure();
        ready = true;
    });
    if (!ready)
        return false;
    std::string const path = flagPath();
    int const fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    if (fd < 0) {
        VLOG(DebugLevelError, "cannot create %s\n", path.c_str());
        return false;
    }
    ::close(fd);
    VLOG(DebugLevelInfo, "platform started\n");
    return true;
}

} // namespace Velmora
