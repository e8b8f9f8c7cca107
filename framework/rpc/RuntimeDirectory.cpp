#include "rpc/RuntimeDirectory.h"

#include "frame/DebugPrint.h"
#include "frame/Exception.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <sys/stat.h>
#include <unistd.h>

namespace Velmora {

static char const MODULE[] = "RuntimeDirectory";

namespace {

std::string fallbackPath() { return "/tmp/velmora-" + std::to_string(getuid()); }

} // namespace

std::string RuntimeDirectory::path()
{
    if (char const* explicitDir = std::getenv("VELMORA_RUNTIME_DIR"); explicitDir && *explicitDir)
        return explicitDir;
    if (char const* xdg = std::getenv("XDG_RUNTIME_DIR"); xdg && *xdg)
        return std::string(xdg) + "/velmora";
    return fallbackPath();
}

std::string RuntimeDirectory::ensure()
{
    std::string const dir = path();
    if (mkdir(dir.c_str(), 0700) != 0 && errno != EEXIST) {
        VLOG(DebugLevelError, "ensure(): cannot create %s: %s\n", dir.c_str(), std::strerror(errno));
        throwException(MODULE, __LINE__, "ensure", ReturnGenericFailure);
    }
    struct stat status {};
    if (stat(dir.c_str(), &status) != 0 || !S_ISDIR(status.st_mode)) {
        VLOG(DebugLevelError, "ensure(): %s is not a directory\n", dir.c_str());
        throwException(MODULE, __LINE__, "ensure", ReturnGenericFailure);
    }
    if (dir != fallbackPath())
        return dir;
    // In the shared /tmp another user may have made it first: not followed
    // through a link, ours, and writable by nobody else.
    if (lstat(dir.c_str(), &status) != 0 || !S_ISDIR(status.st_mode) || status.st_uid != getuid() ||
        (status.st_mode & (S_IWGRP | S_IWOTH)) != 0) {
        VLOG(DebugLevelError, "ensure(): %s is not ours alone (owner %u, mode %o)\n", dir.c_str(),
             static_cast<unsigned int>(status.st_uid), static_cast<unsigned int>(status.st_mode & 07777));
        throwException(MODULE, __LINE__, "ensure", ReturnGenericFailure);
    }
    return dir;
}

std::string RuntimeDirectory::endpointPath(std::string const& name) { return path() + "/" + name + ".sock"; }

} // namespace Velmora
