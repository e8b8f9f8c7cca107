// Reference counts of the singleton templates, which managers and the host
// rely on to decide who destroys a shared instance.
#include "frame/Exception.h"
#include "frame/ExplicitSingleton.h"
#include "frame/Singleton.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <thread>
#include <vector>

using namespace Velmora;

namespace {

std::atomic<int> constructed{0};
std::atomic<int> destroyed{0};

class Counted : public Singleton<Counted> {
public:
    Counted() { ++constructed; }
    ~Counted() override { ++destroyed; }
    static unsigned int count() { return refCount; }
    static Counted* current() { return instance(); }
};

class DerivedCounted : public Counted {};

class Explicit : public ExplicitSingleton<Explicit> {
public:
    explicit Explicit(int value) : value(value) {}
    ~Explicit() override { ++destroyed; }
    static unsigned int count() { return refCount; }
    int value;
};

struct Singletons : testing::Test {
    void SetUp() override
    {
        constructed = 0;
        destroyed = 0;
    }
};

} // namespace

// The first getInstance counts twice (the call and the constructor); each
// delete of the instance drops one, and the last one destroys it, after which
// the next getInstance makes a new one, of a derived class if asked. An
// object made by hand becomes the instance; a delete of the old one, stale
// now, is ignored.
TEST_F(Singletons, FirstGetInstanceCountsTwiceAndTheLastDeleteDestroys)
{
    Counted* first = Counted::getInstance();
    EXPECT_EQ(first, Counted::getInstance());
    EXPECT_EQ(Counted::count(), 3u);
    delete first;
    delete first;
    EXPECT_EQ(destroyed, 0);
    delete first;
    EXPECT_EQ(destroyed, 1);
    EXPECT_EQ(Counted::current(), nullptr);

    Counted* again = Counted::getInstance<DerivedCounted>();
    EXPECT_EQ(constructed, 2);
    ASSERT_NE(dynamic_cast<DerivedCounted*>(again), nullptr);
    delete again;
    delete again;
    EXPECT_EQ(destroyed, 2);

    Counted* stale = Counted::getInstance();
    Counted* stray = new Counted;
    delete stale;
    EXPECT_EQ(Counted::current(), stray);
    for (int i = 0; i < 3; ++i)
        delete stray;
    EXPECT_EQ(destroyed, 3);
    stale->~Counted(); // never released by design: freed by hand for the leak checker
    ::operator delete(stale);
}

// An explicit singleton is made by its owner and shared afterwards; used
// before, it throws, twice, without leaving its mutex locked. On a thread of
// its own, so that a mutex left locked fails the test instead of hanging it.
TEST_F(Singletons, ExplicitSingletonIsSharedOnceMadeAndThrowsBefore)
{
    std::promise<std::vector<int>> codes;
    auto outcome = codes.get_future();
    std::thread([&codes] {
        std::vector<int> seen;
        for (int i = 0; i < 2; ++i) {
            try {
                Explicit::getInstance();
                seen.push_back(0);
            } catch (Exception const& e) {
                seen.push_back(e.getCode());
            }
        }
        Explicit* owned = new Explicit(7);
        Explicit* shared = Explicit::getInstance();
        seen.push_back(shared == owned && shared->value == 7 && Explicit::count() == 2u);
        delete shared;
        seen.push_back(destroyed);
        delete owned;
        seen.push_back(destroyed);
        codes.set_value(seen);
    }).detach();
    ASSERT_EQ(outcome.wait_for(std::chrono::seconds(30)), std::future_status::ready) << "getInstance deadlocked";
    EXPECT_EQ(outcome.get(), (std::vector<int>{ReturnInvalidState, ReturnInvalidState, 1, 0, 1}));
}

// Concurrent first use creates exactly one instance; concurrent release and
// reuse while one reference is held keep the count and the instance.
TEST_F(Singletons, ConcurrentUseCreatesOneInstanceAndKeepsTheCount)
{
    std::vector<std::thread> threads;
    std::vector<Counted*> seen(8);
    for (int i = 0; i < 8; ++i)
        threads.emplace_back([&seen, i] { seen[i] = Counted::getInstance(); });
    for (auto& t : threads)
        t.join();
    threads.clear();
    EXPECT_EQ(constructed, 1);
    for (Counted* p : seen)
        EXPECT_EQ(p, seen[0]);
    EXPECT_EQ(Counted::count(), 9u);
    for (int i = 0; i < 7; ++i)
        delete seen[0];

    Counted* held = seen[0]; // count 2: the instance stays throughout
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([] {
            for (int i = 0; i < 20000; ++i)
                delete Counted::getInstance();
        });
    for (auto& thread : threads)
        thread.join();
    EXPECT_EQ(Counted::count(), 2u);
    EXPECT_EQ(Counted::current(), held);
    EXPECT_EQ(destroyed, 0);
    delete held;
    delete held;
    EXPECT_EQ(destroyed, 1);
}
