#include "store/EAVDatabase.h"

#include "frame/DebugPrint.h"
#include "frame/Exception.h"

#include <sqlite3.h>

namespace Velmora {

static char const MODULE[] = "EAVDatabase";

namespace {

// Marks a file as one of ours, so that another program's database is refused.
constexpr char const* APPLICATION_ID = "1447379286"; // "VEAV"

ReturnCode returnCodeOf(int sqliteCode)
{
    switch (sqliteCode & 0xff) {
    case SQLITE_NOMEM:
        return ReturnOutOfMemory;
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
        return ReturnTimedOut;
    default:
        return ReturnGenericFailure;
    }
}

} // namespace

EAVDatabase::Statement::Statement(EAVDatabase& database, char const* sql)
    : database(database), handle(nullptr, sqlite3_finalize)
{
    sqlite3_stmt* prepared = nullptr;
    int rc = sqlite3_prepare_v3(database.connection.get(), sql, -1, SQLITE_PREPARE_PERSISTENT, &prepared, nullptr);
    handle.reset(prepared);
    if (rc != SQLITE_OK)
        database.fail("prepare", __LINE__, rc);
}

bool EAVDatabase::Statement::first(std::vector<std::string const*> const& texts, char const* operation)
{
    rewind();
    int index = 1;
    for (std::string const* text : texts) {
        int rc = sqlite3_bind_text(handle.get(), index++, text->data(), static_cast<int>(text->size()), SQLITE_STATIC);
        if (rc != SQLITE_OK)
            database.fail(operation, __LINE__, rc);
    }
    return step(operation);
}

bool EAVDatabase::Statement::next(char const* operation)
{
    return step(operation);
}

std::string EAVDatabase::Statement::text(int column) const
{
    auto const* data = reinterpret_cast<char const*>(sqlite3_column_text(handle.get(), column));
    return data ? std::string(data, static_cast<std::size_t>(sqlite3_column_bytes(handle.get(), column))) : std::string();
}

void EAVDatabase::Statement::run(std::vector<std::string const*> const& texts, char const* operation)
{
    first(texts, operation);
    rewind();
}

void EAVDatabase::Statement::rewind()
{
    // The bound texts belong to the caller: drop them with the cursor.
    sqlite3_reset(handle.get());
    sqlite3_clear_bindings(handle.get());
}

bool EAVDatabase::Statement::step(char const* operation)
{
    int rc = sqlite3_step(handle.get());
    if (rc == SQLITE_ROW)
        return true;
    if (rc == SQLITE_DONE)
        return false;
    rewind();
    database.fail(operation, __LINE__, rc);
}

EAVDatabase::Transaction::Transaction(EAVDatabase& database, char const* operation)
    : database(database), operation(operation)
{
    database.beginTransaction->run({}, operation);
}

EAVDatabase::Transaction::~Transaction()
{
    // A failed COMMIT may already have rolled back.
    if (!open || sqlite3_get_autocommit(database.connection.get()))
        return;
    runLoggingExceptions(MODULE, __LINE__, operation, [this] { database.rollbackTransaction->run({}, operation); });
}

void EAVDatabase::Transaction::commit()
{
    database.commitTransaction->run({}, operation);
    open = false;
}

EAVDatabase::EAVDatabase(std::string const& path, Role role)
    : path(path), connection(nullptr, sqlite3_close_v2)
{
    sqlite3* opened = nullptr;
    int rc = sqlite3_open_v2(path.c_str(), &opened, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX,
                             nullptr);
    connection.reset(opened);
    if (rc != SQLITE_OK)
        fail("open", __LINE__, rc);
    sqlite3_extended_result_codes(opened, 1);
    if (sqlite3_db_readonly(opened, "main") != 0) {
        VLOG(DebugLevelError, "open(): %s can only be read\n", path.c_str());
        throwException(MODULE, __LINE__, "open", ReturnGenericFailure);
    }
    sqlite3_busy_timeout(opened, 5000);
    if (role == Role::Reader) {
        execute("PRAGMA query_only = 1", "open");
        prepareReads();
        return;
    }
    // Nothing is written before the file is known to be sound and ours.
    checkIntegrity();
    bool fresh = isFresh();
    configure();
    if (fresh)
        createTable();
    prepareWrites();
}

void EAVDatabase::prepareReads()
{
    selectValue = std::make_unique<Statement>(*this, "SELECT value FROM eav WHERE entity = ?1 AND attribute = ?2");
    selectEntities = std::make_unique<Statement>(*this, "SELECT entity FROM eav GROUP BY entity ORDER BY MIN(rowid)");
    selectAttributes = std::make_unique<Statement>(*this, "SELECT attribute FROM eav WHERE entity = ?1 ORDER BY rowid");
    selectAttributeValues =
        std::make_unique<Statement>(*this, "SELECT attribute, value FROM eav WHERE entity = ?1 ORDER BY rowid");
    selectAll = std::make_unique<Statement>(*this, "SELECT entity, attribute, value FROM eav ORDER BY rowid");
}

void EAVDatabase::prepareWrites()
{
    upsertValue = std::make_unique<Statement>(
        *this, "INSERT INTO eav (entity, attribute, value) VALUES (?1, ?2, ?3) "
               "ON CONFLICT (entity, attribute) DO UPDATE SET value = excluded.value");
    deleteEntity = std::make_unique<Statement>(*this, "DELETE FROM eav WHERE entity = ?1");
    deleteAll = std::make_unique<Statement>(*this, "DELETE FROM eav");
    beginTransaction = std::make_unique<Statement>(*this, "BEGIN IMMEDIATE");
    commitTransaction = std::make_unique<Statement>(*this, "COMMIT");
    rollbackTransaction = std::make_unique<Statement>(*this, "ROLLBACK");
}

EAVDatabase::~EAVDatabase() = default;

std::string EAVDatabase::execute(char const* sql, char const* operation)
{
    Statement statement(*this, sql);
    return statement.first({}, operation) ? statement.text(0) : std::string();
}

void EAVDatabase::checkIntegrity()
{
    std::string verdict = execute("PRAGMA quick_check", "open");
    if (verdict == "ok")
        return;
    VLOG(DebugLevelError, "open(): %s is damaged: %s\n", path.c_str(), verdict.c_str());
    throwException(MODULE, __LINE__, "open", ReturnGenericFailure);
}

void EAVDatabase::configure()
{
    std::string mode = execute("PRAGMA journal_mode = WAL", "open");
    if (mode != "wal") {
        VLOG(DebugLevelError, "open(): %s refuses WAL mode (%s)\n", path.c_str(), mode.c_str());
        throwException(MODULE, __LINE__, "open", ReturnGenericFailure);
    }
    execute("PRAGMA synchronous = FULL", "open");
}

bool EAVDatabase::isFresh()
{
    if (execute("SELECT count(*) FROM sqlite_schema", "open") == "0")
        return true;
    if (execute("PRAGMA application_id", "open") == APPLICATION_ID &&
        execute("SELECT count(*) FROM sqlite_schema WHERE type = 'table' AND name = 'eav'", "open") == "1")
        return false;
    VLOG(DebugLevelError, "open(): %s is a database of another kind\n", path.c_str());
    throwException(MODULE, __LINE__, "open", ReturnGenericFailure);
}

void EAVDatabase::createTable()
{
    // Another process may be creating the same file: the creation is repeated
    // harmlessly under the write lock.
    execute("BEGIN IMMEDIATE", "open");
    execute("CREATE TABLE IF NOT EXISTS eav (entity TEXT NOT NULL, attribute TEXT NOT NULL, value TEXT NOT NULL, "
            "UNIQUE (entity, attribute))",
            "open");
    execute((std::string("PRAGMA application_id = ") + APPLICATION_ID).c_str(), "open");
    execute("COMMIT", "open");
}

std::string EAVDatabase::getValue(std::string const& entity, std::string const& attribute)
{
    std::string value = selectValue->first({&entity, &attribute}, "getValue") ? selectValue->text(0) : std::string();
    selectValue->rewind();
    return value;
}

std::vector<std::string> EAVDatabase::getEntities()
{
    std::vector<std::string> entities;
    for (bool row = selectEntities->first({}, "getEntities"); row; row = selectEntities->next("getEntities"))
        entities.push_back(selectEntities->text(0));
    return entities;
}

std::vector<std::string> EAVDatabase::getAttributes(std::string const& entity)
{
    std::vector<std::string> attributes;
    for (bool row = selectAttributes->first({&entity}, "getAttributes"); row;
         row = selectAttributes->next("getAttributes"))
        attributes.push_back(selectAttributes->text(0));
    return attributes;
}

EAVDatabase::AttributeValueList EAVDatabase::getAttributeValueList(std::string const& entity)
{
    AttributeValueList list;
    for (bool row = selectAttributeValues->first({&entity}, "getAttributeValueList"); row;
         row = selectAttributeValues->next("getAttributeValueList"))
        list.emplace_back(selectAttributeValues->text(0), selectAttributeValues->text(1));
    return list;
}

EAVDatabase::EntityAttributeValueList EAVDatabase::getEntityAttributeValueList()
{
    EntityAttributeValueList list;
    for (bool row = selectAll->first({}, "getEntityAttributeValueList"); row;
         row = selectAll->next("getEntityAttributeValueList"))
        list.push_back({selectAll->text(0), {selectAll->text(1), selectAll->text(2)}});
    return list;
}

void EAVDatabase::upsert(std::string const& entity, std::string const& attribute, std::string const& value)
{
    upsertValue->run({&entity, &attribute, &value}, "setValue");
}

void EAVDatabase::removeEntity(std::string const& entity)
{
    deleteEntity->run({&entity}, "removeEntity");
}

void EAVDatabase::removeAll()
{
    deleteAll->run({}, "reset");
}

void EAVDatabase::fail(char const* operation, int line, int sqliteCode) const
{
    sqlite3* handle = connection.get();
    char const* message = handle ? sqlite3_errmsg(handle) : sqlite3_errstr(sqliteCode);
    VLOG(DebugLevelError, "%s(): %s: %s (%d)\n", operation, path.c_str(), message, sqliteCode);
    throwException(MODULE, line, operation, returnCodeOf(sqliteCode));
}

} // namespace Velmora
