// The dialling side of one platform service's endpoint ("QEN", "HUX"): the
// common body of the media engine's and the power manager's clients. Every
// operation is a remote call that waits for the answer up to the bus
// deadline; a connection that was lost is dialled again at the next call.
//
// Notices: each connection subscribes to the service's events (events()).
// They are handed, in order, to a delivery thread of the client's own, which
// passes each to every listener (deliver()), so that a listener may block (a
// voice transcript waits for a launch) without holding up the connection.
// When the service goes away while anybody listens, the delivery thread waits
// for its socket to appear again (inotify on the runtime directory) and dials
// it, so that a service that restarts is heard again without a call first.
//
// Threads: calls, addListener and removeListener from any thread; listeners
// are called on the delivery thread, which removeListener waits for (a
// listener may remove itself from its call). Owned by whoever created the
// client; the destructor joins the delivery thread.
#pragma once

#include "Client.h"
#include "FileDescriptor.h"
#include "frame/IListener.h"
#include "frame/Mutex.h"

#include <json/value.h>

#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace Velmora {

class RPCClient;

class ServiceEndpointClient {
public:
    ServiceEndpointClient(Client::Type type, std::string endpoint);
    virtual ~ServiceEndpointClient();
    ServiceEndpointClient(ServiceEndpointClient const&) = delete;
    ServiceEndpointClient& operator=(ServiceEndpointClient const&) = delete;

    // Dials the endpoint unless connected; throws Exception when nobody answers.
    virtual void init();
    // A listener of any family; those of families this client doesn't deliver are never called.
    void addListener(IListener* listener);
    // After it returns the listener is called no more.
    void removeListener(IListener* listener);

    Client::Type getType() const { return type; }
    std::string const& getEndpoint() const { return endpoint; }

protected:
    // Calls `method` with `params` and gives the result; throws Exception
    // (logged with the method) when the service is unreachable, fails the
    // call or misses the deadline.
    Json::Value call(char const* method, Json::Value const& params);
    // The notification names this client subscribes to.
    virtual std::vector<std::string> events() const { return {}; }
    // Passes one notice to one listener, on the delivery thread. An unknown
    // name or parameters that don't fit are logged and dropped.
    virtual void deliver(IListener& listener, std::string const& name, Json::Value const& params);
    // Stops the delivery thread; a subclass calls it first in its destructor,
    // since deliver() is its own.
    void stopDelivery();

private:
    struct Notice {
        std::string name; // empty: the connection was lost
        Json::Value params;
    };

    std::shared_ptr<RPCClient> connection();
    std::shared_ptr<RPCClient> dial();
    void enqueue(Notice notice);
    void run();
    void redial();
    bool hasListeners();

    Client::Type type;
    std::string endpoint;

    std::mutex queueMutex;
    std::condition_variable queued;
    std::deque<Notice> notices;
    bool stopping = false;
    FileDescriptor stopSignal; // eventfd: ends a wait for the endpoint

    std::recursive_mutex deliveryMutex;
    std::mutex listenerMutex;
    std::vector<IListener*> listeners;

    Mutex mutex;
    std::shared_ptr<RPCClient> client;
    std::thread courier;
};

} // namespace Velmora
