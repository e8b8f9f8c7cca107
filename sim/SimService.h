// The frame of a simulated platform service: it serves its endpoint on the
// bus, dials in to the server like any service (VELMORA_APP_HOSTNAME,
// VELMORA_APP_PARAMETERS), reports RUNNING and lives until the server asks it
// to end or a command makes it die. Subclasses add their own methods.
//
// Commands every simulator takes on its endpoint:
//   Sim.emit   {"event": name, "params": {...}}  sends that notification to
//              the endpoint's subscribers
//   Sim.die    {"how": "crash" | "exit" | "terminate"}  after the answer:
//              abort, exit with status 1 (neither reports), or report
//              TERMINATED and exit with status 0
//   Sim.record {}  the lines recorded so far
// and the injections a subclass names (inject()): Sim.<command> with the
// event's own parameters sends the notification <event> with them.
// The first recorded line is "up <endpoint> <pid>". Recorded lines also go
// to the file named by VELMORA_SIM_LOG, one a line.
//
// Threads: handlers run on the endpoint's worker threads; record() from any.
#pragma once

#include "AppConnection.h"
#include "rpc/RPCServer.h"

#include <condition_variable>
#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace Velmora {

class SimService : public RPCServer {
public:
    explicit SimService(std::string const& endpoint);
    ~SimService() override;

    // Serves, dials in, reports RUNNING and waits; the process's exit status.
    int run();

protected:
    // Makes Sim.<command> send the notification `event` with the command's parameters.
    void inject(std::string const& command, std::string const& event);
    // Sends a notification to the endpoint's subscribers and records "emit <event>".
    void send(std::string const& event, Json::Value const& params);
    void record(std::string const& line);
    static Json::Value paramsOf(IRPC::RPCSynchronousMethodObject const& method);
    static std::string answer(IRPC::RPCSynchronousMethodObject const& method);
    static std::string answer(IRPC::RPCSynchronousMethodObject const& method, Json::Value const& result);

private:
    std::string emit(IRPC::RPCSynchronousMethodObject const& method);
    std::string injected(IRPC::RPCSynchronousMethodObject const& method);
    std::string die(IRPC::RPCSynchronousMethodObject const& method);
    std::string getRecord(IRPC::RPCSynchronousMethodObject const& method);
    void finish(int status);

    AppConnection app;
    std::mutex mutex;
    std::condition_variable finished;
    bool done = false;
    int exitStatus = 0;
    std::vector<std::string> lines;
    std::map<std::string, std::string> injections; // "Sim.<command>" -> event, set before run()
};

} // namespace Velmora
