// The platform's start-up helper. Once the power manager is up, start() marks
// the platform as started by creating <runtime>/<name>.started (name
// "platform" when empty), a flag that demo scripts and simulators wait on.
// Each object counts its starts; the last helper built is reachable through
// the singleton, since its creator never deletes it.
//
// Threads: start() from any thread; the flag file is created atomically.
#pragma once

#include "frame/Singleton.h"

#include <atomic>
#include <string>

namespace Velmora {

class PlatformHelper : public Singleton<PlatformHelper> {
public:
    explicit PlatformHelper(std::string const& name = std::string());

    // Creates the flag file; false when it cannot be written (logged).
    bool start();

    std::string flagPath() const;
    unsigned int getStartCount() const { return startCount; }

private:
    std::string name;
    std::atomic<unsigned int> startCount{0};
};

} // namespace Velmora
