#include "store/EAVStore.h"

#include "frame/DebugPrint.h"
#include "store/EAVDatabase.h"
#include "frame/Exception.h"

#include <filesystem>
#include <system_error>

namespace Velmora {

static char const MODULE[] = "EAVStore";

EAVStore::EAVStore(std::string const& name, std::string const& directory, std::string const& extension)
    : EAVStoreProtected(name, directory, extension)
{
}

EAVStore::~EAVStore() = default;

void EAVStore::init()
{
    Mutex::ScopedLock lock(&databaseMutex);
    Mutex::ScopedLock readLock(&readMutex);
    if (db)
        return;
    std::error_code error;
    std::filesystem::create_directories(std::filesystem::path(path).parent_path(), error);
    if (error) {
        VLOG(DebugLevelError, "init(): can't create the directory of %s: %s\n", path.c_str(),
             error.message().c_str());
        throwException(MODULE, __LINE__, "init", ReturnGenericFailure);
    }
    auto writer = std::make_unique<EAVDatabase>(path, EAVDatabase::Role::Writer);
    reader = std::make_unique<EAVDatabase>(path, EAVDatabase::Role::Reader);
    db = std::move(writer);
    VLOG(DebugLevelInfo, "init(): opened %s\n", path.c_str());
}

void EAVStore::reset()
{
    Mutex::ScopedLock lock(&databaseMutex);
    database("reset").removeAll();
}

void EAVStore::setValue(std::string const& entity, std::string const& attribute, std::string const& value)
{
    setValueList({{entity, {attribute, value}}});
}

void EAVStore::setValueList(EntityAttributeValueList const& list)
{
    {
        Mutex::ScopedLock lock(&databaseMutex);
        write(database("setValueList"), list);
        queueCommit(list);
    }
    deliverCommits();
}

void EAVStore::write(EAVDatabase& database, EntityAttributeValueList const& list)
{
    // A single statement is a transaction of its own.
    if (list.size() == 1) {
        database.upsert(list.front().first, list.front().second.first, list.front().second.second);
        return;
    }
    EAVDatabase::Transaction transaction(database, "setValueList");
    for (auto const& [entity, attributeValue] : list)
        database.upsert(entity, attributeValue.first, attributeValue.second);
    transaction.commit();
}

void EAVStore::removeEntity(std::string const& entity)
{
    Mutex::ScopedLock lock(&databaseMutex);
    database("removeEntity").removeEntity(entity);
}

} // namespace Velmora
