#include "PackageWorld.h"

#include "store/EAVStore.h"

#include <cstdlib>
#include <fstream>
#include <stdexcept>

namespace fs = std::filesystem;

namespace VelmoraTest {

namespace {

// The test packages, by key. Names differ from keys where a test needs two
// files of the same package.
std::map<std::string, PackageSpec> const& catalogue()
{
    static std::map<std::string, PackageSpec> const specs{
        {"apple", {"apple", "1.0", "Velmora/App", R"({"applicationURL":"http://apple.example/","permissions":["net"]})", {}}},
        {"Banana", {"Banana", "2.0", "Velmora/App", "just words, not an object", {}}},
        {"cherry", {"cherry", "1.0", "Velmora/Service", R"({"applicationURL":"file:///svc/cherry"})", {"base >= 2"}}},
        {"date", {"date", "1.0", "Velmora/Other", "{}", {}}},
        {"quoted", {"quoted", "1.0", "Velmora/\"Quoted\"", "{}", {}}},
        {"fig", {"fig", "1.0", "Velmora/App", R"({"applicationURL":"http://fig.example/"})", {}}},
        {"fig2", {"fig", "2.0", "Velmora/App", "{}", {"base >= 2"}}},
        {"needy", {"needy", "1.0", "Velmora/App", "{}", {"missing-thing >= 1"}}},
        {"base", {"base", "2.0", "Velmora/Base", "{}", {}}},
        {"rich", {"rich", "1.0", "Velmora/App", "{}", {"(base or date)"}}},
        // Values that the header text changes, breaks or reads more into.
        {"escaped", {"escaped", "1.0", "Velmora/Odd", "{}", {}, R"(tab\there)"}},
        {"accented", {"accented", "1.0", "Velmora/Odd", R"({"applicationURL":"http://caf\u00e9.example/"})", {"base"},
                      "caf\xc3\xa9 cr\xc3\xa8me"}},
        {"commented", {"commented", "1.0", "Velmora/Odd", R"({"applicationURL":"http://c.example/"} // note)", {}}},
        {"injector", {"injector", "1.0", "Velmora/Odd", R"({"applicationURL":"http://i.example/"}, "name":"evil")", {}}},
        {"number", {"number", "1.0", "Velmora/Odd", "42", {}}},
        {"mistyped", {"mistyped", "1.0", "Velmora/Odd", R"({"applicationURL":7})", {}}},
    };
    return specs;
}

void run(std::string const& command)
{
    if (std::system(command.c_str()) != 0)
        throw std::runtime_error("command failed: " + command);
}

std::string specText(PackageSpec const& spec, bool subpackage)
{
    std::string const header = subpackage ? "%package -n " + spec.name + "\n" : "";
    std::string text = header + (subpackage ? "" : "Name: " + spec.name + "\nVersion: " + spec.version +
                                                       "\nRelease: 1\nLicense: none\nBuildArch: noarch\n"
                                                       "AutoReqProv: no\n");
    text += "Summary: " + (spec.summary.empty() ? "summary of " + spec.name : spec.summary) + "\nGroup: " + spec.group + "\nURL: http://example.invalid/" +
            spec.name + "\n";
    for (std::string const& requirement : spec.requires_)
        text += "Requires: " + requirement + "\n";
    std::string const suffix = subpackage ? " -n " + spec.name : "";
    text += "%description" + suffix + "\n" + spec.description + "\n%files" + suffix + "\n";
    return text;
}

void rpmbuild(fs::path const& directory, std::string const& spec)
{
    fs::path const top = directory / "top";
    fs::create_directories(top);
    fs::path const specFile = top / "packages.spec";
    std::ofstream(specFile) << spec;
    run("rpmbuild -bb --quiet --define '_topdir " + top.string() + "' --define '_rpmdir " + directory.string() +
        "' --define '_build_name_fmt %%{NAME}-%%{VERSION}.rpm' --define '__os_install_post %{nil}' "
        "--define '_build_id_links none' " + specFile.string() + " >/dev/null 2>&1");
    fs::remove_all(top);
}

// Builds the packages of `spec` into the cache folder `directory` unless it is
// there already. Test processes run in parallel and share the cache, so each
// builds in a private folder and renames it into place: a folder that exists
// is complete, and of two racing builders one wins and the other cleans up.
void buildOnce(fs::path const& directory, std::string const& spec)
{
    if (fs::exists(directory))
        return;
    fs::create_directories(directory.parent_path());
    std::string pattern = directory.string() + ".partial-XXXXXX";
    if (!mkdtemp(pattern.data()))
        throw std::runtime_error("mkdtemp " + pattern);
    fs::path const partial = pattern;
    rpmbuild(partial, spec);
    std::error_code lost;
    fs::rename(partial, directory, lost);
    if (lost)
        fs::remove_all(partial);
}

} // namespace

fs::path PackageWorld::package(std::string const& key)
{
    PackageSpec const& spec = catalogue().at(key);
    fs::path const directory = fs::path(VELMORA_PACKAGE_CACHE) / key;
    buildOnce(directory, specText(spec, false));
    return directory / (spec.name + "-" + spec.version + ".rpm");
}

void PackageWorld::buildMany(fs::path const& directory, std::vector<PackageSpec> const& specs)
{
    if (specs.empty())
        return;
    std::string spec = "Name: velmora-bench-main\nVersion: 1.0\nRelease: 1\nLicense: none\nBuildArch: noarch\n"
                       "AutoReqProv: no\nSummary: main\n%description\nmain\n%files\n";
    for (PackageSpec const& each : specs)
        spec += specText(each, true);
    buildOnce(directory, spec);
}

PackageWorld::PackageWorld(std::map<std::string, std::string> settings)
{
    fs::path const storeDirectory = base / "sysroot/usr/local/var/velmora";
    fs::create_directories(storeDirectory);
    fs::create_directories(rootPath / "var/lib/rpm");
    fs::create_directories(repositoryPath);
    std::ofstream(macroPath) << "%_dbpath /var/lib/rpm\n%_pkgverify_level digest\n";
    run("rpm --root " + rootPath.string() + " --dbpath /var/lib/rpm --initdb");

    settings.emplace("RootPath", rootPath.string());
    settings.emplace("MacrosPath", macroPath.string());
    settings.emplace("RepositoryPath", repositoryPath.string());
    Velmora::EAVStore store("PackagerSettings", storeDirectory.string(), ".db");
    store.init();
    for (auto const& [attribute, value] : settings)
        store.setValue("Settings", attribute, value);
}

void PackageWorld::installWithTool(std::vector<fs::path> const& files) const
{
    std::string command = "rpm --root " + rootPath.string() +
                          " --dbpath /var/lib/rpm --define '_pkgverify_level digest' --nodeps -i";
    for (fs::path const& file : files) {
        command += ' ';
        command += file.string();
    }
    run(command + " >/dev/null 2>&1");
}

void PackageWorld::installMany(std::string const& set, std::vector<PackageSpec> const& specs) const
{
    fs::path const directory = fs::path(VELMORA_PACKAGE_CACHE) / set;
    buildMany(directory, specs);
    std::vector<fs::path> files;
    for (PackageSpec const& spec : specs)
        files.push_back(directory / (spec.name + "-" + spec.version + ".rpm"));
    installWithTool(files);
}

fs::path PackageWorld::offer(std::string const& key, std::string const& fileName) const
{
    fs::path const source = package(key);
    fs::path const target = repositoryPath / (fileName.empty() ? source.filename() : fs::path(fileName));
    // Written beside, then renamed in: a watcher never sees half a package.
    fs::path const staging = base / "staging.rpm";
    fs::copy_file(source, staging, fs::copy_options::overwrite_existing);
    fs::rename(staging, target);
    return target;
}

} // namespace VelmoraTest
