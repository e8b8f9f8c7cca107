// The ApplicationFactory for processes on this machine: posix_spawnp of the
// name along PATH as execlp searches it (the child shares this process's
// memory until its exec, whose outcome the call returns), and a graceful wait
// that turns into SIGKILL when the process outlives terminationTimeout. The
// wait goes in steps of 500 ms, each over as soon as the process has ended.
//
// The child gets VELMORA_APP_HOSTNAME and VELMORA_APP_PARAMETERS, argv {name, ""},
// and inherits everything else but close-on-exec descriptors.
// Threads: no mutable state; any number of managers' threads may call at once.
// Each call blocks its caller (until the child's exec, or up to twice the timeout).
#pragma once

#include "ApplicationFactory.h"

namespace Velmora {

class HWPApplicationFactory : public ApplicationFactory {
public:
    // One second, or thirty when the process may dump core (RLIMIT_CORE > 0).
    HWPApplicationFactory();

    std::string createApplication(std::string const& name, std::string const& hostname,
                                  std::string const& parameters) override;
    std::string destroyApplication(std::string const& pid, bool forceful) override;

    unsigned int getTerminationTimeout() const { return terminationTimeout; }

private:
    unsigned int terminationTimeout; // ticks
};

} // namespace Velmora
