// The seam between the application table and the operating system: turns an
// executable name and a parameter text into a process id, and a process id
// into a finished process. Implementations hold no per-process state and may
// be shared by several managers' threads.
#pragma once

#include <string>

namespace Velmora {

class ApplicationFactory {
public:
    virtual ~ApplicationFactory() = default;
    // The new process's id in decimal, or an empty string if it could not start.
    virtual std::string createApplication(std::string const& name, std::string const& hostname,
                                          std::string const& parameters) = 0;
    // Returns when the process has been reaped, with how it ended ("exit
    // status 0", "signal 9 (Killed)"; empty when not known); throws
    // Exception(ReturnGenericFailure) when it cannot get that far.
    virtual std::string destroyApplication(std::string const& pid, bool forceful) = 0;
};

} // namespace Velmora
