// One connection to the SQLite file behind an EAVStore, with its prepared
// statements, each released by RAII. A store has two: the writer, which opens
// and checks the file and makes every change, and a reader, which only reads,
// so that in WAL mode a read never waits for a write's commit and sync.
//
// The file holds one table of (entity, attribute, value) rows, unique per
// (entity, attribute), in WAL mode with full synchronisation so that a commit
// that returned survives a crash of the process or the machine. Opening checks
// the file and refuses, by throwing, anything it can't use: a file that isn't
// a database, a damaged one, a database of some other program, one that can
// only be read. It never recreates or truncates a file.
//
// Threads: none of its own and no lock; the owning EAVStore serialises the
// calls of each connection.
// Failures: Exception, after a level 1 line with the file and SQLite's message.
#pragma once

#include <memory>
#include <string>
#include <utility>
#include <vector>

struct sqlite3;
struct sqlite3_stmt;

namespace Velmora {

class EAVDatabase {
public:
    using AttributeValueList = std::vector<std::pair<std::string, std::string>>;
    using EntityAttributeValueList = std::vector<std::pair<std::string, std::pair<std::string, std::string>>>;

    // One prepared statement, finalised with its owner.
    class Statement {
    public:
        Statement(EAVDatabase& database, char const* sql);
        // Binds the texts to ?1, ?2, ... and steps once; true when a row came.
        // The statement is reset by the next bind or by rewind().
        bool first(std::vector<std::string const*> const& texts, char const* operation);
        // Steps on; true while rows come.
        bool next(char const* operation);
        std::string text(int column) const;
        // Runs a statement that gives no rows.
        void run(std::vector<std::string const*> const& texts, char const* operation);
        void rewind();

    private:
        bool step(char const* operation);

        EAVDatabase& database;
        std::unique_ptr<sqlite3_stmt, int (*)(sqlite3_stmt*)> handle;
    };

    // The transaction of one write: BEGIN IMMEDIATE in the constructor, ROLLBACK
    // in the destructor unless commit() succeeded.
    class Transaction {
    public:
        Transaction(EAVDatabase& database, char const* operation);
        ~Transaction();
        Transaction(Transaction const&) = delete;
        Transaction& operator=(Transaction const&) = delete;
        void commit();

    private:
        EAVDatabase& database;
        char const* operation;
        bool open = true;
    };

    enum class Role {
        Writer, // opens or creates the file and checks it; the write operations
        Reader, // opens the file a writer has opened; the read operations only
    };

    EAVDatabase(std::string const& path, Role role);
    ~EAVDatabase();
    EAVDatabase(EAVDatabase const&) = delete;
    EAVDatabase& operator=(EAVDatabase const&) = delete;

    std::string getValue(std::string const& entity, std::string const& attribute);
    std::vector<std::string> getEntities();
    std::vector<std::string> getAttributes(std::string const& entity);
    AttributeValueList getAttributeValueList(std::string const& entity);
    EntityAttributeValueList getEntityAttributeValueList();

    // Writes; callers wrap them in a Transaction.
    void upsert(std::string const& entity, std::string const& attribute, std::string const& value);
    void removeEntity(std::string const& entity);
    void removeAll();

    // Logs SQLite's message for `operation` and throws the matching Exception.
    [[noreturn]] void fail(char const* operation, int line, int sqliteCode) const;

private:
    // Runs a statement text that yields at most one text value, which it returns.
    std::string execute(char const* sql, char const* operation);
    void prepareReads();
    void prepareWrites();
    void configure();
    void checkIntegrity();
    // True for an empty database; throws for one that isn't a store.
    bool isFresh();
    void createTable();

    std::string const path;
    std::unique_ptr<sqlite3, int (*)(sqlite3*)> connection;
    // Reader statements.
    std::unique_ptr<Statement> selectValue;
    std::unique_ptr<Statement> selectEntities;
    std::unique_ptr<Statement> selectAttributes;
    std::unique_ptr<Statement> selectAttributeValues;
    std::unique_ptr<Statement> selectAll;
    // Writer statements.
    std::unique_ptr<Statement> upsertValue;
    std::unique_ptr<Statement> deleteEntity;
    std::unique_ptr<Statement> deleteAll;
    std::unique_ptr<Statement> beginTransaction;
    std::unique_ptr<Statement> commitTransaction;
    std::unique_ptr<Statement> rollbackTransaction;
};

} // namespace Velmora
