// The connection to another server instance (the slave server of a session),
// by its endpoint name. The window table refers to it for the Android
// applications that the slave runs; such entries share one ZAVClient.
//
// init() dials the endpoint and follows the slave's state and keep-alive
// notifications, which reach the listeners with the reporting uid. A slave
// whose endpoint refuses the dial (not up yet, or gone) is dialled again at
// the first call after its endpoint has appeared anew; until then calls fail
// at once, without a dial and without a log line (the outage is logged once). Calls throw Exception
// when the slave is unreachable, fails the call or misses the deadline.
// A slave that goes away takes its windows with it: when its connection
// closes, every uid it launched and has not reported terminated is reported
// TERMINATED, so that no window stays in a table that nobody runs.
// Threads: calls from any thread; listeners hear the slave's reports on the
// client's bus thread (the loss of the slave perhaps on a caller's thread,
// within a call that finds it gone), and must not call the client back.
// Owned by the manager that created it.
#pragma once

#include "APPClient.h"
#include "interfaces/Event.h"

#include <map>
#include <memory>
#include <string>

namespace Velmora {

class EndpointWatch;
class RPCClient;

class ZAVClient : public APPClient {
public:
    // A new client for the server instance named `name`, owned by the caller.
    static ZAVClient* create(Client::Type type, std::string const& name);

    ZAVClient(Client::Type type, std::string const& name);
    ~ZAVClient() override;

    void init() override;
    // The name of the slave server; table entries served through it carry it.
    std::string const& getServerUid() const;
    // IWindowManager side: the slave launches `parameters` (a launch record)
    // in its session `proxy` and gives the new uid.
    std::string launch(SerialObject const& parameters, unsigned int proxy = 0);
    void dispatchEvent(Event const& event, unsigned int proxy = 0);

protected:
    std::string interfaceName(Side side) const override;
    std::shared_ptr<RPCConnection> currentConnection() override;

private:
    void onSlaveNotification(std::string const& name, Json::Value const& params);
    void onSlaveLost();

    Mutex dialMutex;
    std::unique_ptr<RPCClient> slave;
    std::unique_ptr<EndpointWatch> absent; // set while the slave is unreachable: tells of its endpoint's return
    Mutex servedMutex;
    std::map<std::string, std::string> served; // uid -> last state, of the windows the slave runs
};

} // namespace Velmora
