// The read side of a persistent store of (entity, attribute, value) strings, and
// its listener list. EAVStore adds opening and writing.
//
// A store is one SQLite file "<directory>/<name><extension>". A value is absent
// or one string; entities and attributes exist while they hold a value. Lists
// come in insertion order (an overwritten value keeps its place).
//
// Threads: every public operation may be called from any thread; the store
// locks for itself. Before EAVStore::init() every read throws
// Exception(ReturnInvalidState). A database failure throws Exception after a
// level 1 line naming the file and the database's message.
// Ownership: listener pointers are not owned; a listener removes itself before
// it dies.
#pragma once

#include "EAVStoreListener.h"
#include "Mutex.h"

#include <memory>
#include <string>
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

    // The open database, under `databaseMutex`; throws ReturnInvalidState for
    // `operation` before init().
    EAVDatabase& database(char const* operation) const;

    // Tells every listener about `written` and then the commit; called by the
    // writer after the commit, with no store lock held.
    void notifyCommit(EntityAttributeValueList const& written);

    std::string const path;
    mutable Mutex databaseMutex{"EAVStore"};
    std::unique_ptr<EAVDatabase> db; // guarded by databaseMutex

private:
    Mutex listenerMutex{"EAVStoreListeners"};
    std::vector<EAVStoreListener*> listeners; // guarded by listenerMutex
    bool listenersChanged = false;
};

} // namespace Velmora
