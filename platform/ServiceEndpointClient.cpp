#include "ServiceEndpointClient.h"

#include "EndpointWatch.h"

#include "frame/DebugPrint.h"
#include "frame/Exception.h"
#include "rpc/RPCClient.h"
#include "rpc/RuntimeDirectory.h"

#include <algorithm>
#include <cerrno>
#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>

namespace Velmora {

static char const MODULE[] = "ServiceEndpointClient";

ServiceEndpointClient::ServiceEndpointClient(Client::Type type, std::string endpoint)
    : type(type), endpoint(std::move(endpoint)), stopSignal(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)), mutex(MODULE)
{
}

ServiceEndpointClient::~ServiceEndpointClient() { stopDelivery(); }

void ServiceEndpointClient::stopDelivery()
{
    {
        std::lock_guard lock(queueMutex);
        stopping = true;
        queued.notify_all();
    }
    uint64_t const one = 1;
    [[maybe_unused]] ssize_t const written = ::write(stopSignal.get(), &one, sizeof(one));
    if (courier.joinable())
        courier.join();
}

void ServiceEndpointClient::init()
{
    if (!connection())
        throwException(MODULE, __LINE__, "init", ReturnGenericFailure);
}

void ServiceEndpointClient::addListener(IListener* listener)
{
    {
        std::lock_guard lock(listenerMutex);
        if (std::find(listeners.begin(), listeners.end(), listener) == listeners.end())
            listeners.push_back(listener);
    }
    std::lock_guard lock(queueMutex);
    if (!courier.joinable() && !stopping)
        courier = std::thread([this] {
            pthread_setname_np(pthread_self(), (getEndpoint() + "Courier").substr(0, 15).c_str());
            run();
        });
}

void ServiceEndpointClient::removeListener(IListener* listener)
{
    std::lock_guard delivery(deliveryMutex);
    std::lock_guard lock(listenerMutex);
    std::erase(listeners, listener);
}

bool ServiceEndpointClient::hasListeners()
{
    std::lock_guard lock(listenerMutex);
    return !listeners.empty();
}

std::shared_ptr<RPCClient> ServiceEndpointClient::connection()
{
    Mutex::ScopedLock lock(&mutex);
    if (client && client->isConnected())
        return client;
    client.reset();
    client = dial();
    return client;
}

std::shared_ptr<RPCClient> ServiceEndpointClient::dial()
{
    auto dialled = std::make_shared<RPCClient>(1);
    dialled->setNotificationHandler([this](std::string const& name, Json::Value const& params) {
        enqueue({name, params});
    });
    dialled->setClosedHandler([this] { enqueue({}); });
    try {
        dialled->connect(endpoint);
        std::vector<std::string> const names = events();
        if (!names.empty()) {
            Json::Value subscription(Json::objectValue);
            for (std::string const& name : names)
                subscription["events"].append(name);
            dialled->callOrThrow("RPC.subscribe", subscription);
        }
    } catch (Exception const&) {
        VLOG(DebugLevelError, "connection(): service %s is not reachable\n", endpoint.c_str());
        return nullptr;
    }
    return dialled;
}

Json::Value ServiceEndpointClient::call(char const* method, Json::Value const& params)
{
    std::shared_ptr<RPCClient> const peer = connection();
    if (!peer)
        throwException(MODULE, __LINE__, method, ReturnGenericFailure);
    RPCConnection::Reply reply = peer->call(method, params);
    if (!reply.ok) {
        VLOG(DebugLevelError, "%s(): service %s answered: %s\n", method, endpoint.c_str(), reply.message.c_str());
        throwException(MODULE, __LINE__, method, ReturnGenericFailure);
    }
    return std::move(reply.result);
}

void ServiceEndpointClient::deliver(IListener&, std::string const& name, Json::Value const&)
{
    VLOG(DebugLevelWarning, "deliver(): %s sent the unknown notice %s\n", endpoint.c_str(), name.c_str());
}

void ServiceEndpointClient::enqueue(Notice notice)
{
    std::lock_guard lock(queueMutex);
    if (stopping)
        return;
    notices.push_back(std::move(notice));
    queued.notify_all();
}

void ServiceEndpointClient::run()
{
    for (;;) {
        Notice notice;
        {
            std::unique_lock lock(queueMutex);
            queued.wait(lock, [this] { return stopping || !notices.empty(); });
            if (stopping)
                return;
            notice = std::move(notices.front());
            notices.pop_front();
        }
        if (notice.name.empty()) {
            redial();
            continue;
        }
        std::lock_guard delivery(deliveryMutex);
        std::vector<IListener*> const current = [this] {
            std::lock_guard lock(listenerMutex);
            return listeners;
        }();
        for (IListener* listener : current)
            runLoggingExceptions(MODULE, __LINE__, "deliver", [&] { deliver(*listener, notice.name, notice.params); });
    }
}

void ServiceEndpointClient::redial()
{
    if (!hasListeners())
        return;
    EndpointWatch watch(endpoint);
    if (!watch.valid()) {
        VLOG(DebugLevelError, "redial(): cannot watch %s for %s\n", RuntimeDirectory::path().c_str(),
             endpoint.c_str());
        return;
    }
    VLOG(DebugLevelNotice, "redial(): waiting for service %s\n", endpoint.c_str());
    while (!connection()) {
        if (watch.await(-1, stopSignal.get()) != EndpointWatch::Result::Appeared)
            return;
    }
    VLOG(DebugLevelNotice, "redial(): service %s is back\n", endpoint.c_str());
}

} // namespace Velmora
