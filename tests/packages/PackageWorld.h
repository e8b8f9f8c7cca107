// Test world for the package classes: small real RPM packages built once per
// build tree with rpmbuild, and per test a private directory holding the
// sysroot (the packager's stores), an RPM root with its own database, a
// repository directory and the macro file that points RPM at them.
#pragma once

#include "ScopedEnv.h"
#include "ScratchDirectory.h"

#include <filesystem>
#include <map>
#include <string>
#include <vector>

namespace VelmoraTest {

struct PackageSpec {
    std::string name;
    std::string version;
    std::string group;
    std::string description;
    std::vector<std::string> requires_;
    std::string summary = ""; // empty: "summary of <name>"
};

// The names of a list of package records, in its order.
template <class List>
std::vector<std::string> namesOf(List const& list)
{
    std::vector<std::string> out;
    for (auto const& record : list)
        out.push_back(record.getName());
    return out;
}

class PackageWorld {
public:
    // Settings written to the packager's settings store before any packager
    // exists; RootPath, MacrosPath and RepositoryPath are filled in.
    explicit PackageWorld(std::map<std::string, std::string> settings = {});

    // The package file of a test package (built on first use, then cached).
    static std::filesystem::path package(std::string const& key);
    // Builds `specs` into `directory` in one rpmbuild run (subpackages of one
    // spec), unless they are there already.
    static void buildMany(std::filesystem::path const& directory, std::vector<PackageSpec> const& specs);

    std::filesystem::path const& root() const { return rootPath; }
    std::filesystem::path const& repository() const { return repositoryPath; }
    // Installs package files into the private root with the rpm tool.
    void installWithTool(std::vector<std::filesystem::path> const& files) const;
    // Builds `specs` once as the set `set` of the build tree's cache, and installs them all.
    void installMany(std::string const& set, std::vector<PackageSpec> const& specs) const;
    // Copies a test package into the repository under `fileName` (default: its own name).
    std::filesystem::path offer(std::string const& key, std::string const& fileName = "") const;

private:
    ScratchDirectory const scratch{"velmora-packages"};
    std::filesystem::path const base = scratch.get();
    std::filesystem::path const rootPath = base / "root";
    std::filesystem::path const repositoryPath = base / "repository";
    std::filesystem::path const macroPath = base / "macros";
    ScopedEnv const sysroot{"VELMORA_ROOT", (base / "sysroot").string()};
};

} // namespace VelmoraTest
