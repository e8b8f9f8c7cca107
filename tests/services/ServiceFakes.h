// Stand-ins for the service manager's surroundings: application clients, a
// web client, an input driver and a listener that record what they are told,
// in Journals, since the manager calls them on its own thread.
#pragma once

#include "APPClient.h"
#include "FakeFactory.h"
#include "frame/Exception.h"
#include "interfaces/IServiceManager.h"
#include "InputDriver.h"
#include "Journal.h"
#include "WEBClient.h"

#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace ServiceTest {

using namespace Velmora;

using VelmoraTest::Journal;

// Installs, for its life, an APPClient factory whose clients record in
// `journal` the tokens they carry ("create <uid> <token> <rights>", "delete
// <uid> <token>"), the requests to end ("terminate <uid>") and their own end
// ("gone <uid>"); the client of the uid in `refusing` (set between calls to the
// manager) fails its calls instead. report() and keepAlive() speak for the
// client of `uid` as its program would.
class FakeClients {
public:
    FakeClients()
    {
        APPClient::setFactory([this](Client::Type type, std::string const& uid) {
            std::lock_guard lock(mutex);
            return made[uid] = new Fake(type, uid, *this);
        });
    }
    ~FakeClients() { APPClient::setFactory(nullptr); }
    void report(std::string const& uid, std::string const& from, std::string const& to) { fake(uid)->notifyStateChange(from, to); }
    void keepAlive(std::string const& uid, std::string const& state) { fake(uid)->notifyKeepAlive(state); }

    Journal journal;
    std::string refusing;

private:
    struct Fake : APPClient {
        Fake(Client::Type type, std::string const& uid, FakeClients& all) : APPClient(type, uid), all(all) {}
        ~Fake() override { all.journal.add("gone " + uid); }
        void init() override {}
        std::string getState(std::string const&) override
        {
            failIfRefusing();
            return "RUNNING";
        }
        void terminate(std::string const& target) override { all.journal.add("terminate " + target); }
        void authorizationTokenCreation(unsigned int token, IServiceManager::Rights const& rights) override
        {
            failIfRefusing();
            all.journal.add("create " + uid + " " + std::to_string(token) + " " + std::to_string(rights.size()));
        }
        void authorizationTokenDeletion(unsigned int token) override { all.journal.add("delete " + uid + " " + std::to_string(token)); }
        void failIfRefusing() const
        {
            if (uid == all.refusing)
                throw Exception(ReturnGenericFailure);
        }
        using APPClient::notifyKeepAlive;
        using APPClient::notifyStateChange;
        FakeClients& all;
    };
    Fake* fake(std::string const& uid)
    {
        std::lock_guard lock(mutex);
        return made.at(uid);
    }
    std::mutex mutex;
    std::map<std::string, Fake*> made; // owned by the managers, which delete them
};

// Notes its end too, so that a lost or doubly deleted client shows. While
// `dead` is set, its calls throw as a call past the bus deadline does.
class FakeWeb : public WEBClient {
public:
    FakeWeb(Journal& journal, bool const& dead) : WEBClient(Client::Plain, ""), journal(journal), dead(dead) {}
    ~FakeWeb() override { journal.add("web gone"); }
    void init() override { journal.add("web init"); }
    void addService(std::string const& name) override { call("add " + name); }
    void removeService(std::string const& name) override { call("remove " + name); }
    Journal& journal;

private:
    void call(std::string const& text)
    {
        if (dead)
            throw Exception(ReturnTimedOut);
        journal.add(text);
    }
    bool const& dead;
};

class FakeInputDriver : public InputDriver {
public:
    void addListener(IListener*, unsigned int) override {}
    void removeListener(IListener*) override {}
    void enableIr() override { journal.add("enableIr"); }
    void enableHotplug() override { journal.add("enableHotplug"); }
    void disableHotplug() override { journal.add("disableHotplug"); }
    void enableIrFilter(IWindowEvent::KeyEvent::Code) override {}
    void disableIrFilter() override {}
    Journal journal;
};

class ServiceListener : public IServiceManager::IServiceManagerListener {
public:
    void onKeepAlive(std::string const&, std::string const&) override {}
    void onStateChange(std::string const&, std::string const&, std::string const&) override {}
    void onError(std::string const&, std::string const&) override {}
    void onBootComplete() override { journal.add("boot complete"); }
    void onServiceFailure(std::string const& name) override { journal.add("failure " + name); }
    void onServiceListChange(VectorObject<std::string> const& list) override
    {
        std::string text = "list";
        for (auto const& uid : list)
            text += " " + uid;
        journal.add(text);
    }
    Journal journal;
};

} // namespace ServiceTest
