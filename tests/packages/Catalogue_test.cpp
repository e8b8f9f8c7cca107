// The catalogue over a real RPM database in a private root: listing by group,
// paging, both orders, extended records and what broken headers or hostile
// requests turn into.
#include "MasterPackageManager.h"
#include "PackageWorld.h"
#include "RPMPackager.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <ctime>
#include <fstream>
#include <map>
#include <thread>
#include <unistd.h>

using namespace Velmora;
using VelmoraTest::PackageWorld;
namespace fs = std::filesystem;

namespace {

using VelmoraTest::namesOf;

// Serialised records by name, those without a name left out.
template <class List>
std::map<std::string, std::string> byName(List const& list)
{
    std::map<std::string, std::string> out;
    for (auto const& info : list)
        if (!info.getName().empty())
            out[info.getName()] = info.serialize();
    return out;
}

// One database for listing by group, paging, both orders, the records of
// single packages, odd names and header values, and readers on several threads
// at once.
TEST(Catalogue, ListsPagesAndReadsRecordsWhileReadersShareTheDatabase)
{
    PackageWorld world;
    std::vector<std::string> const keys{"apple",   "Banana",   "cherry",    "date",     "quoted", "base",
                                        "escaped", "accented", "commented", "injector", "number", "mistyped"};
    world.installWithTool({PackageWorld::package(keys[0])});
    // Install times are in seconds: the second batch goes in once the clock has passed the first's second.
    std::time_t const first = std::time(nullptr);
    while (std::time(nullptr) <= first)
        std::this_thread::sleep_until(std::chrono::system_clock::from_time_t(first + 1));
    std::vector<fs::path> files;
    for (std::size_t i = 1; i < keys.size(); ++i)
        files.push_back(PackageWorld::package(keys[i]));
    world.installWithTool(files);
    RPMPackager packager;
    packager.init("", "", "");
    MasterPackageManager manager{packager};
    manager.init();

    EXPECT_EQ((std::vector<std::string>{"apple", "Banana"}),
              namesOf(manager.getPackageInfoList(VectorObject<std::string>{"Velmora/App"})));
    EXPECT_EQ((std::vector<std::string>{"apple", "Banana", "cherry"}),
              namesOf(manager.getPackageInfoList(VectorObject<std::string>{"Velmora/App", "Velmora/Service"})));
    EXPECT_EQ((std::vector<std::string>{"accented", "apple", "Banana", "base", "cherry", "commented", "date", "escaped",
                                        "injector", "mistyped", "number", "quoted"}),
              namesOf(manager.getPackageInfoList(VectorObject<std::string>{})));
    EXPECT_EQ((std::vector<std::string>{"Banana", "base"}),
              namesOf(manager.getPackageInfoList(VectorObject<std::string>{}, 2, 2, "")));
    // The extended header text holds the group; texts that don't parse leave
    // their package alone out, and a description that adds a key renames one.
    ASSERT_EQ((std::vector<std::string>{"accented", "apple", "Banana", "base", "cherry", "date", "escaped", "evil",
                                        "number"}),
              namesOf(manager.getExtendedPackageInfoList(VectorObject<std::string>{})));

    // Apple went in a second before the rest.
    auto byDate = manager.getPackageInfoList(VectorObject<std::string>{}, 0, 0, IPackageManager::SORT_BY_DATE);
    ASSERT_FALSE(byDate.empty());
    EXPECT_EQ("apple", byDate.front().getName());
    EXPECT_TRUE(std::is_sorted(byDate.begin(), byDate.end(), [](auto const& a, auto const& b) {
        return a.getInstallTime() < b.getInstallTime();
    }));
    EXPECT_GT(byDate.back().getInstallTime(), byDate.front().getInstallTime());

    auto apple = manager.getExtendedPackageInfo("apple");
    EXPECT_EQ("Velmora/App", apple.getGroup());
    EXPECT_EQ("http://apple.example/", apple.getCustomPackageInfo().getApplicationURL());
    EXPECT_EQ("http://example.invalid/apple", apple.getURI());
    EXPECT_NE(0u, apple.getInstallTime());

    auto cherry = manager.getPackageInfo("cherry");
    auto found = std::ranges::find(cherry.getDependencies(), "base", &BasePackageInfo::getName);
    ASSERT_NE(cherry.getDependencies().end(), found);
    EXPECT_EQ("2", found->getVersion());

    auto services = manager.getExtendedPackageInfoList(VectorObject<std::string>{"Velmora/Service"});
    ASSERT_EQ(1u, services.size());
    EXPECT_EQ("file:///svc/cherry", services[0].getCustomPackageInfo().getApplicationURL());

    // Unknown, broken or hostile names give defaults, not failures, and the
    // database is still usable afterwards.
    EXPECT_EQ("", manager.getPackageInfo("nothing-like-this").getName());
    EXPECT_EQ("", manager.getExtendedPackageInfo("quoted").getName());
    EXPECT_EQ("", manager.getPackageInfo("app[").getName());
    EXPECT_TRUE(manager.getPackageInfoList(VectorObject<std::string>{"Velmora/(App"}).empty());
    EXPECT_TRUE(manager.getPackageInfoList(VectorObject<std::string>{"No/Such"}).empty());
    EXPECT_EQ("apple", manager.getPackageInfo("apple").getName());

    // A list builds its records from the header values directly where the
    // header text would read them back unchanged, and goes through the text
    // otherwise; a read by name always goes through the text. Both must agree,
    // also for values that the text changes (escapes), breaks (quotes, a
    // trailing comment, a member of the wrong type) or reads more into.
    VectorObject<ExtendedPackageInfo> extended;
    packager.getExtendedPackageInfoList(PackageInfoListRequest({}), extended);
    VectorObject<PackageInfo> plain;
    packager.getPackageInfoList(PackageInfoListRequest({}), plain);
    VectorObject<ExtendedPackageInfo> extendedByName;
    VectorObject<PackageInfo> plainByName;
    for (std::string const& key : keys) {
        extendedByName.push_back(packager.getExtendedPackageInfo(key));
        plainByName.push_back(packager.getPackageInfo(key));
    }
    EXPECT_EQ(byName(extendedByName), byName(extended));
    EXPECT_EQ(byName(plainByName), byName(plain));
    EXPECT_EQ(keys.size(), plain.size());
    auto find = [&](std::string const& name) -> auto const& { return *std::ranges::find(extended, name, &ExtendedPackageInfo::getName); };
    EXPECT_EQ("tab\there", find("escaped").getDescription());
    EXPECT_EQ("caf\xc3\xa9 cr\xc3\xa8me", find("accented").getDescription());
    EXPECT_EQ("http://caf\xc3\xa9.example/", find("accented").getCustomPackageInfo().getApplicationURL());
    auto const& dependencies = find("accented").getDependencies();
    auto const base = std::ranges::find(dependencies, "base", &BasePackageInfo::getName);
    ASSERT_NE(dependencies.end(), base);
    EXPECT_EQ("", base->getVersion()) << "a requirement without a version";
    EXPECT_EQ("http://i.example/", find("evil").getCustomPackageInfo().getApplicationURL());
    EXPECT_EQ("", find("number").getCustomPackageInfo().getApplicationURL());

    // Readers on several threads share the database lock.
    std::vector<std::thread> readers;
    std::atomic<int> good{0};
    for (int i = 0; i < 4; ++i)
        readers.emplace_back([&] {
            for (int j = 0; j < 5; ++j)
                if (packager.getPackageInfo("apple").getName() == "apple")
                    ++good;
        });
    for (int j = 0; j < 5; ++j)
        if (manager.getPackageInfoList(VectorObject<std::string>{"Velmora/App"}).size() == 2)
            ++good;
    for (auto& reader : readers)
        reader.join();
    EXPECT_EQ(25, good);
}

// A database that can't be opened fails that query alone: a query before
// init(), one on a corrupt database and one after the database is back must
// each return. Run in a child whose alarm turns a hang into a failure.
TEST(CatalogueFailure, AFailedDatabaseOpenFailsOnlyThatQuery)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            alarm(60);
            int status = 4;
            { // the world goes with its files before the child exits
                PackageWorld world;
                world.installWithTool({PackageWorld::package("apple")});
                RPMPackager packager;
                bool const beforeInit = packager.getPackageInfo("apple").getName().empty();
                packager.init("", "", "");
                fs::path const database = world.root() / "var/lib/rpm/rpmdb.sqlite";
                fs::rename(database, database.string() + ".saved");
                std::ofstream(database, std::ios::trunc) << "not a database";
                bool const corrupt = packager.getPackageInfo("apple").getName().empty() &&
                                     packager.getPackageInfo("apple").getName().empty();
                fs::rename(database.string() + ".saved", database);
                bool const back = packager.getPackageInfo("apple").getName() == "apple";
                status = beforeInit && corrupt && back ? 3 : 4;
            }
            std::_Exit(status);
        },
        ::testing::ExitedWithCode(3), "");
}

} // namespace
