// Figures of the packages: listing the catalogue of 500 installed packages and
// refreshing the manifest of a 200-file repository, each against a raw librpm
// loop doing the same reads.
#include "FigureReporter.h"

#include "MasterPackageManager.h"
#include "PackageWorld.h"
#include "RPMPackager.h"

#include <rpm/header.h>
#include <rpm/rpmdb.h>
#include <rpm/rpmio.h>
#include <rpm/rpmlib.h>
#include <rpm/rpmtd.h>
#include <rpm/rpmts.h>

#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <memory>

using namespace Velmora;
using VelmoraTest::PackageSpec;
using VelmoraTest::PackageWorld;
namespace fs = std::filesystem;

namespace {

constexpr int INSTALLED = 500;
constexpr int OFFERED = 200;

std::vector<fs::path> generatedPackages()
{
    std::vector<PackageSpec> specs;
    for (int i = 0; i < INSTALLED; ++i) {
        std::string const name = "bench-" + std::to_string(i);
        specs.push_back({name, "1.0", i % 2 ? "Velmora/App" : "Velmora/Service",
                         "{\"applicationURL\":\"http://" + name + ".example/\"}", {"bench-base >= 1"}});
    }
    fs::path const directory = fs::path(VELMORA_PACKAGE_CACHE) / "bench";
    PackageWorld::buildMany(directory, specs);
    std::vector<fs::path> files;
    for (auto const& entry : fs::recursive_directory_iterator(directory))
        if (entry.path().extension() == ".rpm" && entry.path().filename().string().rfind("bench-", 0) == 0)
            files.push_back(entry.path());
    std::sort(files.begin(), files.end());
    return files;
}

// One world for the whole run: 500 installed, 200 of them offered.
struct BenchWorld {
    BenchWorld()
    {
        files = generatedPackages();
        world.installWithTool(files);
        for (int i = 0; i < OFFERED && i < static_cast<int>(files.size()); ++i)
            fs::copy_file(files[i], world.repository() / files[i].filename());
        packager.init("", "", "");
        manager.init();
    }
    std::vector<fs::path> files;
    PackageWorld world;
    RPMPackager packager;
    MasterPackageManager manager{packager};
};

BenchWorld& benchWorld()
{
    static BenchWorld* world = new BenchWorld(); // left for the process's end
    return *world;
}

void formatTag(Header header, rpmTagVal tag, std::string& out)
{
    rpmtd data = rpmtdNew();
    if (headerGet(header, tag, data, HEADERGET_MINMEM)) {
        if (char* text = rpmtdFormat(data, RPMTD_FORMAT_STRING, nullptr)) {
            out += text;
            std::free(text);
        }
        while (char const* each = rpmtdNextString(data))
            out += each;
    }
    rpmtdFreeData(data);
    rpmtdFree(data);
}

void BM_ExtendedPackageList(benchmark::State& state)
{
    BenchWorld& world = benchWorld();
    for (auto _ : state) {
        auto list = world.manager.getExtendedPackageInfoList(VectorObject<std::string>{});
        if (list.size() < INSTALLED)
            state.SkipWithError("packages missing");
        benchmark::DoNotOptimize(list);
    }
}

void BM_RawRpmList(benchmark::State& state)
{
    BenchWorld& world = benchWorld();
    rpmts ts = rpmtsCreate();
    rpmtsSetRootDir(ts, world.world.root().c_str());
    for (auto _ : state) {
        rpmtsOpenDB(ts, O_RDONLY);
        rpmdbMatchIterator iterator = rpmtsInitIterator(ts, RPMDBI_PACKAGES, nullptr, 0);
        std::size_t count = 0;
        while (Header header = rpmdbNextIterator(iterator)) {
            std::string text;
            for (auto const& row : RPMPackager::extendedPackageInfoHeaderTags)
                formatTag(header, row.tag, text);
            benchmark::DoNotOptimize(text);
            ++count;
        }
        rpmdbFreeIterator(iterator);
        rpmtsCloseDB(ts);
        benchmark::DoNotOptimize(count);
    }
    rpmtsFree(ts);
}

void BM_ManifestRefresh(benchmark::State& state)
{
    BenchWorld& world = benchWorld();
    world.packager.updateLocalManifest(); // the first refresh writes the rows
    for (auto _ : state)
        world.packager.updateLocalManifest();
}

void BM_RawReadPackageFiles(benchmark::State& state)
{
    BenchWorld& world = benchWorld();
    rpmts ts = rpmtsCreate();
    rpmtsSetRootDir(ts, world.world.root().c_str());
    std::vector<std::string> paths;
    for (auto const& entry : fs::directory_iterator(world.world.repository()))
        paths.push_back(entry.path().string());
    for (auto _ : state) {
        for (std::string const& path : paths) {
            FD_t file = Fopen(path.c_str(), "r.ufdio");
            Header header = nullptr;
            rpmReadPackageFile(ts, file, path.c_str(), &header);
            headerFree(header);
            Fclose(file);
        }
    }
    rpmtsFree(ts);
}

BENCHMARK(BM_ExtendedPackageList)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_RawRpmList)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_ManifestRefresh)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_RawReadPackageFiles)->Unit(benchmark::kMillisecond)->UseRealTime();

} // namespace

int main(int argc, char** argv)
{
    return VelmoraBench::runFigures(
        argc, argv,
        {{"pkg_list_ratio", "BM_ExtendedPackageList/real_time", "BM_RawRpmList/real_time"},
         {"manifest_refresh_ratio", "BM_ManifestRefresh/real_time", "BM_RawReadPackageFiles/real_time"}});
}
