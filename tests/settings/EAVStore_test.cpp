// The store in one process: its contract, its notifications, bad files, and
// several threads at once.
#include "store/EAVStore.h"
#include "frame/Exception.h"
#include "Journal.h"
#include "ReturnCodeOf.h"
#include "IntegrityOf.h"
#include "ScratchDirectory.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <future>
#include <map>
#include <thread>
#include <vector>

using namespace Velmora;
using Strings = std::vector<std::string>;

namespace {

// Records every notification as one line, in arrival order.
struct Recorder : EAVStoreListener, VelmoraTest::Journal {
    int onEAVUpdate(std::string const& entity, std::string const& attribute, std::string const& value) override
    {
        add(entity + "." + attribute + "=" + value);
        return 0;
    }
    int onEAVCommit() override
    {
        add("commit");
        return 0;
    }
};

// A store whose writing lock a test may hold, as a writer waiting for the
// disk or for another process's lock does.
struct Store : EAVStore {
    using EAVStore::EAVStore;
    using EAVStore::databaseMutex;
};

class EAVStoreTest : public testing::Test {
protected:
    Store& open()
    {
        store = std::make_unique<Store>("Test", scratch.get(), ".db");
        store->init();
        return *store;
    }
    std::string file() const { return scratch.file("Test.db"); }

    ScratchDirectory scratch;
    std::unique_ptr<Store> store;
};

} // namespace

// Before init the store refuses use and has touched no file. Insertion order
// is kept, one value per attribute, texts byte for byte; a second init keeps
// the open database; removals and resets last beyond reopening.
TEST_F(EAVStoreTest, KeepsInsertionOrderAndTextsAndRefusesUseBeforeInit)
{
    static char const RAW[] = "quote\" nul\0 tab\t \xc3\xa9 '; DROP TABLE eav; --";
    std::string const awkward(RAW, sizeof RAW - 1);
    {
        EAVStore s("Test", scratch.get(), ".db");
        EXPECT_EQ(returnCodeOf([&] { s.getValue("a", "b"); }), ReturnInvalidState);
        EXPECT_EQ(returnCodeOf([&] { s.setValue("a", "b", "c"); }), ReturnInvalidState);
        EXPECT_FALSE(std::filesystem::exists(file())) << "construction touches no file";
        s.init();
        s.setValue("net", "dns", "1.1.1.1");
        s.setValue("audio", "volume", "7");
        s.setValue("net", "ip", "10.0.0.2");
        s.setValue("net", "dns", "9.9.9.9"); // overwritten values keep their place
        EXPECT_EQ(s.getEntities(), (Strings{"net", "audio"}));
        EXPECT_EQ(s.getAttributes("net"), (Strings{"dns", "ip"}));
        EXPECT_EQ(s.getValue("net", "dns"), "9.9.9.9");
        EXPECT_EQ(s.getAttributeValueList("net"),
                  (EAVStore::AttributeValueList{{"dns", "9.9.9.9"}, {"ip", "10.0.0.2"}}));
        EXPECT_EQ(s.getEntityAttributeValueList(), (EAVStore::EntityAttributeValueList{{"net", {"dns", "9.9.9.9"}},
                                                                                      {"audio", {"volume", "7"}},
                                                                                      {"net", {"ip", "10.0.0.2"}}}));
        EXPECT_EQ(s.getValue("net", "gateway"), "");
        EXPECT_TRUE(s.getAttributes("nowhere").empty());
        EXPECT_TRUE(s.getAttributeValueList("nowhere").empty());
        s.init();
        s.setValue(awkward, awkward, awkward);
        s.setValue("", "", "empty names");
        EXPECT_EQ(s.getValue(awkward, awkward), awkward);
        EXPECT_EQ(s.getValue("", ""), "empty names");
        s.removeEntity("net");
        s.removeEntity("missing");
    }
    EAVStore& reopened = open();
    EXPECT_EQ(reopened.getEntities(), (Strings{"audio", awkward, ""}));
    reopened.reset();
    EXPECT_TRUE(reopened.getEntities().empty());
    reopened.setValue("d", "x", "5");
    EXPECT_EQ(open().getEntities(), (Strings{"d"}));
    EXPECT_EQ(integrityOf(file()), "ok");
}

// Every listener hears each write, then the commit; one that throws neither
// undoes the write nor keeps it from the others.
TEST_F(EAVStoreTest, ListenersHearEachWriteThenTheCommit)
{
    struct Thrower : EAVStoreListener {
        int onEAVUpdate(std::string const&, std::string const&, std::string const&) override
        {
            throw Exception(ReturnGenericFailure);
        }
        int onEAVCommit() override { throw std::runtime_error("commit listener broke"); }
    } thrower;
    EAVStore& s = open();
    Recorder first;
    Recorder second;
    for (EAVStoreListener* listener : std::initializer_list<EAVStoreListener*>{&thrower, &first, &second, &first})
        s.addListener(listener); // the second add of `first` changes nothing: it hears once below

    s.setValueList({{"p", {"Path", "/r/p.rpm"}}, {"p", {"Group", "g"}}, {"p", {"Path", "/r/q.rpm"}}});
    EXPECT_EQ(first.take(), (Strings{"p.Path=/r/p.rpm", "p.Group=g", "p.Path=/r/q.rpm", "commit"}));
    EXPECT_EQ(second.take().size(), 4u);
    EXPECT_EQ(s.getValue("p", "Path"), "/r/q.rpm") << "the later element of a list wins";

    s.setValueList({});
    EXPECT_EQ(first.take(), (Strings{"commit"}));
    s.removeEntity("p");
    s.reset();
    EXPECT_TRUE(first.take().empty()) << "removals tell no listener";

    EXPECT_TRUE(s.removeListener(&second));
    second.take();
    s.setValue("q", "a", "1");
    EXPECT_EQ(first.take(), (Strings{"q.a=1", "commit"}));
    EXPECT_TRUE(second.take().empty());
}

// A listener sees the committed value and may write back on its own thread;
// it may also hand a write to another thread and wait for it: that write
// commits at once and is told right after the commit that is being told.
TEST_F(EAVStoreTest, AListenerMayReadWriteBackAndWaitForAWriteOfAnotherThread)
{
    struct Reentrant : Recorder {
        EAVStore* store = nullptr;
        std::atomic<bool> handOver{false};
        std::future_status handed = std::future_status::deferred;
        int onEAVUpdate(std::string const& entity, std::string const& attribute, std::string const&) override
        {
            Recorder::onEAVUpdate(entity, attribute, store->getValue(entity, attribute));
            if (entity == "in")
                store->setValue("out", attribute, "echo");
            return 0;
        }
        int onEAVCommit() override
        {
            Recorder::onEAVCommit();
            if (handOver.exchange(false)) {
                auto write = std::async(std::launch::async, [this] { store->setValue("other", "b", "2"); });
                handed = write.wait_for(std::chrono::seconds(30)); // the bound only catches the deadlock
            }
            return 0;
        }
    } listener;
    EAVStore& s = open();
    listener.store = &s;
    s.addListener(&listener);
    s.setValue("in", "a", "1");
    EXPECT_EQ(listener.count("in.a=1") + listener.count("out.a=echo") + listener.count("commit"), 4u);
    EXPECT_EQ(s.getValue("out", "a"), "echo");
    listener.take();

    listener.handOver = true;
    s.setValue("first", "a", "1");
    EXPECT_EQ(listener.handed, std::future_status::ready);
    EXPECT_EQ(listener.take(), (Strings{"first.a=1", "commit", "other.b=2", "commit"}));
    EXPECT_EQ(s.getValue("other", "b"), "2");
}

// A file that is no store of ours (text, a damaged store, another program's
// database) is refused and left byte for byte as it was, and the refused
// store stays closed; a directory path that names a file is refused too,
// while missing directories are made.
TEST_F(EAVStoreTest, FilesThatAreNoStoreAreRefusedAndLeftAsTheyWere)
{
    auto text = [&] { writeFile(file(), "this is no database, just some text that happens to be here\n"); };
    auto damagedStore = [&] {
        EAVStore& s = open();
        for (int i = 0; i < 400; ++i)
            s.setValue("e" + std::to_string(i % 7), "a" + std::to_string(i), std::string(200, 'v'));
        store.reset();
        ASSERT_EQ(integrityOf(file()), "ok");
        std::string bytes = contentsOf(file());
        ASSERT_GT(bytes.size(), 8192u);
        // Scribble over the second page, an interior page of the table.
        for (std::size_t i = 4096; i < 4096 + 64; ++i)
            bytes[i] = static_cast<char>(0xA5);
        writeFile(file(), bytes);
    };
    auto foreignDatabase = [&] {
        sqlite3* db = nullptr;
        ASSERT_EQ(sqlite3_open(file().c_str(), &db), SQLITE_OK);
        ASSERT_EQ(sqlite3_exec(db, "CREATE TABLE accounts (name TEXT)", nullptr, nullptr, nullptr), SQLITE_OK);
        sqlite3_close(db);
    };
    for (auto const& make : {std::function<void()>(text), std::function<void()>(damagedStore),
                             std::function<void()>(foreignDatabase)}) {
        std::filesystem::remove(file());
        make();
        std::string const before = contentsOf(file());
        EAVStore s("Test", scratch.get(), ".db");
        EXPECT_EQ(returnCodeOf([&] { s.init(); }), ReturnGenericFailure);
        EXPECT_TRUE(contentsOf(file()) == before) << "the file was changed";
        EXPECT_THROW(s.getEntities(), Exception) << "a refused store stays closed";
    }
    writeFile(scratch.file("notadir"), "x");
    EAVStore underAFile("Test", scratch.file("notadir"), ".db");
    EXPECT_THROW(underAFile.init(), Exception);
    EAVStore deep("Test", scratch.file("a/b"), ".db"); // missing directories are made
    deep.init();
    deep.setValue("x", "y", "z");
    EXPECT_EQ(integrityOf(scratch.file("a/b/Test.db")), "ok");
}

// Readers check that each value only grows while a writer counts up and a
// second writer commits batches; listeners must hear batches whole; a read
// does not wait for the writer.
TEST_F(EAVStoreTest, ReadersAndWritersOnSeveralThreads)
{
    struct BatchChecker : EAVStoreListener {
        std::string open; // entity of the batch being heard
        int pending = 0;
        std::atomic<int> commits{0};
        std::atomic<bool> interleaved{false};
        int onEAVUpdate(std::string const& entity, std::string const&, std::string const&) override
        {
            if (pending != 0 && entity != open)
                interleaved = true;
            open = entity;
            ++pending;
            return 0;
        }
        int onEAVCommit() override
        {
            if (pending != 3)
                interleaved = true;
            pending = 0;
            ++commits;
            return 0;
        }
    } checker;
    Store& s = open();
    s.addListener(&checker);
    constexpr int ROUNDS = 150;
    std::atomic<bool> done{false};
    std::atomic<bool> wentBack{false};
    std::atomic<bool> torn{false};

    std::vector<std::thread> threads;
    for (int w = 0; w < 2; ++w)
        threads.emplace_back([&s, w] {
            std::string entity = "writer" + std::to_string(w);
            for (int i = 1; i <= ROUNDS; ++i) {
                std::string n = std::to_string(i);
                s.setValueList({{entity, {"a", n}}, {entity, {"b", n}}, {entity, {"c", n}}});
            }
        });
    for (int r = 0; r < 3; ++r)
        threads.emplace_back([&] {
            int last = 0;
            while (!done) {
                std::string value = s.getValue("writer0", "c");
                int now = value.empty() ? 0 : std::stoi(value);
                if (now < last)
                    wentBack = true;
                last = now;
                for (auto const& [attribute, text] : s.getAttributeValueList("writer1"))
                    if (text.empty())
                        wentBack = true;
                s.getEntities();
                // The whole store is one snapshot: a batch is in it whole or not at all.
                std::map<std::string, std::string> batch;
                for (auto const& [entity, attributeValue] : s.getEntityAttributeValueList())
                    if (entity == "writer1")
                        batch[attributeValue.first] = attributeValue.second;
                if (!batch.empty() && (batch.size() != 3 || batch["a"] != batch["b"] || batch["b"] != batch["c"]))
                    torn = true;
            }
        });
    threads[0].join();
    threads[1].join();
    done = true;
    for (std::size_t i = 2; i < threads.size(); ++i)
        threads[i].join();

    EXPECT_FALSE(wentBack);
    EXPECT_FALSE(torn);
    EXPECT_FALSE(checker.interleaved);
    EXPECT_EQ(checker.commits, 2 * ROUNDS);
    EXPECT_EQ(s.getValue("writer1", "b"), std::to_string(ROUNDS));
    EXPECT_EQ(integrityOf(file()), "ok");

    // Reads have a connection and a lock of their own: a read goes on while a
    // writer holds the writing connection.
    Mutex::ScopedLock writing(&s.databaseMutex);
    auto read = std::async(std::launch::async, [&] { return s.getAttributeValueList("writer0"); });
    ASSERT_EQ(read.wait_for(std::chrono::seconds(30)), std::future_status::ready); // the bound only catches the wait
    EXPECT_EQ(read.get().size(), 3u);
}
