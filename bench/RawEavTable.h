// The plainest form of an entity-attribute-value store: one SQLite table with
// the store's file settings (WAL, full sync), an upsert and a select by entity.
// Baselines of the settings and manifest figures. One thread at a time.
#pragma once

#include <sqlite3.h>

#include <string>

class RawEavTable {
public:
    explicit RawEavTable(std::string const& file)
    {
        sqlite3_open(file.c_str(), &db);
        sqlite3_exec(db, "PRAGMA journal_mode = WAL; PRAGMA synchronous = FULL;"
                         "CREATE TABLE IF NOT EXISTS eav (entity TEXT NOT NULL, attribute TEXT NOT NULL,"
                         " value TEXT NOT NULL, UNIQUE (entity, attribute))",
                     nullptr, nullptr, nullptr);
        sqlite3_prepare_v2(db,
                           "INSERT INTO eav (entity, attribute, value) VALUES (?1, ?2, ?3) "
                           "ON CONFLICT (entity, attribute) DO UPDATE SET value = excluded.value",
                           -1, &upsert, nullptr);
        sqlite3_prepare_v2(db, "SELECT attribute, value FROM eav WHERE entity = ?1 ORDER BY rowid", -1, &select,
                           nullptr);
    }
    ~RawEavTable()
    {
        sqlite3_finalize(upsert);
        sqlite3_finalize(select);
        sqlite3_close(db);
    }
    RawEavTable(RawEavTable const&) = delete;
    RawEavTable& operator=(RawEavTable const&) = delete;

    void begin() { sqlite3_exec(db, "BEGIN", nullptr, nullptr, nullptr); }
    void commit() { sqlite3_exec(db, "COMMIT", nullptr, nullptr, nullptr); }
    void write(std::string const& entity, std::string const& attribute, std::string const& value)
    {
        sqlite3_bind_text(upsert, 1, entity.data(), static_cast<int>(entity.size()), SQLITE_STATIC);
        sqlite3_bind_text(upsert, 2, attribute.data(), static_cast<int>(attribute.size()), SQLITE_STATIC);
        sqlite3_bind_text(upsert, 3, value.data(), static_cast<int>(value.size()), SQLITE_STATIC);
        sqlite3_step(upsert);
        sqlite3_reset(upsert);
    }

    sqlite3* db = nullptr;
    sqlite3_stmt* upsert = nullptr;
    sqlite3_stmt* select = nullptr; // bound and stepped by the reader
};
