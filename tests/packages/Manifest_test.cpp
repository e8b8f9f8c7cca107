// The repository manifest and the installer over real package files: rows
// follow files that appear, change and vanish; junk and quotes don't break
// it; requests end with onRequestEnd; silent update installs what arrives.
#include "frame/Exception.h"
#include "MasterPackageInstaller.h"
#include "MasterPackageManager.h"
#include "PackageWorld.h"
#include "RPMPackager.h"
#include "frame/SysRoot.h"
#include "Journal.h"

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <csignal>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <thread>

using namespace Velmora;
using VelmoraTest::PackageWorld;
using VelmoraTest::Journal;
namespace fs = std::filesystem;

namespace {

// Notes what it hears, as one line of its journal each: request ends as
// "<operation>:<result> <names>", changes of manifest rows (from the packager
// or the catalogue) as "<entity>/<attribute>", and the packager's commits.
struct Heard : IPackageInstaller::IPackageInstallerListener, IPackageManager::IPackageManagerListener, PackagerListener,
               Journal {
    int onRequestEnd(VectorObject<std::string> const& packages, std::string const& operation, ReturnCode result) override
    {
        std::string text = operation + ":" + std::to_string(result);
        for (auto const& name : packages)
            text += " " + name;
        add(text);
        return 0;
    }
    int onPackageManifestChanged(std::string const& entity, std::string const& attribute, std::string const&) override
    {
        add(entity + "/" + attribute);
        return 0;
    }
    int onPackagerManifestChange(std::string const& entity, std::string const& attribute, std::string const& value) override
    {
        return onPackageManifestChanged(entity, attribute, value);
    }
    int onPackagerManifestCommit() override
    {
        add("commit");
        return 0;
    }
    int onPackageInfoChanged() override { return 0; }
    int onPackageRepositoryChanged() override { return 0; }
    int onPackagerSettingsChange() override { return 0; }
};

std::vector<std::string> manifestNames(Packager& packager)
{
    VectorObject<ManifestPackageInfo> list;
    packager.getManifestPackageInfoList(PackageInfoListRequest({}), list);
    std::vector<std::string> out = VelmoraTest::namesOf(list);
    std::sort(out.begin(), out.end());
    return out;
}

// A packager whose refresh the test drives itself: no monitor thread.
class StillPackager : public RPMPackager {
public:
    StillPackager() { init("", "", ""); }
    void _init(std::string const& rc, std::string const& macros, std::string const& root) override
    {
        loadRCFile(rc);
        loadMacroFile(macros);
        loadDB(root);
    }
    void refresh()
    {
        stripLocalManifest();
        updateLocalManifest();
    }
};

// Writes the package of `key` to `target`, in place when it exists, padded
// with zeros to `size`: the header reader never sees the padding, so
// different packages can make files of one size.
void writePadded(std::string const& key, fs::path const& target, std::size_t size)
{
    std::ifstream in(PackageWorld::package(key), std::ios::binary);
    std::string bytes{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
    ASSERT_LT(bytes.size(), size);
    bytes.resize(size, '\0');
    std::ofstream(target, std::ios::binary | std::ios::trunc) << bytes;
}

// Waits until the packager may remember `path`: its last change lies more than
// the filesystem's stamp unit (10 ms for stamps with a fraction) behind the
// coarse clock the packager reads.
void waitUntilSettled(fs::path const& path)
{
    struct stat status {};
    ASSERT_EQ(0, stat(path.c_str(), &status));
    ASSERT_NE(0, status.st_ctim.tv_nsec) << "a filesystem with whole-second stamps";
    auto const settled = std::chrono::system_clock::time_point(std::chrono::seconds(status.st_ctim.tv_sec) +
                                                               std::chrono::nanoseconds(status.st_ctim.tv_nsec) +
                                                               std::chrono::milliseconds(10));
    for (;;) {
        timespec now{};
        clock_gettime(CLOCK_REALTIME_COARSE, &now);
        if (std::chrono::seconds(now.tv_sec) + std::chrono::nanoseconds(now.tv_nsec) > settled.time_since_epoch())
            return;
        std::this_thread::sleep_until(settled + std::chrono::milliseconds(5)); // the coarse clock lags by a tick
    }
}

TEST(Manifest, FollowsFilesThatAppearChangeAndVanishAlsoBehindTheSameSizeAndMtime)
{
    PackageWorld world;
    StillPackager packager;
    packager.refresh();
    EXPECT_TRUE(manifestNames(packager).empty());

    fs::path const fig = world.offer("fig", "fig.rpm");
    world.offer("apple");
    packager.refresh();
    EXPECT_EQ((std::vector<std::string>{"apple", "fig"}), manifestNames(packager));
    auto record = packager.getManifestPackageInfo("fig");
    EXPECT_EQ(fig.string(), record.getPath());
    EXPECT_EQ("Velmora/App", record.getGroup());

    // Same path, new content with a dependency: the row is rewritten.
    world.offer("fig2", "fig.rpm");
    packager.refresh();
    VectorObject<BasePackageInfo> dependencies;
    packager.getPackageDependencies("fig", dependencies);
    auto base = std::ranges::find(dependencies, "base", &BasePackageInfo::getName);
    ASSERT_NE(dependencies.end(), base);
    EXPECT_EQ("2", base->getVersion());

    fs::remove(fig);
    packager.refresh();
    EXPECT_EQ((std::vector<std::string>{"apple"}), manifestNames(packager));
    EXPECT_EQ("", packager.getManifestPackageInfo("fig").getPath());

    // Neighbours that vanish together go in two refreshes.
    fs::path const date = world.offer("date");
    packager.refresh();
    fs::remove(world.repository() / "apple-1.0.rpm");
    fs::remove(date);
    packager.refresh();
    EXPECT_EQ(1u, manifestNames(packager).size());
    packager.refresh();
    EXPECT_TRUE(manifestNames(packager).empty());

    // Unchanged files are not read again. A file counts as unchanged only while
    // its inode, size, mtime and ctime all stay: a rewrite in place with the old
    // size and mtime put back, or another file renamed over it with the same size
    // and mtime, is read again.
    std::size_t const size = 64 * 1024;
    fs::path const file = world.repository() / "slot.rpm";
    auto settleAndRefreshTwice = [&] {
        waitUntilSettled(file);
        packager.refresh();
        packager.refresh();
    };
    writePadded("apple", file, size);
    settleAndRefreshTwice();
    ASSERT_EQ(file.string(), packager.getPackageURI("apple"));

    auto const stamp = fs::last_write_time(file);
    writePadded("date", file, size); // in place: same inode
    fs::last_write_time(file, stamp);
    packager.refresh();
    EXPECT_EQ(file.string(), packager.getPackageURI("date"));

    settleAndRefreshTwice();
    fs::path const staging = world.root() / "staging.rpm";
    writePadded("fig", staging, size);
    fs::last_write_time(staging, fs::last_write_time(file));
    fs::rename(staging, file);
    packager.refresh();
    EXPECT_EQ(file.string(), packager.getPackageURI("fig"));
    EXPECT_EQ("Velmora/App", packager.getPackageGroup("fig"));
}

// Two versions of one package, two files that are no package and a
// dependency whose name holds spaces: the first refresh writes one row per
// name, the next ones find nothing new and write and announce nothing. Then
// half a package, a quoted group and a quote in a file name don't break it.
TEST(Manifest, ARefreshThatFindsNothingNewWritesNothingAndOddFilesBreakNothing)
{
    PackageWorld world;
    Heard announced; // outlives the packager that calls it
    StillPackager packager;
    packager.addListener(&announced);
    world.offer("fig", "fig-1.rpm");
    fs::path const newer = world.offer("fig2", "fig-2.rpm");
    std::ofstream(world.repository() / "junk-1.rpm") << "not a package";
    std::ofstream(world.repository() / "junk-2.rpm") << "not one either";
    world.offer("rich");
    packager.refresh();
    EXPECT_EQ((std::vector<std::string>{"/Path", "/Dependencies", "/Group", "fig/Path", "fig/Dependencies", "fig/Group",
                                        "rich/Path", "rich/Dependencies", "rich/Group", "commit"}),
              announced.take());
    EXPECT_EQ(newer.string(), packager.getPackageURI("fig"));
    packager.refresh();
    packager.refresh();
    EXPECT_TRUE(announced.take().empty());
    packager.removeListener(&announced);

    fs::path const truncated = world.repository() / "truncated.rpm";
    fs::copy_file(PackageWorld::package("apple"), truncated);
    fs::resize_file(truncated, fs::file_size(truncated) / 2);
    world.offer("quoted");
    world.offer("date");
    world.offer("apple", "ap\"ple.rpm");
    packager.refresh();
    // Files whose header can't be read or turned into a record, the quoted
    // group among them, land under the empty name; a quote in a stored path
    // makes that record unreadable, and only that one.
    auto names = manifestNames(packager);
    EXPECT_NE(names.end(), std::find(names.begin(), names.end(), "date"));
    EXPECT_NE(names.end(), std::find(names.begin(), names.end(), ""));
    EXPECT_EQ(names.end(), std::find(names.begin(), names.end(), "quoted"));
    EXPECT_EQ("", packager.getManifestPackageInfo("apple").getName());
    EXPECT_NE("", packager.getPackageURI("apple"));
    VectorObject<ManifestPackageInfo> others;
    packager.getManifestPackageInfoList(PackageInfoListRequest(VectorObject<std::string>{"Velmora/Other"}), others);
    ASSERT_EQ(1u, others.size());
    EXPECT_EQ("date", others[0].getName());
}

// The list is read from the store in one pass: it must agree, record for
// record and in the store's order, with what the reads by name build, for
// plain values and for those that the hand-built JSON text changes or breaks.
TEST(Manifest, ListAgreesWithReadsByName)
{
    PackageWorld world;
    StillPackager packager;
    EAVStore rows(Packager::MANIFEST_DB_NAME, SysRoot::path(Packager::PACKAGER_DB_PATH), ".db");
    rows.init();
    std::string const cafe = "caf\xc3\xa9";
    rows.setValueList({{"zeta", {"Path", "/r/zeta.rpm"}},
                       {"zeta", {"Dependencies", R"(["base 2","tool","","x 1 extra"])"}},
                       {cafe, {"Path", "/r/" + cafe + ".rpm"}},
                       {cafe, {"Dependencies", R"(["lib\u00e9 1"])"}},
                       {cafe, {"Group", "G"}},
                       {"back", {"Path", R"(/r/new\nline.rpm)"}},
                       {"back", {"Dependencies", "[]"}},
                       {"back", {"Group", "G"}},
                       {"quote", {"Path", "/r/a\"b.rpm"}},
                       {"quote", {"Dependencies", "[]"}},
                       {"quote", {"Group", "G"}},
                       {"zeta", {"Group", "G"}}});

    VectorObject<ManifestPackageInfo> list;
    packager.getManifestPackageInfoList(PackageInfoListRequest({}), list);
    std::vector<std::string> const names = packager.getAvailablePackages();
    ASSERT_EQ((std::vector<std::string>{"zeta", cafe, "back", "quote"}), names);
    ASSERT_EQ(names.size(), list.size());
    for (std::size_t i = 0; i < names.size(); ++i)
        EXPECT_EQ(packager.getManifestPackageInfo(names[i]).serialize(), list[i].serialize()) << names[i];
    ASSERT_EQ(3u, list[0].getDependencies().size());
    EXPECT_EQ("x", list[0].getDependencies()[2].getName());
    EXPECT_EQ("1", list[0].getDependencies()[2].getVersion());
    EXPECT_EQ("lib\xc3\xa9", list[1].getDependencies()[0].getName());
    EXPECT_EQ("/r/new\nline.rpm", list[2].getPath()) << "the text reads the backslash as an escape";
    EXPECT_EQ("", list[3].getName()) << "a quote breaks the text";

    VectorObject<ManifestPackageInfo> twice;
    packager.getManifestPackageInfoList(PackageInfoListRequest(VectorObject<std::string>{"G", "G"}), twice);
    EXPECT_EQ(8u, twice.size());

    rows.setValue("broken", "Dependencies", "[1, 2]");
    EXPECT_THROW(packager.getManifestPackageInfoList(PackageInfoListRequest({}), list), Exception);
}

// Runs in `directory` while it lives.
class WorkingDirectory {
public:
    explicit WorkingDirectory(fs::path const& directory) : saved(fs::current_path()) { fs::current_path(directory); }
    ~WorkingDirectory() { fs::current_path(saved); }

private:
    fs::path saved;
};

// Every request ends with onRequestEnd, in order; it fails (7) for an empty
// list, a name the manifest lacks, a missing dependency without force, a
// package not installed, and a glob pattern in the file name, which would name
// other files too. Macro syntax in a file name runs no command.
TEST(Installer, InstallsAndRemovesThroughTheManifestAndEndsEveryRequest)
{
    PackageWorld world;
    WorkingDirectory here(world.root());
    StillPackager packager;
    world.offer("fig", "fig%(touch PWNED).rpm");
    world.offer("apple", "a*.rpm");
    world.offer("date", "another.rpm");
    world.offer("needy");
    world.offer("base");
    packager.refresh();
    Heard ends;
    MasterPackageInstaller installer(packager);
    installer.addListener(&ends);
    installer.init();

    installer.packageInstall(VectorObject<std::string>{}, false);
    installer.packageInstall(VectorObject<std::string>{"fig", "nowhere"}, false);
    installer.packageInstall(VectorObject<std::string>{"fig"}, false);
    installer.packageInstall(VectorObject<std::string>{"apple"}, false);
    installer.packageInstall(VectorObject<std::string>{"needy"}, false);
    installer.packageInstall(VectorObject<std::string>{"needy"}, true);
    installer.packageRemove(VectorObject<std::string>{"fig"}, false);
    installer.packageRemove(VectorObject<std::string>{"not-installed"}, false);
    ASSERT_TRUE(ends.waitForSize(8));
    EXPECT_EQ((std::vector<std::string>{"install:7", "install:7 fig nowhere", "install:0 fig", "install:7 apple",
                                        "install:7 needy", "install:0 needy", "remove:0 fig", "remove:7 not-installed"}),
              ends.all());
    EXPECT_FALSE(fs::exists(world.root() / "PWNED"));
    EXPECT_EQ("needy", packager.getPackageInfo("needy").getName());
    EXPECT_EQ("", packager.getPackageInfo("fig").getName());
    EXPECT_EQ("", packager.getPackageInfo("date").getName());
}

// The timed update refreshes without events, and silent update installs what
// a refresh finds, with force. A period of "0" would refresh back to back: it
// reads as the floor of one second; a text that is no number keeps the
// default, as do switches other than an exact "true".
TEST(Monitor, TimedUpdateRefreshesWithoutEventsSilentUpdateInstallsAndOddSettingsKeepTheDefaults)
{
    {
        PackageWorld world({{"TimedManifestUpdate", "true"}, {"TimedManifestUpdateSec", "0"}, {"SilentUpdate", "true"}});
        world.offer("needy"); // before the watch exists: no event will come; its dependency is missing
        RPMPackager packager;
        EXPECT_EQ(1u, packager.getTimedManifestUpdateSec());
        Heard ends;
        MasterPackageInstaller installer(packager);
        installer.addListener(&ends);
        installer.init();
        packager.init("", "", "");
        ASSERT_TRUE(ends.waitForSize(1));
        EXPECT_EQ("install:0 needy", ends.all().front());
        EXPECT_EQ("needy", packager.getPackageInfo("needy").getName());
    }
    for (auto const& [timed, period] : {std::pair{"True", "1"}, {"true", "ten"}, {"true", "5s"}}) {
        PackageWorld world({{"TimedManifestUpdate", timed}, {"TimedManifestUpdateSec", period}, {"SilentUpdate", "yes"}});
        RPMPackager packager;
        EXPECT_EQ(std::string(timed) == "true", packager.getTimedManifestUpdate()) << timed;
        EXPECT_EQ(10u, packager.getTimedManifestUpdateSec()) << period;
        EXPECT_FALSE(packager.getSilentUpdate());
    }
}

void ignoreSignal(int) {}

// The repository directory may be missing when the monitor starts, or be
// removed and made again: it is watched once it is there, and the catalogue
// hears of new rows. A removal tells nobody: a later refresh drops its row. A
// signal that interrupts the monitor's wait is no failure: it goes on.
TEST(Monitor, ARepositoryThatComesLaterOrAgainIsWatchedAndTellsTheCatalogueAndASignalEndsNothing)
{
    PackageWorld world;
    fs::remove_all(world.repository());
    Heard announced;
    Heard events;
    RPMPackager packager;
    MasterPackageManager manager(packager);
    packager.addListener(&announced);
    manager.addListener(&events);
    // True once a refresh that wrote the row of `name` has ended.
    auto const refreshed = [&](std::string const& name) {
        return announced.waitFor([&] {
            std::vector<std::string> const lines = announced.all();
            return std::find(std::find(lines.begin(), lines.end(), name + "/Path"), lines.end(), "commit") != lines.end();
        });
    };
    struct sigaction quiet {};
    quiet.sa_handler = ignoreSignal; // without SA_RESTART: the wait ends with EINTR
    struct sigaction saved {};
    sigaction(SIGUSR1, &quiet, &saved);
    packager.init("", "", "");
    manager.init();
    fs::create_directory(world.repository());
    world.offer("apple");
    ASSERT_TRUE(events.waitFor([&] { return events.has("apple/Path"); }));
    EXPECT_EQ("apple", manager.getManifestPackageInfo("apple").getName());

    fs::remove_all(world.repository());
    fs::create_directory(world.repository());
    fs::path const date = world.offer("date");
    ASSERT_TRUE(refreshed("date"));
    fs::remove(date);
    world.offer("fig"); // once its row is there, the monitor is named and back in its wait
    ASSERT_TRUE(refreshed("fig"));

    pid_t monitor = 0;
    for (auto const& task : fs::directory_iterator("/proc/self/task")) {
        std::ifstream comm(task.path() / "comm");
        std::string name;
        std::getline(comm, name);
        if (name == "FSMonitor")
            monitor = static_cast<pid_t>(std::stoi(task.path().filename().string()));
    }
    ASSERT_NE(0, monitor);
    // Many, so that some surely find the monitor in its wait rather than ending a refresh.
    for (int i = 0; i < 1000; ++i)
        syscall(SYS_tgkill, getpid(), monitor, SIGUSR1);
    world.offer("rich");
    ASSERT_TRUE(refreshed("rich"));
    // The refresh of rich began after fig's had ended, so after the removal.
    EXPECT_EQ((std::vector<std::string>{"fig", "rich"}), VelmoraTest::namesOf(manager.getManifestPackageInfoList({})));
    manager.removeListener(&events);
    packager.removeListener(&announced);
    sigaction(SIGUSR1, &saved, nullptr);
}

} // namespace
