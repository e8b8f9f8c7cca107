// Stand-ins for the surroundings of the application and service managers: a
// process factory, application clients, a web client, an input driver and a
// listener that record what they are told, under locks, since a manager calls
// them on its own thread.
#pragma once

#include "APPClient.h"
#include "ApplicationFactory.h"
#include "frame/Exception.h"
#include "interfaces/IServiceManager.h"
#include "InputDriver.h"
#include "Journal.h"
#include "OnThread.h"
#include "WEBClient.h"

#include <algorithm>
#include <functional>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <vector>

namespace ServiceTest {

using namespace Velmora;

using VelmoraTest::Journal;
using VelmoraTest::OnThread;
using Names = std::vector<std::string>;

// Starts nothing: pids count up from 1000; a name in `failing` doesn't start;
// while `failDestroy` is set a destroy is recorded and then throws. A test
// reads it after a round trip to the manager.
class FakeFactory : public Velmora::ApplicationFactory {
public:
    std::string createApplication(std::string const& name, std::string const& hostname,
                                  std::string const& parameters) override
    {
        std::lock_guard lock(mutex);
        started.push_back(name + "|" + parameters);
        lastHostname = hostname;
        if (failing.count(name))
            return "";
        std::string pid = std::to_string(nextPid++);
        names[pid] = name;
        return pid;
    }
    std::string destroyApplication(std::string const& pid, bool forceful) override
    {
        std::lock_guard lock(mutex);
        destroyed.push_back(pid);
        forcefully.push_back(forceful);
        if (failDestroy)
            throw Velmora::Exception(Velmora::ReturnGenericFailure);
        return std::string();
    }
    std::vector<std::string> startedNames()
    {
        std::lock_guard lock(mutex);
        std::vector<std::string> result;
        for (auto const& each : started)
            result.push_back(each.substr(0, each.find('|')));
        return result;
    }
    // The newest pid started under `name` (pids have four digits, so text order is number order).
    std::string newestPid(std::string const& name)
    {
        std::lock_guard lock(mutex);
        auto const found = std::find_if(names.rbegin(), names.rend(), [&](auto const& row) { return row.second == name; });
        return found == names.rend() ? "" : found->first;
    }

    std::mutex mutex;
    int nextPid = 1000;
    std::vector<std::string> started; // "name|parameters"
    std::string lastHostname;
    std::vector<std::string> destroyed;
    std::vector<bool> forcefully; // whether each destroy was forceful
    std::map<std::string, std::string> names; // pid -> name
    std::set<std::string> failing;
    bool failDestroy = false;
};

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
