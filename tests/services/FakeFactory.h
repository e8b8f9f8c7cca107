// An application factory that starts nothing: it hands out process ids and
// records what it is asked. Managers call it on their own threads, so it
// records under a lock; a test reads it after a round trip to the manager.
#pragma once

#include "ApplicationFactory.h"
#include "frame/Exception.h"

#include <algorithm>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <vector>

namespace ServiceTest {

// Pids count up from 1000; a name in `failing` doesn't start; while
// `failDestroy` is set a destroy is recorded and then throws.
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

} // namespace ServiceTest
