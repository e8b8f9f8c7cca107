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

class DerivedCounted : public Counted {
public:
    int extra = 42;
};

class Explicit : public ExplicitSingleton<Explicit> {
public:
    explicit Explicit(int value) : value(value) {}
    ~Explicit() override { ++destroyed; }
    static unsigned int count() { return refCount; }
    int value;
};

class NeverCreated : public ExplicitSingleton<NeverCreated> {};

struct Singletons : testing::Test {
    void SetUp() override
    {
        constructed = 0;
        destroyed = 0;
    }
};

} // namespace

TEST_F(Singletons, FirstGetInstanceCountsTwiceAndTheLastDeleteDestroys)
{
    Counted* first = Counted::getInstance();
    EXPECT_EQ(Counted::count(), 2u);
    Counted* second = Counted::getInstance();
    EXPECT_EQ(first, second);
    EXPECT_EQ(Counted::count(), 3u);
    EXPECT_EQ(constructed, 1);

    delete second;
    delete first;
    EXPECT_EQ(destroyed, 0);
    EXPECT_EQ(Counted::count(), 1u);
    delete first;
    EXPECT_EQ(destroyed, 1);
    EXPECT_EQ(Counted::current(), nullptr);

    Counted* again = Counted::getInstance();
    EXPECT_EQ(constructed, 2);
    delete again;
    delete again;
    EXPECT_EQ(destroyed, 2);
}

TEST_F(Singletons, DeletingAnObjectThatIsNotTheInstanceDoesNothing)
{
    Counted* instance = Counted::getInstance();
    Counted* stray = new Counted; // its base constructor makes it the instance...
    EXPECT_EQ(Counted::current(), stray);
    delete instance;              // ...so this pointer is ignored
    EXPECT_EQ(destroyed, 0);
    delete stray;
    delete stray;
    delete stray;
    EXPECT_EQ(destroyed, 1);
    // `instance` was never released by design; free it by hand for the leak checker.
    instance->~Counted();
    ::operator delete(instance);
}

TEST_F(Singletons, GetInstanceCanCreateADerivedClass)
{
    Counted* instance = Counted::getInstance<DerivedCounted>();
    ASSERT_NE(dynamic_cast<DerivedCounted*>(instance), nullptr);
    EXPECT_EQ(dynamic_cast<DerivedCounted*>(instance)->extra, 42);
    delete instance;
    delete instance;
    EXPECT_EQ(destroyed, 1);
}

TEST_F(Singletons, ConcurrentFirstUseCreatesExactlyOneInstance)
{
    std::vector<std::thread> threads;
    std::vector<Counted*> seen(8);
    for (int i = 0; i < 8; ++i)
        threads.emplace_back([&seen, i] { seen[i] = Counted::getInstance(); });
    for (auto& t : threads)
        t.join();
    EXPECT_EQ(constructed, 1);
    for (Counted* p : seen)
        EXPECT_EQ(p, seen[0]);
    EXPECT_EQ(Counted::count(), 9u);
    for (int i = 0; i < 9; ++i)
        delete seen[0];
    EXPECT_EQ(destroyed, 1);
}

TEST_F(Singletons, ExplicitSingletonIsCreatedByItsOwnerAndSharedAfterwards)
{
    Explicit* owned = new Explicit(7);
    EXPECT_EQ(Explicit::count(), 1u);
    Explicit* shared = Explicit::getInstance();
    EXPECT_EQ(shared, owned);
    EXPECT_EQ(shared->value, 7);
    delete shared;
    EXPECT_EQ(destroyed, 0);
    delete owned;
    EXPECT_EQ(destroyed, 1);
}

TEST_F(Singletons, ExplicitSingletonUsedBeforeCreationThrowsAndStaysUsable)
{
    // On a thread of its own, so that a mutex left locked fails the test instead of hanging it.
    std::promise<std::vector<int>> codes;
    auto outcome = codes.get_future();
    std::thread([&codes] {
        std::vector<int> seen;
        for (int i = 0; i < 2; ++i) {
            try {
                NeverCreated::getInstance();
                seen.push_back(0);
            } catch (Exception const& e) {
                seen.push_back(e.getCode());
            }
        }
        NeverCreated* created = new NeverCreated;
        seen.push_back(NeverCreated::getInstance() == created ? 1 : -1);
        delete created;
        delete created;
        codes.set_value(seen);
    }).detach();
    ASSERT_EQ(outcome.wait_for(std::chrono::seconds(30)), std::future_status::ready) << "getInstance deadlocked";
    EXPECT_EQ(outcome.get(), (std::vector<int>{ReturnInvalidState, ReturnInvalidState, 1}));
}

TEST_F(Singletons, ConcurrentReleaseAndReuseKeepTheCount)
{
    Counted* held = Counted::getInstance(); // count 2: the instance stays throughout
    std::vector<std::thread> threads;
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
