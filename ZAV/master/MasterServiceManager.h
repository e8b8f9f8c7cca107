// The policy of the service layer, in the process that owns the hardware.
// init() builds the dependency graph from the packages of the group
// "Velmora/Service" (a node is a service's application URL; a URL holding
// "start_velmora" stands for the start of the system and is never launched)
// and runs the first boot pass. Every new state report runs another pass,
// which starts, in each dependency tree, the first service that isn't there
// and waits for each one's RUNNING before the next; a pass that finds every
// tree up raises onBootComplete, as often as that happens. A service that ends
// leaves the table and the next pass starts it again.
//
// Known services, by a fragment of their URL: "hux" (power manager), "QEN"
// (media engine), "NET" (network), "WEB" (web service), "DIAG" (diagnostics).
// Their coming up announces facilities to the web service (kept in
// pendingServices until it runs; a call the web service fails is logged and
// does not stop the bookkeeping of the report) and switches the input sources; the media
// engine's end is reported as a failure and restarts it at once; the power
// manager's end ends the process at once with status 0.
//
// Threads: the first pass runs on the manager's thread while init() waits;
// later passes run there within the state reports. The graph, the pending
// names, webClient and the table belong to that thread after init(). The
// input driver is a singleton reference held until destruction; webClient is
// owned.
#pragma once

#include "frame/ExplicitSingleton.h"
#include "Graph.h"
#include "InputDriver.h"
#include "ServiceManager.h"
#include "serial/StringObject.h"
#include "WEBClient.h"

#include <string>
#include <vector>

namespace Velmora {

class MasterServiceManager : public ExplicitSingleton<MasterServiceManager>, public ServiceManager {
public:
    static char const* const SERVICE_GROUP; // "Velmora/Service"
    static char const* const START_NODE;    // "start_velmora"
    static char const* const MEDIA_ENGINE_EXECUTABLE; // "VelmoraQENExec"

    class SequenceBootupCommand : public ServiceManagerCommand {
    public:
        explicit SequenceBootupCommand(MasterServiceManager* manager) : ServiceManagerCommand(manager) {}
        void call() override;
    };

    // Reads "--velmora:session<N>" options: sessionCount is the highest N plus one.
    MasterServiceManager(ApplicationFactory* factory, int argc, char** argv);
    ~MasterServiceManager() override;

    // Throws Exception(ReturnGenericFailure) after the first pass when no session was named.
    void init() override;
    Client::Type getClientType() override;

    unsigned int getSessionCount() const { return sessionCount; }

protected:
    virtual void _sequenceBootup();
    void _onApplicationListChange() override;
    void _onStateChange(std::string const& uid, std::string const& oldState, std::string const& newState) override;

    Graph<StringObject> serviceGraph;
    std::vector<std::string> pendingServices;
    InputDriver* inputDriver = nullptr;
    WEBClient* webClient = nullptr;
    unsigned int sessionCount = 0;

private:
    enum class KnownService { None, PowerManager, MediaEngine, Network, WebService, Diagnostics };
    static KnownService classify(std::string const& url);

    void buildGraph();
    // Logs each dependency cycle reachable from a root once; the walk cuts
    // the edge that closes it, so the rest of the graph boots.
    void reportCycles() const;
    // Walks `tree` up to its first service that is not running, starting it when
    // missing; true when the walk stopped there (the tree is pending).
    bool advanceTree(VectorObject<StringObject> const& tree);
    void serviceUp(KnownService service);
    void serviceDown(KnownService service);
    void connectWebService();
    // A failed call to the web service is logged, never thrown.
    void announce(std::string const& name);
    void withdraw(std::string const& name);
    void tellWebService(char const* what, std::string const& name, void (WEBClient::*call)(std::string const&));
};

} // namespace Velmora
