// The listener helpers and the fan-out walk, above all under mutation from
// inside a callback, where the walk goes on at the second element on purpose.
#include "ILifecycleManagement.h"
#include "IWindowEvent.h"
#include "ListenerList.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
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
    void add(IListener* l)
    {
        Mutex::ScopedLock lock(&mutex);
        if (addListener(list, l))
            changed = true;
    }
    void remove(IListener* l)
    {
        Mutex::ScopedLock lock(&mutex);
        if (removeListener(list, l))
            changed = true;
    }
    void notify()
    {
        fanOut(mutex, list, changed, [](Family* f) { f->onStateChange("uid", "a", "b"); });
    }
};

} // namespace

TEST(ListenerList, AddFiltersByFamilyAndKeepsOneEntryPerListener)
{
    std::vector<std::string> calls;
    Notifier notifier;
    OtherFamily stranger;
    notifier.add(&stranger);
    EXPECT_TRUE(notifier.list.empty());
    EXPECT_FALSE(notifier.changed);
    notifier.add(nullptr);
    EXPECT_FALSE(notifier.changed);

    Recorder a("a", calls);
    EXPECT_TRUE(addListener(notifier.list, &a));
    EXPECT_FALSE(addListener(notifier.list, &a));
    EXPECT_EQ(notifier.list.size(), 1u);
    EXPECT_FALSE(removeListener(notifier.list, &stranger));
    EXPECT_TRUE(removeListener(notifier.list, &a));
    EXPECT_FALSE(removeListener(notifier.list, &a));
}

TEST(ListenerList, AListenerRemovingItselfMakesTheWalkGoOnAtTheSecondElement)
{
    std::vector<std::string> calls;
    Notifier notifier;
    Recorder a("a", calls), b("b", calls), c("c", calls);
    for (Recorder* r : {&a, &b, &c})
        notifier.add(r);
    notifier.changed = false;
    a.action = [&] { notifier.remove(&a); }; // list becomes b, c: the walk resumes at c
    notifier.notify();
    EXPECT_EQ(calls, (std::vector<std::string>{"a", "c"}));
    EXPECT_FALSE(notifier.changed);
}

TEST(ListenerList, AnAddedListenerRestartsTheWalkSoLaterListenersMayHearTwice)
{
    std::vector<std::string> calls;
    Notifier notifier;
    Recorder a("a", calls), b("b", calls), c("c", calls), d("d", calls);
    for (Recorder* r : {&a, &b, &c})
        notifier.add(r);
    notifier.changed = false;
    c.action = [&] { notifier.add(&d); }; // after c: back to the second element
    notifier.notify();
    EXPECT_EQ(calls, (std::vector<std::string>{"a", "b", "c", "b", "c", "d"}));
}

TEST(ListenerList, TheLastListenerRemovingItselfEndsTheWalk)
{
    std::vector<std::string> calls;
    Notifier notifier;
    Recorder a("a", calls);
    notifier.add(&a);
    a.action = [&] { notifier.remove(&a); };
    notifier.notify();
    EXPECT_EQ(calls, (std::vector<std::string>{"a"}));
    EXPECT_TRUE(notifier.list.empty());
}
