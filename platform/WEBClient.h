// The client of the web service (endpoint "WEB"): tells it which facilities
// of the box exist (addService) and which have gone (removeService). Each call
// is a remote call that waits for the service's answer up to the bus deadline.
//
// create() goes through a replaceable factory so tests can supply their own
// clients (setFactory); the default factory builds this class.
// Threads: init() once, then calls from any thread. Owned by whoever created it.
#pragma once

#include "Client.h"

#include <functional>
#include <memory>
#include <string>

namespace Velmora {

class RPCClient;

class WEBClient {
public:
    using Factory = std::function<WEBClient*(Client::Type, std::string const& name)>;

    // A new client owned by the caller; null when the factory declines.
    static WEBClient* create(Client::Type type, std::string const& name);
    // Replaces the factory behind create(); an empty factory restores the default.
    static void setFactory(Factory factory);

    // An empty name means the endpoint "WEB".
    WEBClient(Client::Type type, std::string const& name);
    virtual ~WEBClient();
    WEBClient(WEBClient const&) = delete;
    WEBClient& operator=(WEBClient const&) = delete;

    // Dials the endpoint; throws Exception when nobody answers.
    virtual void init();
    // Throw Exception when the service is unreachable or fails the call.
    virtual void addService(std::string const& name);
    virtual void removeService(std::string const& name);

    Client::Type getType() const { return type; }
    std::string const& getEndpoint() const { return endpoint; }

private:
    void send(char const* method, std::string const& name);

    Client::Type type;
    std::string endpoint;
    std::unique_ptr<RPCClient> client;
};

} // namespace Velmora
