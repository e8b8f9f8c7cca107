// The raw look at a store file that the store tests compare against.
#pragma once

#include <sqlite3.h>

#include <string>

// The answer of PRAGMA integrity_check on the file, through a connection of
// its own ("ok" for a sound file).
inline std::string integrityOf(std::string const& file)
{
    sqlite3* db = nullptr;
    std::string verdict = "cannot open";
    if (sqlite3_open_v2(file.c_str(), &db, SQLITE_OPEN_READWRITE, nullptr) == SQLITE_OK) {
        sqlite3_stmt* statement = nullptr;
        if (sqlite3_prepare_v2(db, "PRAGMA integrity_check", -1, &statement, nullptr) == SQLITE_OK &&
            sqlite3_step(statement) == SQLITE_ROW)
            verdict = reinterpret_cast<char const*>(sqlite3_column_text(statement, 0));
        else
            verdict = sqlite3_errmsg(db);
        sqlite3_finalize(statement);
    }
    sqlite3_close_v2(db);
    return verdict;
}
