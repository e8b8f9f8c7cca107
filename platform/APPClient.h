// The server's handle on one program, by its uid: the program's lifecycle,
// window compositing, window events and authorization tokens, and the
// listeners that hear the program's state and keep-alive reports.
//
// create() goes through a replaceable factory so tests can supply their own
// clients (setFactory). The default client is not connected to any program:
// every call that wants an answer throws Exception(ReturnGenericFailure); the
// token operations are accepted and dropped.
//
// Threads: calls may come from any thread; listeners are called on the bus
// thread that read the program's report, one report at a time, without a lock
// of the client held. The creating manager owns the client; its destructor
// waits for a report still being delivered on another thread, and a manager
// may delete a client from inside the reaction to that client's own report
// (the client is not touched after that reaction returns).
// removeListener waits for a call into that listener in flight on another
// thread, so the listener may be destroyed once it returns.
#pragma once

#include "Client.h"
#include "interfaces/IApplication.h"
#include "interfaces/IServiceManager.h"
#include "interfaces/IWindowCompositing.h"
#include "interfaces/IWindowEvent.h"
#include "frame/Mutex.h"
#include "rpc/RPCRegistry.h"

#include <chrono>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace Velmora {

class APPClient : public virtual IApplication, public virtual IWindowCompositing, public virtual IWindowEvent,
                  public virtual IObservable, private RPCRegistry::IRegistrationListener {
public:
    using Factory = std::function<APPClient*(Client::Type, std::string const& uid)>;

    // A new client for `uid`, owned by the caller.
    static APPClient* create(Client::Type type, std::string const& uid);
    // Replaces the factory behind create(); an empty factory restores the default.
    static void setFactory(Factory factory);

    APPClient(Client::Type type, std::string const& uid);
    ~APPClient() override;

    virtual void init();
    std::string const& getUid() const;

    void addListener(IListener* listener) override;
    void removeListener(IListener* listener) override;

    std::string getState(std::string const& uid) override;
    void setState(std::string const& uid, std::string const& requestedState) override;
    void activate(std::string const& uid) override;
    void suspend(std::string const& uid) override;
    void terminate(std::string const& uid) override;
    RuntimeStatistics getRuntimeStatistics(std::string const& uid) override;

    using IWindowCompositing::setVisibility;
    using IWindowCompositing::getVisibility;
    using IWindowCompositing::setOpacity;
    using IWindowCompositing::getOpacity;
    using IWindowCompositing::setZOrder;
    using IWindowCompositing::getZOrder;
    using IWindowCompositing::setLocation;
    using IWindowCompositing::getLocation;
    using IWindowCompositing::bringToFront;
    using IWindowCompositing::sendToBack;
    using IWindowCompositing::bringForward;
    using IWindowCompositing::sendBackward;
    void setVisibility(std::string const& uid, bool visible) override;
    bool getVisibility(std::string const& uid) override;
    void setOpacity(std::string const& uid, unsigned int opacity) override;
    unsigned int getOpacity(std::string const& uid) override;
    void setZOrder(std::string const& uid, unsigned int zOrder) override;
    unsigned int getZOrder(std::string const& uid) override;
    void setLocation(std::string const& uid, Rect const& location) override;
    Rect getLocation(std::string const& uid) override;
    void bringToFront(std::string const& uid) override;
    void sendToBack(std::string const& uid) override;
    void bringForward(std::string const& uid) override;
    void sendBackward(std::string const& uid) override;

    void handleFocus(std::string const& uid, bool focus) override;
    bool isFocused(std::string const& uid) override;
    bool handleEvent(std::string const& uid, Event const& event) override;
    // handleEvent without waiting for the program's answer, so that a key
    // costs the caller one send. The events reach the program in order; one
    // that the program failed (an error answer, its end, or no answer within
    // the bus deadline) makes the next postEvent throw as handleEvent would,
    // and only that one.
    void postEvent(std::string const& uid, Event const& event);

    // One-way: accepted before the program has connected and delivered in order.
    virtual void authorizationTokenCreation(unsigned int token, IServiceManager::Rights const& rights);
    virtual void authorizationTokenDeletion(unsigned int token);

protected:
    // The interface a call belongs to; its wire name depends on the peer.
    enum class Side { Lifecycle, Compositing, Event };

    // Tells every listener of a report from the program (of `reportedUid`).
    void notifyKeepAlive(std::string const& state);
    void notifyStateChange(std::string const& oldState, std::string const& newState);
    void notifyKeepAlive(std::string const& reportedUid, std::string const& state);
    void notifyStateChange(std::string const& reportedUid, std::string const& oldState, std::string const& newState);
    // Throws Exception(ReturnGenericFailure) for a call that needs the program.
    [[noreturn]] void failNotConnected(char const* operation) const;

    // Calls `method` of `side` on the peer with `params`; throws as described above.
    Json::Value request(Side side, char const* method, Json::Value params);
    virtual std::string interfaceName(Side side) const;
    // The peer's connection, or null when it is not there.
    virtual std::shared_ptr<RPCConnection> currentConnection();

    Client::Type type;
    std::string uid;

private:
    void onRegistered(std::shared_ptr<RPCConnection> const& connection) override;
    void onReport(std::string const& name, Json::Value const& parameters) override;
    void onUnregistered() override;
    void sendToken(char const* method, Json::Value params);

    Mutex connectionMutex;
    std::shared_ptr<RPCConnection> connection;
    std::vector<std::pair<std::string, Json::Value>> pendingTokens;
    bool bound = false;

    // Shared with a fan-out in progress, which outlives the client when a
    // listener deletes it.
    struct Listeners {
        Mutex mutex{"APPClient"};
        std::vector<ILifecycleManagement::ILifecycleManagementListener*> list;
        bool changed = false;
    };
    template <class Notify>
    void notifyListeners(Notify&& notify);
    std::shared_ptr<Listeners> const listeners = std::make_shared<Listeners>();

    // What the program owes of the events posted on its current connection;
    // shared with the answers in flight, which may outlive the client. A
    // failure fails one later post, so that a window that failed one key
    // still gets the next.
    struct PostedEvents {
        std::mutex mutex;
        std::deque<std::chrono::steady_clock::time_point> unanswered; // sending times, oldest first
        std::size_t overdueAnswers = 0; // of events already reported unanswered: not counted again
        bool failed = false;            // an answer that failed, not yet reported
        unsigned int connection = 0;    // which registration the events went to
    };
    std::shared_ptr<PostedEvents> const postedEvents = std::make_shared<PostedEvents>();
    // True, once per failure, when a posted event failed or is overdue at `now`.
    bool takeEventFailure(std::chrono::steady_clock::time_point now);
};

} // namespace Velmora
