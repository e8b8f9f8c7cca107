// The listener helpers and the fan-out walk, above all under mutation from
// inside a callback, where the walk goes on at the second element on purpose.
#include "interfaces/ILifecycleManagement.h"
#include "interfaces/IWindowEvent.h"
#include "frame/ListenerList.h"
#include "Journal.h"
#include "Signal.h"

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <string>
#include <thread>
#include <vector>

using namespace Velmora;

namespace {

using Family = ILifecycleManagement::ILifecycleManagementListener;

struct Recorder : Family {
    Recorder(std::string name, std::vector<std::string>& calls) : name(std::move(name)), calls(calls) {}
    void onKeepAlive(std::string const&, std::string const&) override {}
    void onStateChange(std::string const&, std::string const&, std::string const&) override
    {
        calls.push_back(name);
        if (action) {
            auto once = std::move(action);
            action = nullptr;
            once();
        }
    }
    std::string name;
    std::vector<std::string>& calls;
    std::function<void()> action;
};

struct OtherFamily : IWindowEvent::IWindowEventListener {
    void onFocusChange(std::string const&, bool const&, bool const&) override {}
};

struct Notifier {
    Mutex mutex{"Notifier"};
    std::vector<Family*> list;
    bool changed = false;
    void add(IListener* l) { change([&] { return addListener(list, l); }); }
    void remove(IListener* l) { change([&] { return removeListener(list, l); }); }
    void change(std::function<bool()> const& edit)
    {
        Mutex::ScopedLock lock(&mutex);
        changed = edit() || changed;
    }
    void notify()
    {
        fanOut(mutex, list, changed, [](Family* f) { f->onStateChange("uid", "a", "b"); });
    }
};

} // namespace

// A change of the list from inside a call makes the walk go on at the second
// element of the new list: a listener removing itself skips the one that moved
// into its place, an added one makes later listeners hear twice, and the last
// one removing itself ends the walk.
TEST(ListenerList, ChangesFromInsideACallRestartTheWalkAtTheSecondElement)
{
    struct Case {
        int listeners;
        int acting;    // the listener whose call changes the list
        bool removes;  // itself; otherwise it adds "d"
        std::vector<std::string> calls;
    } const cases[] = {
        {3, 0, true, {"a", "c"}},
        {3, 2, false, {"a", "b", "c", "b", "c", "d"}},
        {1, 0, true, {"a"}},
    };
    for (Case const& each : cases) {
        std::vector<std::string> calls;
        Notifier notifier;
        OtherFamily stranger;
        Recorder a("a", calls), b("b", calls), c("c", calls), d("d", calls);
        Recorder* const all[] = {&a, &b, &c};
        for (int i = 0; i < each.listeners; ++i)
            notifier.add(all[i]);
        notifier.changed = false;
        // Another family's listener, null and a second add of one already there change nothing.
        notifier.add(&stranger);
        notifier.add(nullptr);
        EXPECT_FALSE(addListener(notifier.list, &a));
        ASSERT_EQ(notifier.list.size(), static_cast<std::size_t>(each.listeners));
        EXPECT_FALSE(notifier.changed);
        Recorder* const acting = all[each.acting];
        if (each.removes)
            acting->action = [&] { notifier.remove(acting); };
        else
            acting->action = [&] { notifier.add(&d); };
        notifier.notify();
        EXPECT_EQ(calls, each.calls);
        EXPECT_EQ(notifier.list.size(), static_cast<std::size_t>(each.listeners + (each.removes ? -1 : 1)));
        EXPECT_FALSE(notifier.changed) << "the walk consumed the change";
        EXPECT_EQ(removeListener(notifier.list, acting), !each.removes);
        EXPECT_FALSE(removeListener(notifier.list, &stranger));
    }
}

// A listener removed while another thread is inside a call into it may be
// destroyed once removal returns: removal waits for that call.
TEST(ListenerList, RemovalWaitsForACallInFlightOnAnotherThread)
{
    struct Blocker : Family, VelmoraTest::Journal {
        void onKeepAlive(std::string const&, std::string const&) override {}
        void onStateChange(std::string const&, std::string const&, std::string const&) override
        {
            add("call began");
            released.waitFor(1);
            add("call ended");
        }
        VelmoraTest::Signal released;
    } blocker;
    Notifier notifier;
    notifier.add(&blocker);
    std::thread caller([&] { notifier.notify(); });
    EXPECT_TRUE(blocker.waitFor([&] { return blocker.has("call began"); }));
    std::thread remover([&] {
        notifier.remove(&blocker);
        blocker.add("removed");
    });
    // A removal that does not wait shows here; one that waits lets this pass by.
    blocker.waitFor([&] { return blocker.has("removed"); }, std::chrono::milliseconds(500));
    blocker.released.raise();
    remover.join();
    caller.join();
    EXPECT_EQ(blocker.all(), (std::vector<std::string>{"call began", "call ended", "removed"}));
}
