// The Android slave program: one SlaveSession per display session, named
// <name><index>, and the signal loop on the main thread, which reaps the
// applications' processes as they end and ends the slave on SIGTERM or SIGINT:
// every application is asked to end (SIGTERM), killed if it outlives
// STOP_GRACE, reported to the master as it goes, and then the endpoints
// close and their socket files are removed.
//
// Threads: blockSignals() first, on the main thread before any other thread
// exists, so that every thread inherits the mask and the signals reach only
// the loop (the programs started unblock them before they exec). The rest on
// the main thread.
#pragma once

#include "SlaveSession.h"

#include <chrono>
#include <memory>
#include <string>
#include <vector>

namespace Velmora {

class AndroidSlave {
public:
    static constexpr std::chrono::seconds STOP_GRACE{3};

    static void blockSignals();

    AndroidSlave(std::string const& name, unsigned int sessions, std::string const& defaultProgram);
    ~AndroidSlave();
    AndroidSlave(AndroidSlave const&) = delete;
    AndroidSlave& operator=(AndroidSlave const&) = delete;

    // Opens the endpoints; throws Exception when one cannot be served (a live slave holds it).
    void init();
    // Serves until SIGTERM or SIGINT, then ends the applications and closes the endpoints.
    void run();

private:
    // Reaps every ended child; the sessions report their applications.
    void reapChildren();
    // Reaps children until none is left or `deadline` passes; false when some remain.
    bool reapAllUntil(std::chrono::steady_clock::time_point deadline);
    void stop();

    std::vector<std::unique_ptr<SlaveSession>> sessions;
};

} // namespace Velmora
