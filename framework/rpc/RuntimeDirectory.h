// Where the bus endpoints live: $VELMORA_RUNTIME_DIR, else
// $XDG_RUNTIME_DIR/velmora, else /tmp/velmora-<uid>. The endpoint named N
// listens on <runtime>/N.sock. Stateless; any thread.
#pragma once

#include <string>

namespace Velmora {

class RuntimeDirectory {
public:
    // The directory, read from the environment at each call.
    static std::string path();
    // Creates the directory (mode 0700) when missing; throws Exception when it
    // cannot be created or is not a directory, and for the /tmp fallback also
    // when it is a link, is owned by another user or is writable by others.
    static std::string ensure();
    // <runtime>/<name>.sock
    static std::string endpointPath(std::string const& name);
};

} // namespace Velmora
