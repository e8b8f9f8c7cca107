// A fresh directory for one test, removed with everything in it at the end,
// and whole files read and written. One thread.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

class ScratchDirectory {
public:
    explicit ScratchDirectory(std::string const& prefix = "velmora-test")
    {
        std::string pattern = std::filesystem::temp_directory_path() / (prefix + "-XXXXXX");
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

inline std::string contentsOf(std::string const& file)
{
    std::ifstream in(file, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

inline void writeFile(std::string const& file, std::string const& bytes)
{
    std::ofstream(file, std::ios::binary | std::ios::trunc) << bytes;
}

// The file's lines without their line feeds; none when it is missing.
inline std::vector<std::string> readLines(std::filesystem::path const& file)
{
    std::ifstream in(file);
    std::vector<std::string> lines;
    for (std::string line; std::getline(in, line);)
        lines.push_back(line);
    return lines;
}
