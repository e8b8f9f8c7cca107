// Figures of the packages: listing the catalogue of 500 installed packages, and
// refreshing the manifest of a 200-file repository when nothing changed and
// when every file changed, each against the plainest way to do the same work.
#include "FigureReporter.h"
#include "RawEavTable.h"

#include "MasterPackageManager.h"
#include "PackageWorld.h"
#include "RPMPackager.h"

#include <rpm/header.h>
#include <rpm/rpmdb.h>
#include <rpm/rpmio.h>
#include <rpm/rpmlib.h>
#include <rpm/rpmtd.h>
#include <rpm/rpmts.h>

#include <json/writer.h>
#include <sys/stat.h>

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

// The bench packages, built once into the cache. `generation` changes what
// they depend on, so that the same file names can be offered with new content.
std::vector<fs::path> generatedPackages(int generation)
{
    std::vector<PackageSpec> specs;
    for (int i = 0; i < INSTALLED; ++i) {
        std::string const name = "bench-" + std::to_string(i);
        specs.push_back({name, "1.0", i % 2 ? "Velmora/App" : "Velmora/Service",
                         "{\"applicationURL\":\"http://" + name + ".example/\"}",
                         {"bench-base >= " + std::to_string(generation)}});
    }
    fs::path const directory = fs::path(VELMORA_PACKAGE_CACHE) / ("bench-" + std::to_string(generation));
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
        files = generatedPackages(1);
        changedFiles = generatedPackages(2);
        world.installWithTool(files);
        offer(files);
        packager.init("", "", "");
        manager.init();
    }
    // Puts the first OFFERED files of a generation into the repository, over
    // what is there, each renamed into place as a repository is updated, so
    // that no reader sees half a file.
    void offer(std::vector<fs::path> const& generation) const
    {
        fs::path const staging = world.repository().parent_path() / "staging";
        fs::create_directories(staging);
        for (int i = 0; i < OFFERED && i < static_cast<int>(generation.size()); ++i) {
            fs::copy_file(generation[i], staging / generation[i].filename(), fs::copy_options::overwrite_existing);
            fs::rename(staging / generation[i].filename(), world.repository() / generation[i].filename());
        }
    }
    std::vector<fs::path> files;
    std::vector<fs::path> changedFiles;
    PackageWorld world;
    RPMPackager packager;
    MasterPackageManager manager{packager};
};

// Made at first use; its folder goes at exit.
BenchWorld& benchWorld()
{
    static BenchWorld world;
    return world;
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

std::vector<std::string> repositoryFiles()
{
    std::vector<std::string> paths;
    for (auto const& entry : fs::directory_iterator(benchWorld().world.repository()))
        paths.push_back(entry.path().string());
    return paths;
}

void BM_ManifestRefreshUnchanged(benchmark::State& state)
{
    BenchWorld& world = benchWorld();
    world.packager.updateLocalManifest(); // the first refresh writes the rows
    for (auto _ : state)
        world.packager.updateLocalManifest();
}

// The plainest way to see that nothing changed: a stat of each file.
void BM_RawStatEachFile(benchmark::State& state)
{
    std::vector<std::string> const paths = repositoryFiles();
    for (auto _ : state) {
        struct stat status {};
        for (std::string const& path : paths)
            benchmark::DoNotOptimize(stat(path.c_str(), &status));
    }
}

// Offers the other generation of every file, outside the timing.
void offerOtherGeneration(benchmark::State& state, BenchWorld& world, bool& second)
{
    state.PauseTiming();
    second = !second;
    world.offer(second ? world.changedFiles : world.files);
    state.ResumeTiming();
}

void BM_ManifestRefreshChanged(benchmark::State& state)
{
    BenchWorld& world = benchWorld();
    bool second = false;
    for (auto _ : state) {
        offerOtherGeneration(state, world, second);
        world.packager.updateLocalManifest();
    }
    world.offer(world.files);
}

std::string headerString(Header header, rpmTagVal tag)
{
    char const* text = headerGetString(header, tag);
    return text ? text : "";
}

// The plainest refresh of a changed repository: read every package header
// with librpm and write its manifest rows, the dependencies as JSON.
void BM_RawManifestChanged(benchmark::State& state)
{
    BenchWorld& world = benchWorld();
    std::vector<std::string> const paths = repositoryFiles();
    RawEavTable manifest((world.world.root().parent_path() / "raw-manifest.db").string());
    Json::FastWriter writer;
    rpmts ts = rpmtsCreate();
    rpmtsSetRootDir(ts, world.world.root().c_str());
    bool second = false;
    for (auto _ : state) {
        offerOtherGeneration(state, world, second);
        manifest.begin();
        for (std::string const& path : paths) {
            FD_t file = Fopen(path.c_str(), "r.ufdio");
            Header header = nullptr;
            rpmReadPackageFile(ts, file, path.c_str(), &header);
            Fclose(file);
            if (!header)
                continue;
            std::string const name = headerString(header, RPMTAG_NAME);
            Json::Value dependencies(Json::arrayValue);
            rpmtd requires_ = rpmtdNew();
            if (headerGet(header, RPMTAG_REQUIRENAME, requires_, HEADERGET_MINMEM))
                while (char const* each = rpmtdNextString(requires_))
                    dependencies.append(each);
            rpmtdFree(requires_);
            manifest.write(name, "path", path);
            manifest.write(name, "dependencies", writer.write(dependencies));
            manifest.write(name, "group", headerString(header, RPMTAG_GROUP));
            headerFree(header);
        }
        manifest.commit();
    }
    rpmtsFree(ts);
    world.offer(world.files);
}

BENCHMARK(BM_ExtendedPackageList)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_RawRpmList)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_ManifestRefreshUnchanged)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_RawStatEachFile)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_ManifestRefreshChanged)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_RawManifestChanged)->Unit(benchmark::kMillisecond)->UseRealTime();

} // namespace

int main(int argc, char** argv)
{
    return VelmoraBench::runFigures(
        argc, argv,
        {{"pkg_list_ratio", "BM_ExtendedPackageList/real_time", "BM_RawRpmList/real_time"},
         {"manifest_refresh_unchanged_ratio", "BM_ManifestRefreshUnchanged/real_time", "BM_RawStatEachFile/real_time"},
         {"manifest_refresh_changed_ratio", "BM_ManifestRefreshChanged/real_time", "BM_RawManifestChanged/real_time"}});
}
