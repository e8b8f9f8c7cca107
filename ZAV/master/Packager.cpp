#include "Packager.h"

#include "frame/DebugPrint.h"
#include "frame/Exception.h"
#include "FSMonitor.h"
#include "frame/ListenerList.h"
#include "serial/Serialization.h"
#include "frame/SysRoot.h"

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <sys/inotify.h>
#include <unordered_map>
#include <unistd.h>

namespace Velmora {

static char const MODULE[] = "Packager";

std::string const Packager::SETTINGS_ENTITY("Settings");
std::string const Packager::SETTINGS_CONFIG_PATH_ATTRIBUTE("ConfigPath");
std::string const Packager::SETTINGS_MACROS_PATH_ATTRIBUTE("MacrosPath");
std::string const Packager::SETTINGS_ROOT_PATH_ATTRIBUTE("RootPath");
std::string const Packager::SETTINGS_REPOSITORY_PATH_ATTRIBUTE("RepositoryPath");
std::string const Packager::SETTINGS_SILENT_UPDATE_ATTRIBUTE("SilentUpdate");
std::string const Packager::SETTINGS_TIMED_MANIFEST_UPDATE_SEC_ATTRIBUTE("TimedManifestUpdateSec");
std::string const Packager::SETTINGS_TIMED_MANIFEST_UPDATE_ATTRIBUTE("TimedManifestUpdate");
std::string const Packager::SETTINGS_DB_NAME("PackagerSettings");
std::string const Packager::MANIFEST_PATH_ATTRIBUTE("Path");
std::string const Packager::MANIFEST_DEPENDENCIES_ATTRIBUTE("Dependencies");
std::string const Packager::MANIFEST_GROUP_ATTRIBUTE("Group");
std::string const Packager::MANIFEST_DB_NAME("PackagerManifest");
std::string const Packager::PACKAGER_DB_PATH("/usr/local/var/velmora");
unsigned int const Packager::MINIMUM_TIMED_MANIFEST_UPDATE_SEC = 1;

// The JSON text of `object` on one line.
static std::string oneLine(SerialObject const& object)
{
    std::string text = object.serialize();
    text.erase(std::remove(text.begin(), text.end(), '\n'), text.end());
    return text;
}

// The inotify events that mean the directory's content changed.
static unsigned int const WATCH_MASK = IN_MODIFY | IN_MOVED_FROM | IN_MOVED_TO | IN_CREATE | IN_DELETE;
// The events of the repository's parent that may mean the repository came (back).
static unsigned int const PARENT_WATCH_MASK = IN_CREATE | IN_MOVED_TO | IN_ONLYDIR;

Packager::PackagerInitCommand::PackagerInitCommand(Packager* packager, std::string const& rcFile,
                                                   std::string const& macroFile, std::string const& dbRoot)
    : Command(packager), rcFile(rcFile), macroFile(macroFile), dbRoot(dbRoot)
{
}

void Packager::PackagerInitCommand::call() { getPackager()->_init(rcFile, macroFile, dbRoot); }

Packager::Packager()
    : CommandProcessor("Packager"), settingsStore(SETTINGS_DB_NAME, SysRoot::path(PACKAGER_DB_PATH), ".db"),
      manifestStore(MANIFEST_DB_NAME, SysRoot::path(PACKAGER_DB_PATH), ".db"), listenerMutex("Packager")
{
    settingsStore.init();
    manifestStore.init();
    manifestStore.addListener(this);
    readSettings();
}

Packager::~Packager()
{
    removeFSMonitor();
    manifestStore.removeListener(this);
}

void Packager::readSettings()
{
    auto setting = [this](std::string const& attribute) { return settingsStore.getValue(SETTINGS_ENTITY, attribute); };
    rcFilePath = setting(SETTINGS_CONFIG_PATH_ATTRIBUTE);
    macroFilePath = setting(SETTINGS_MACROS_PATH_ATTRIBUTE);
    dbPath = setting(SETTINGS_ROOT_PATH_ATTRIBUTE);
    repositoryPath = setting(SETTINGS_REPOSITORY_PATH_ATTRIBUTE);
    silentUpdate = setting(SETTINGS_SILENT_UPDATE_ATTRIBUTE) == "true";
    timedManifestUpdate = setting(SETTINGS_TIMED_MANIFEST_UPDATE_ATTRIBUTE) == "true";
    if (!timedManifestUpdate)
        return;
    std::string const period = setting(SETTINGS_TIMED_MANIFEST_UPDATE_SEC_ATTRIBUTE);
    if (period.empty())
        return;
    unsigned int seconds = 0;
    auto const [end, error] = std::from_chars(period.data(), period.data() + period.size(), seconds);
    if (error != std::errc() || end != period.data() + period.size()) {
        VLOG(DebugLevelError, "TimedManifestUpdateSec \"%s\" is no number of seconds; using %u.\n", period.c_str(),
             timedManifestUpdateSec);
        return;
    }
    if (seconds < MINIMUM_TIMED_MANIFEST_UPDATE_SEC) {
        VLOG(DebugLevelError, "TimedManifestUpdateSec %u is below the floor; using %u.\n", seconds,
             MINIMUM_TIMED_MANIFEST_UPDATE_SEC);
        seconds = MINIMUM_TIMED_MANIFEST_UPDATE_SEC;
    }
    timedManifestUpdateSec = seconds;
}

void Packager::init(std::string const& rcFile, std::string const& macroFile, std::string const& dbRoot)
{
    _init(rcFile, macroFile, dbRoot);
}

void Packager::_init(std::string const& rcFile, std::string const& macroFile, std::string const& dbRoot)
{
    loadRCFile(rcFile);
    loadMacroFile(macroFile);
    loadDB(dbRoot);
    addFSMonitor(getRepositoryPath());
}

void Packager::addFSMonitor(std::string const& path)
{
    if (inotifyFd < 0)
        inotifyFd = inotify_init1(IN_CLOEXEC);
    if (inotifyFd >= 0 && !path.empty()) {
        if (parentWatchDescriptor < 0)
            parentWatchDescriptor = inotify_add_watch(
                inotifyFd, std::filesystem::path(path).parent_path().c_str(), PARENT_WATCH_MASK);
        if (watchDescriptor < 0)
            watchDescriptor = inotify_add_watch(inotifyFd, path.c_str(), WATCH_MASK);
    }
    // Read before the monitor starts: from then on the watch is its own.
    bool const watched = watchDescriptor >= 0;
    // A repository that doesn't exist yet is watched once it comes.
    if (inotifyFd >= 0 && !path.empty() && !fsMonitor) {
        fsMonitor = std::make_unique<FSMonitor>(*this);
        fsMonitor->init();
    }
    if (inotifyFd < 0)
        VLOG(DebugLevelError, "Error initializing inotify.\n");
    if (!watched)
        VLOG(DebugLevelError, "Error initializing directory watch.\n");
}

bool Packager::watchRepository()
{
    int const before = watchDescriptor;
    watchDescriptor = inotify_add_watch(inotifyFd, repositoryPath.c_str(), WATCH_MASK);
    return watchDescriptor >= 0 && watchDescriptor != before;
}

void Packager::removeFSMonitor()
{
    fsMonitor.reset();
    for (int* watch : {&watchDescriptor, &parentWatchDescriptor}) {
        if (inotifyFd >= 0 && *watch >= 0)
            inotify_rm_watch(inotifyFd, *watch);
        *watch = -1;
    }
    if (inotifyFd >= 0) {
        close(inotifyFd);
        inotifyFd = -1;
    }
}

ManifestPackageInfo Packager::getManifestPackageInfo(std::string const& name) { return getInfo(name); }

void Packager::getManifestPackageInfoList(PackageInfoListRequest const& request,
                                          VectorObject<ManifestPackageInfo>& out)
{
    getInfoList(request, out);
}

void Packager::stripLocalManifest()
{
    VectorObject<ManifestPackageInfo> records;
    getManifestPackageInfoList(PackageInfoListRequest({}), records);
    // After an erase the next record has moved under the cursor and is only
    // looked at by the next refresh.
    for (std::size_t i = 0; i < records.size(); ++i) {
        if (std::ifstream(records[i].getPath()).is_open())
            continue;
        manifestStore.removeEntity(records[i].getName());
        refreshedFrom.reset(); // the removed row may be one that update puts back
        records.erase(records.begin() + static_cast<std::ptrdiff_t>(i));
    }
}

// Compared in the form the store keeps, one row per package name: of several
// files that offer one name (two versions, or files that are no package and
// all go under the empty name) the last in record order stands, so that every
// refresh makes the same choice and a refresh that finds nothing new writes
// nothing and tells nobody.
void Packager::updateLocalManifest()
{
    if (refreshedFrom && refreshedFrom->isCurrent())
        return;
    refreshedFrom.reset();
    // Taken before the files are read, so that a change during the refresh
    // makes it differ from the repository at the next.
    std::optional<RepositorySnapshot> snapshot = RepositorySnapshot::take(getRepositoryPath());
    VectorObject<ManifestPackageInfo> repository;
    getFilePackageInfoList(PackageInfoListRequest({}), repository);
    std::sort(repository.begin(), repository.end());
    std::map<std::string, ManifestRow> wanted;
    for (ManifestPackageInfo const& record : repository) {
        VectorObject<std::string> dependencies;
        record.getNVRDependencies(dependencies);
        wanted[record.getName()] = ManifestRow{record.getPath(), oneLine(dependencies), record.getGroup()};
    }
    std::vector<std::string> names;
    std::unordered_map<std::string, ManifestRow> const stored = readRows(names);

    EAVStore::EntityAttributeValueList rows;
    for (auto const& [name, row] : wanted) {
        auto const found = stored.find(name);
        if (found != stored.end() && found->second == row)
            continue;
        rows.push_back({name, {MANIFEST_PATH_ATTRIBUTE, row.path}});
        rows.push_back({name, {MANIFEST_DEPENDENCIES_ATTRIBUTE, row.dependencies}});
        rows.push_back({name, {MANIFEST_GROUP_ATTRIBUTE, row.group}});
    }
    if (!rows.empty())
        manifestStore.setValueList(rows);
    if (snapshot && snapshot->isSettled())
        refreshedFrom = std::move(snapshot);
}

std::vector<std::string> Packager::getAvailablePackages() const { return manifestStore.getEntities(); }

std::string Packager::getPackageURI(std::string const& name) const
{
    return manifestStore.getValue(name, MANIFEST_PATH_ATTRIBUTE);
}

std::string Packager::getPackageGroup(std::string const& name) const
{
    return manifestStore.getValue(name, MANIFEST_GROUP_ATTRIBUTE);
}

void Packager::getPackageDependencies(std::string const& name, VectorObject<BasePackageInfo>& out) const
{
    parseDependencies(manifestStore.getValue(name, MANIFEST_DEPENDENCIES_ATTRIBUTE), out);
}

void Packager::parseDependencies(std::string const& stored, VectorObject<BasePackageInfo>& out)
{
    auto texts = deserialize<VectorObject<std::string>>(stored);
    for (std::string const& text : texts) {
        std::istringstream words(text);
        std::string dependency;
        std::string version;
        if (!(words >> dependency))
            continue;
        words >> version;
        out.push_back(BasePackageInfo(dependency, version));
    }
}

ManifestPackageInfo Packager::getInfo(std::string const& name) const
{
    return makeInfo(name, {getPackageURI(name), manifestStore.getValue(name, MANIFEST_DEPENDENCIES_ATTRIBUTE),
                           getPackageGroup(name)});
}

// True when `text` stands between double quotes in JSON as it is and reads
// back unchanged: printable ASCII without quote or backslash.
static bool isPlainJsonText(std::string const& text)
{
    return std::all_of(text.begin(), text.end(), [](char c) { return c >= 0x20 && c < 0x7f && c != '"' && c != '\\'; });
}

// The record is built as text from the stored values, without escaping: a
// value holding a double quote gives the default record. Values that read back
// from that text unchanged skip the text, which would give the same record.
ManifestPackageInfo Packager::makeInfo(std::string const& name, ManifestRow const& row)
{
    VectorObject<BasePackageInfo> dependencies;
    parseDependencies(row.dependencies, dependencies);
    bool const plain = isPlainJsonText(name) && isPlainJsonText(row.path) && isPlainJsonText(row.group) &&
                       std::all_of(dependencies.begin(), dependencies.end(), [](BasePackageInfo const& dependency) {
                           return isPlainJsonText(dependency.getName()) && isPlainJsonText(dependency.getVersion());
                       });
    if (plain)
        return ManifestPackageInfo(name, row.path, dependencies, row.group);
    std::string const json = "{\"name\":\"" + name + "\",\"path\":\"" + row.path +
                             "\",\"dependencies\":" + oneLine(dependencies) + ",\"group\":\"" + row.group + "\"}";
    try {
        return deserialize<ManifestPackageInfo>(json);
    } catch (...) {
        VLOG(DebugLevelError, "Error deserializing package info:\n%s\n", json.c_str());
        return ManifestPackageInfo();
    }
}

std::unordered_map<std::string, Packager::ManifestRow> Packager::readRows(std::vector<std::string>& names) const
{
    // One read of the whole manifest rather than three lookups per package.
    std::unordered_map<std::string, ManifestRow> rows;
    for (auto const& [name, attributeValue] : manifestStore.getEntityAttributeValueList()) {
        auto [row, added] = rows.try_emplace(name);
        if (added)
            names.push_back(name);
        auto const& [attribute, value] = attributeValue;
        if (attribute == MANIFEST_PATH_ATTRIBUTE)
            row->second.path = value;
        else if (attribute == MANIFEST_DEPENDENCIES_ATTRIBUTE)
            row->second.dependencies = value;
        else if (attribute == MANIFEST_GROUP_ATTRIBUTE)
            row->second.group = value;
    }
    return rows;
}

void Packager::getInfoList(PackageInfoListRequest const& request, VectorObject<ManifestPackageInfo>& out) const
{
    out.clear();
    // Packages come in the order of the store, as getAvailablePackages() gives them.
    std::vector<std::string> names;
    std::unordered_map<std::string, ManifestRow> const rows = readRows(names);
    VectorObject<std::string> const& groups = request.getGroups();
    for (std::string const& name : names) {
        ManifestRow const& row = rows.at(name);
        if (groups.empty()) {
            out.push_back(makeInfo(name, row));
            continue;
        }
        for (std::string const& wanted : groups) {
            if (wanted == row.group)
                out.push_back(makeInfo(name, row));
        }
    }
}

int Packager::onEAVUpdate(std::string const& entity, std::string const& attribute, std::string const& value)
{
    fanOut(listenerMutex, listeners, listenersChanged, [&](PackagerListener* listener) {
        listener->onPackagerManifestChange(entity, attribute, value);
    });
    return 0;
}

int Packager::onEAVCommit()
{
    fanOut(listenerMutex, listeners, listenersChanged,
           [](PackagerListener* listener) { listener->onPackagerManifestCommit(); });
    return 0;
}

void Packager::addListener(IListener* listener)
{
    Mutex::ScopedLock lock(&listenerMutex);
    if (Velmora::addListener(listeners, listener))
        listenersChanged = true;
}

void Packager::removeListener(IListener* listener)
{
    Mutex::ScopedLock lock(&listenerMutex);
    if (Velmora::removeListener(listeners, listener))
        listenersChanged = true;
}

} // namespace Velmora
