// Maps the fixed absolute paths of the system ("/root", "/usr/local/etc/velmora/...",
// "/tmp/aam...") into a directory tree of its own: VELMORA_ROOT, when set and not
// empty, is put in front of each of them, so that a demo or a test runs unprivileged.
// Unset, every path is returned exactly as written. Stateless: the variable is read
// at each call, and any thread may call.
#pragma once

#include <string>

namespace Velmora {

class SysRoot {
public:
    static std::string path(std::string const& fixedPath);
};

} // namespace Velmora
