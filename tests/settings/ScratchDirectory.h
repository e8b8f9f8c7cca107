// A fresh directory for one test, removed with everything in it at the end,
// and the raw look at a store file that the tests compare against.
#pragma once

#include <sqlite3.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

class ScratchDirectory {
public:
    ScratchDirectory()
    {
        std::string pattern = std::filesystem::temp_directory_path() / "velmora-store-XXXXXX";
        path = mkdtemp(pattern.data());
        // Readable by the unprivileged children of some tests.
        std::filesystem::permissions(path, std::filesystem::perms(0755));
    }
    ~ScratchDirectory()
    {
        std::error_code ignored;
        std::filesystem::permissions(path, std::filesystem::perms::owner_all, std::filesystem::perm_options::add,
                                     ignored);
        std::filesystem::remove_all(path, ignored);
    }
    ScratchDirectory(ScratchDirectory const&) = delete;
    ScratchDirectory& operator=(ScratchDirectory const&) = delete;

    std::string const& get() const { return path; }
    std::string file(std::string const& name) const { return path + "/" + name; }

private:
    std::string path;
};

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

inline std::string contentsOf(std::string const& file)
{
    std::ifstream in(file, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

inline void writeFile(std::string const& file, std::string const& bytes)
{
    std::ofstream(file, std::ios::binary | std::ios::trunc) << bytes;
}
