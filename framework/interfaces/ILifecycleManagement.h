// The lifecycle of a program, as the server asks for it and as the program
// reports it. Managers and client objects implement the same interface.
//
// States are strings. The constants below are shared by the server, the SDKs
// and the simulators; a program may report any other string too, and only
// isApplicationTerminated() decides which ones end a program's life.
#pragma once

#include "frame/IListener.h"
#include "frame/IObservable.h"
#include "serial/SerialObject.h"

#include <cstdint>
#include <string>

namespace Velmora {

class Deserializer;

class ILifecycleManagement {
public:
    static char const* const STATE_UNINITIALIZED; // "UNINITIALIZED": created, not yet reported
    static char const* const STATE_INITIALIZING;  // "INITIALIZING": starting up
    static char const* const STATE_RUNNING;       // "RUNNING": up and serving
    static char const* const STATE_SUSPENDED;     // "SUSPENDED": paused on request
    static char const* const STATE_TERMINATING;   // "TERMINATING": on its way out
    static char const* const STATE_TERMINATED;    // "TERMINATED": ended normally (terminal)
    static char const* const STATE_CRASHED;       // "CRASHED": ended by a fault (terminal)
    static char const* const STATE_RUNAWAY;       // "RUNAWAY": silent past its delay (terminal)

    // True for the states after which the program is gone: TERMINATED, CRASHED, RUNAWAY.
    static bool isApplicationTerminated(std::string const& state);

    // Figures a program reports about itself; the server only passes them on.
    class RuntimeStatistics : public SerialObject {
    public:
        RuntimeStatistics();
        explicit RuntimeStatistics(Deserializer& deserializer);
        std::string const& getObjectType() const override;
        SerialObject* clone() const override;
        using SerialObject::serialize;
        void serialize(Serializer& serializer) const override;

        std::string name;          // program name
        std::string state;         // state at the time of the report
        uint32_t uptimeMs = 0;     // milliseconds since start
        uint32_t cpuUserMs = 0;    // user CPU time
        uint32_t cpuSystemMs = 0;  // system CPU time
        uint32_t residentKiB = 0;  // resident memory
        uint32_t virtualKiB = 0;   // virtual memory
        uint32_t threadCount = 0;  // threads
    };

    class ILifecycleManagementListener : public virtual IListener {
    public:
        virtual void onKeepAlive(std::string const& uid, std::string const& state) = 0;
        virtual void onStateChange(std::string const& uid, std::string const& oldState, std::string const& newState) = 0;
    };

    class ILifecycleManagementNotifier : public virtual IObservable, public virtual ILifecycleManagementListener {};

    virtual ~ILifecycleManagement() = default;
    virtual std::string getState(std::string const& uid) = 0;
    virtual void setState(std::string const& uid, std::string const& requestedState) = 0;
    virtual void activate(std::string const& uid) = 0;
    virtual void suspend(std::string const& uid) = 0;
    virtual void terminate(std::string const& uid) = 0;
    virtual RuntimeStatistics getRuntimeStatistics(std::string const& uid) = 0;
};

} // namespace Velmora
