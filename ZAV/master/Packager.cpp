#include "Packager.h"

#include "DebugPrint.h"
#include "Exception.h"
#include "FSMonitor.h"
#include "ListenerList.h"
#include "Serialization.h"
#include "SysRoot.h"

#include <algorithm>
#include <fstream>
#include <iterator>
#include <sstream>
#include <sys/inotify.h>
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

// The JSON text of `object` on one line.
static std::string oneLine(SerialObject const& object)
{
    std::string text = object.serialize();
    text.erase(std::remove(text.begin(), text.end(), '\n'), text.end());
    return text;
}

// The inotify events that mean the directory's content changed.
static unsigned int const WATCH_MASK = IN_MODIFY | IN_MOVED_FROM | IN_MOVED_TO | IN_CREATE | IN_DELETE;

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
    std::string period = setting(SETTINGS_TIMED_MANIFEST_UPDATE_SEC_ATTRIBUTE);
    if (!period.empty())
        std::istringstream(period) >> timedManifestUpdateSec;
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
    if (inotifyFd >= 0 && watchDescriptor < 0 && !path.empty())
        watchDescriptor = inotify_add_watch(inotifyFd, path.c_str(), WATCH_MASK);
    if (inotifyFd >= 0 && watchDescriptor >= 0 && !fsMonitor) {
        fsMonitor = std::make_unique<FSMonitor>(*this);
        fsMonitor->init();
    }
    if (inotifyFd < 0)
        VLOG(DebugLevelError, "Error initializing inotify.\n");
    if (watchDescriptor < 0)
        VLOG(DebugLevelError, "Error initializing directory watch.\n");
}

void Packager::removeFSMonitor()
{
    fsMonitor.reset();
    if (inotifyFd >= 0 && watchDescriptor >= 0) {
        inotify_rm_watch(inotifyFd, watchDescriptor);
        watchDescriptor = -1;
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
        records.erase(records.begin() + static_cast<std::ptrdiff_t>(i));
    }
}

void Packager::updateLocalManifest()
{
    VectorObject<ManifestPackageInfo> repository;
    VectorObject<ManifestPackageInfo> local;
    PackageInfoListRequest const everything({});
    getFilePackageInfoList(everything, repository);
    getManifestPackageInfoList(everything, local);
    std::sort(repository.begin(), repository.end());
    std::sort(local.begin(), local.end());
    std::vector<ManifestPackageInfo> added;
    std::set_difference(repository.begin(), repository.end(), local.begin(), local.end(), std::back_inserter(added));

    EAVStore::EntityAttributeValueList rows;
    for (ManifestPackageInfo const& record : added) {
        VectorObject<std::string> dependencies;
        record.getNVRDependencies(dependencies);
        std::string const text = oneLine(dependencies);
        rows.push_back({record.getName(), {MANIFEST_PATH_ATTRIBUTE, record.getPath()}});
        rows.push_back({record.getName(), {MANIFEST_DEPENDENCIES_ATTRIBUTE, text}});
        rows.push_back({record.getName(), {MANIFEST_GROUP_ATTRIBUTE, record.getGroup()}});
    }
    manifestStore.setValueList(rows);
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
    auto texts = deserialize<VectorObject<std::string>>(manifestStore.getValue(name, MANIFEST_DEPENDENCIES_ATTRIBUTE));
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

// The record is built as text from the stored values, without escaping: a
// value holding a double quote gives the default record.
ManifestPackageInfo Packager::getInfo(std::string const& name) const
{
    VectorObject<BasePackageInfo> dependencies;
    getPackageDependencies(name, dependencies);
    std::string const json = "{\"name\":\"" + name + "\",\"path\":\"" + getPackageURI(name) +
                             "\",\"dependencies\":" + oneLine(dependencies) + ",\"group\":\"" + getPackageGroup(name) +
                             "\"}";
    try {
        return deserialize<ManifestPackageInfo>(json);
    } catch (...) {
        VLOG(DebugLevelError, "Error deserializing package info:\n%s\n", json.c_str());
        return ManifestPackageInfo();
    }
}

void Packager::getInfoList(PackageInfoListRequest const& request, VectorObject<ManifestPackageInfo>& out) const
{
    out.clear();
    VectorObject<std::string> const& groups = request.getGroups();
    for (std::string const& name : getAvailablePackages()) {
        if (groups.empty()) {
            out.push_back(getInfo(name));
            continue;
        }
        std::string const group = getPackageGroup(name);
        for (std::string const& wanted : groups) {
            if (wanted == group)
                out.push_back(getInfo(name));
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
