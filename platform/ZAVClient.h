// The connection to another server instance (the slave server of a session),
// by its endpoint name. The window table refers to it for the Android
// applications that the slave runs; such entries share one ZAVClient.
//
// init() dials the endpoint and follows the slave's state and keep-alive
// notifications, which reach the listeners with the reporting uid. A slave
// that is not up yet is dialled again at the next call. Calls throw Exception
// when the slave is unreachable, fails the call or misses the deadline.
// Threads: calls from any thread; listeners hear the slave's reports on the
// client's bus thread. Owned by the manager that created it.
#pragma once

#include "APPClient.h"
#include "interfaces/Event.h"

#include <memory>
#include <string>

namespace Velmora {

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

    Mutex dialMutex;
    std::unique_ptr<RPCClient> slave;
};

} // namespace Velmora
