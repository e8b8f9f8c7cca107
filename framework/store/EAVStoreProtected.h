// The read side of a persistent store of (entity, attribute, value) strings, and
// its listener list. EAVStore adds opening and writing.
//
// A store is one SQLite file "<directory>/<name><extension>". A value is absent
// or one string; entities and attributes exist while they hold a value. Lists
// come in insertion order (an overwritten value keeps its place).
//
// Threads: every public operation may be called from any thread; the store
// locks for itself. Reads go through a connection of their own under their own
// lock, so a read never waits for a write's commit. Before EAVStore::init() every read throws
// Exception(ReturnInvalidState). A database failure throws Exception after a
// level 1 line naming the file and the database's message.
// Ownership: listener pointers are not owned; a listener removes itself before
// it dies.
#pragma once

#include "store/EAVStoreListener.h"
#include "frame/Mutex.h"

#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace Velmora {

class EAVDatabase;

class EAVStoreProtected {
public:
    using AttributeValue = std::pair<std::string, std::string>;
    using AttributeValueList = std::vector<AttributeValue>;
    // (entity, (attribute, value)).
    using EntityAttributeValue = std::pair<std::string, AttributeValue>;
    using EntityAttributeValueList = std::vector<EntityAttributeValue>;

    EAVStoreProtected(EAVStoreProtected const&) = delete;
    EAVStoreProtected& operator=(EAVStoreProtected const&) = delete;
    virtual ~EAVStoreProtected();

    // The value of (entity, attribute); empty when absent.
    std::string getValue(std::string const& entity, std::string const& attribute) const;
    std::vector<std::string> getEntities() const;
    std::vector<std::string> getAttributes(std::string const& entity) const;
    AttributeValueList getAttributeValueList(std::string const& entity) const;
    // Every triple of the store, in insertion order, read in one statement: the
    // whole store as one consistent snapshot, for readers that want all of it.
    EntityAttributeValueList getEntityAttributeValueList() const;

    // Subscribes or unsubscribes an EAVStoreListener; false when `listener` is
    // null, of another family, already present (add) or absent (remove).
    bool addListener(IListener* listener);
    bool removeListener(IListener* listener);

    // "<directory>/<name><extension>".
    std::string const& getPath() const;

protected:
    EAVStoreProtected(std::string const& name, std::string const& directory, std::string const& extension);

    // The writing connection, under `databaseMutex`; throws ReturnInvalidState
    // for `operation` before init().
    EAVDatabase& database(char const* operation) const;

    // Queues `written` for the listeners; called under `databaseMutex` right
    // after its commit, so that the queue holds commits in their order.
    void queueCommit(EntityAttributeValueList const& written);
    // Tells the listeners of every queued commit, in order: each commit's
    // onEAVUpdate calls, then its onEAVCommit. Called by the writer after the
    // commit with no store lock held. While another thread is telling, that
    // thread tells of the queued commits too and this call returns at once; a
    // write from inside a listener is told at once, before the rest of the
    // commit that called the listener.
    void deliverCommits();

    std::string const path;
    mutable Mutex databaseMutex{"EAVStore"};
    std::unique_ptr<EAVDatabase> db; // guarded by databaseMutex
    mutable Mutex readMutex{"EAVStoreReads"};
    std::unique_ptr<EAVDatabase> reader; // guarded by readMutex

private:
    // The reading connection, under `readMutex`; throws like database().
    EAVDatabase& readDatabase(char const* operation) const;
    // Tells every listener about one commit.
    void tell(EntityAttributeValueList const& written);

    Mutex listenerMutex{"EAVStoreListeners"};
    std::vector<EAVStoreListener*> listeners; // guarded by listenerMutex
    bool listenersChanged = false;

    std::mutex deliveryMutex;
    std::deque<EntityAttributeValueList> committed; // not yet told; guarded by deliveryMutex
    std::optional<std::thread::id> teller;          // the thread telling now; guarded by deliveryMutex
};

} // namespace Velmora
