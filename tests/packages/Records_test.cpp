// The package records as they travel: JSON keys, optional members, the
// manifest order, the dependency text of a header, and catalogue paging.
#include "interfaces/ExtendedPackageInfo.h"
#include "interfaces/ManifestPackageInfo.h"
#include "MasterPackageManager.h"
#include "interfaces/PackageInfoListRequest.h"
#include "PackageWorld.h"
#include "RPMPackager.h"
#include "serial/Serialization.h"

#include <gtest/gtest.h>

#include <algorithm>

using namespace Velmora;

namespace {

VectorObject<BasePackageInfo> deps(std::initializer_list<std::pair<char const*, char const*>> list)
{
    VectorObject<BasePackageInfo> out;
    for (auto const& [name, version] : list)
        out.push_back(BasePackageInfo(name, version));
    return out;
}

// The header's dependency lists become a member inserted first, only when
// there are any; broken texts and members of the wrong type throw, so callers
// can tell them from an empty package. (Header texts that read well are
// checked on real packages by the catalogue tests.)
TEST(PackageRecords, DependencyListsBecomeAMemberAndBrokenTextsThrow)
{
    std::string json = R"({"name":"a","dependenciename":["b","c"],"dependencieversion":["2",""]})";
    RPMPackager::formatRPMDependencies(json);
    EXPECT_EQ(0u, json.find("{\"dependencies\":"));
    auto withDependencies = deserialize<PackageInfo>(json);
    ASSERT_EQ(2u, withDependencies.getDependencies().size());
    EXPECT_EQ("b", withDependencies.getDependencies()[0].getName());
    EXPECT_EQ("2", withDependencies.getDependencies()[0].getVersion());
    for (std::string const unchanged : {R"({"name":"a","dependenciename":[],"dependencieversion":[]})",
                                        R"({"name":"a"b","dependenciename":["x"]})"}) {
        std::string text = unchanged;
        RPMPackager::formatRPMDependencies(text);
        EXPECT_EQ(unchanged, text);
    }
    EXPECT_THROW(deserialize<PackageInfo>(R"({"name":"a", "group":"x"y"})"), Exception);
    EXPECT_THROW(deserialize<ManifestPackageInfo>("[1]"), Exception);
    EXPECT_THROW(deserialize<PackageInfo>(R"({"installTime":"soon"})"), Exception);
    Deserializer missing(std::string(R"({"other":1})"));
    EXPECT_THROW(PackageInfoListRequest("listRequest", missing), Exception);
}

// Records move their lists over rather than copying them; a move must lose
// nothing, whether into a new record, over an old one, or while a vector of
// records grows.
TEST(PackageRecords, MovesKeepEveryMemberAndListsAndLeaveTheSourceUsable)
{
    auto const original = deserialize<ExtendedPackageInfo>(
        R"({"name":"a","version":"1","release":"2","installTime":7,"architecture":"noarch","URI":"u",)"
        R"("description":"d","epoch":"3","group":"G","dependencies":[{"name":"b","version":"4"}],)"
        R"("customPackageInfo":{"applicationURL":"http://x/","permissions":["p","q"],"vendor":"v"}})");
    EXPECT_EQ(2u, original.getCustomPackageInfo().getPermissions().size());
    EXPECT_TRUE(deserialize<ExtendedPackageInfo>(original.serialize()) == original);
    ExtendedPackageInfo source = original;
    ExtendedPackageInfo moved(std::move(source));
    EXPECT_TRUE(moved == original);
    ExtendedPackageInfo assigned = deserialize<ExtendedPackageInfo>(R"({"name":"old","dependencies":[{"name":"z"}]})");
    assigned = std::move(moved);
    EXPECT_TRUE(assigned == original);
    moved = original; // a moved-from record takes a new value
    EXPECT_TRUE(moved == original);

    std::vector<ExtendedPackageInfo> grown;
    for (int i = 0; i < 40; ++i)
        grown.push_back(original);
    EXPECT_TRUE(std::all_of(grown.begin(), grown.end(), [&](auto const& each) { return each == original; }));
}

TEST(ManifestOrder, IsStrictWeakAndMatchesTheStoredFormOfTheSameFile)
{
    ManifestPackageInfo fromFile("a", "/r/a.rpm", deps({{"b", "2"}, {"c", ""}}), "G");
    VectorObject<std::string> words;
    fromFile.getNVRDependencies(words);
    ASSERT_EQ((std::vector<std::string>{"b 2", "c"}), std::vector<std::string>(words.begin(), words.end()));
    // The store keeps only name and version of each dependency.
    ManifestPackageInfo stored("a", "/r/a.rpm", deps({{"b", "2"}, {"c", ""}}), "G");
    EXPECT_FALSE(fromFile < stored);
    EXPECT_FALSE(stored < fromFile);
    EXPECT_FALSE(fromFile < fromFile);

    std::vector<ManifestPackageInfo> records{
        ManifestPackageInfo("a", "/r/a.rpm", deps({{"b", "3"}}), "G"), fromFile,
        ManifestPackageInfo("a", "/r/a.rpm", {}, "G"), ManifestPackageInfo("", "/r/junk", {}, ""),
        ManifestPackageInfo("a", "/r/a2.rpm", {}, "G")};
    for (auto const& x : records)
        for (auto const& y : records) {
            EXPECT_FALSE(x < y && y < x);
            for (auto const& z : records)
                EXPECT_TRUE(!(x < y && y < z) || x < z);
        }
    // A file whose dependencies changed is a new offer.
    EXPECT_TRUE(records[0] < fromFile || fromFile < records[0]);
}

// Case-blind name order or install order, then the page; a page past the
// end or of a negative size never comes out empty.
TEST(CatalogueGrooming, SortsCaseBlindAndPagesWithoutEverGivingAnEmptyPage)
{
    struct Case {
        unsigned start;
        int count;
        std::string order;
        std::vector<std::string> names;
    } const cases[] = {
        {2, 3, "", {"Charlie", "delta", "echo"}},
        {5, 0, "", {"apple", "Banana", "Charlie", "delta", "echo"}},
        {1, -2, "", {"Banana", "Charlie", "delta", "echo"}},
        {0, 2, IPackageManager::SORT_BY_DATE, {"Banana", "apple"}},
    };
    for (Case const& each : cases) {
        VectorObject<PackageInfo> list;
        char const* names[] = {"echo", "Banana", "delta", "apple", "Charlie"};
        unsigned times[] = {5, 1, 4, 2, 3};
        for (int i = 0; i < 5; ++i)
            list.push_back(deserialize<PackageInfo>(std::string("{\"name\":\"") + names[i] +
                                                    "\",\"installTime\":" + std::to_string(times[i]) + "}"));
        MasterPackageManager::_groomList(PackageInfoListRequest({}, each.start, each.count, each.order), list);
        EXPECT_EQ(each.names, VelmoraTest::namesOf(list)) << each.start << " " << each.count;
    }

    // Manifest records carry no install time: the date order must still end and keep every record.
    VectorObject<ManifestPackageInfo> list;
    // append rather than "p" + ...: GCC 12 gives a false -Wrestrict warning there when optimising
    for (int i = 0; i < 100; ++i)
        list.push_back(ManifestPackageInfo(std::string("p").append(std::to_string(i)), "/r", {}, ""));
    MasterPackageManager::_groomList(PackageInfoListRequest({}, 0, 0, IPackageManager::SORT_BY_DATE), list);
    EXPECT_EQ(100u, list.size());
}

} // namespace
