// A persistent store of (entity, attribute, value) strings: opening and writing.
// The read operations and the listener list are those of EAVStoreProtected.
//
// The file is a SQLite database in WAL mode. Every write operation is one
// transaction: when it returns the change is durable, when it throws nothing
// of it was applied. init() never replaces a file it can't use: a corrupt or
// foreign file, or a directory that can't be written, makes init() throw.
//
// Listeners hear onEAVUpdate for each (entity, attribute, value) written by
// setValue or setValueList, in list order, then onEAVCommit, after the commit
// and with no lock of the store held. They hear commits in the order they were
// made, one commit at a time: on the writing thread, unless another thread is
// telling the listeners already, in which case that thread tells of this
// commit next and the write returns at once. reset() and removeEntity() tell
// no listener.
//
// Threads: any thread may call anything; a listener may read the store from its
// callback, may write to it (the nested write's notifications come first), and
// may hand a write to another thread and wait for it.
#pragma once

#include "store/EAVStoreProtected.h"

#include <string>
#include <utility>
#include <vector>

namespace Velmora {

class EAVStore : public EAVStoreProtected {
public:
    // Remembers where the database lies; touches no file.
    EAVStore(std::string const& name, std::string const& directory, std::string const& extension);
    ~EAVStore() override;

    // Opens the file, creating it and its table when absent, and checks it.
    // A second call does nothing.
    void init();
    // Removes all triples.
    void reset();
    // Inserts or replaces the one value of (entity, attribute).
    void setValue(std::string const& entity, std::string const& attribute, std::string const& value);
    // Applies the whole list as one commit; a later element for the same
    // (entity, attribute) wins. An empty list commits nothing and tells only
    // onEAVCommit.
    void setValueList(EntityAttributeValueList const& list);
    // Removes all triples of the entity.
    void removeEntity(std::string const& entity);

private:
    // Applies the list as one transaction.
    static void write(EAVDatabase& database, EntityAttributeValueList const& list);
};

} // namespace Velmora
