// Listener of the Packager: told of each manifest attribute a refresh wrote,
// then once that the refresh committed. Calls arrive on the committing thread
// (the repository monitor's); results are not looked at, listeners return 0.
#pragma once

#include "frame/IListener.h"

#include <string>

namespace Velmora {

class PackagerListener : public virtual IListener {
public:
    virtual int onPackagerSettingsChange() = 0;
    virtual int onPackagerManifestChange(std::string const& entity, std::string const& attribute,
                                         std::string const& value) = 0;
    virtual int onPackagerManifestCommit() = 0;
};

} // namespace Velmora
