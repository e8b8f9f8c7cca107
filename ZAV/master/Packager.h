// The owner of the package configuration and of the repository manifest.
//
// Two stores live in "/usr/local/var/velmora" (under the sysroot): the
// settings (where the RPM configuration, database root and local repository
// are, and how the manifest follows the repository) and the manifest (per
// package name: "Path", "Dependencies", "Group" of the file that offers it).
// Reading RPM data is left to a subclass (RPMPackager); this class keeps the
// manifest in step with the repository directory through FSMonitor and fans
// manifest changes out to its PackagerListeners.
//
// Threads: settings are read once, at construction, and never change after.
// The manifest refresh runs on the monitor thread; manifest queries run on the
// caller's thread; the two meet only in the store, which locks for itself.
// Listener callbacks run on the thread that committed, listenerMutex released
// around each. Listener pointers are not owned; the monitor is.
// A subclass calls removeFSMonitor() first in its destructor, so the monitor
// never calls into a half-destroyed object.
#pragma once

#include "frame/CommandProcessor.h"
#include "store/EAVStore.h"
#include "store/EAVStoreListener.h"
#include "frame/IObservable.h"
#include "interfaces/ManifestPackageInfo.h"
#include "frame/Mutex.h"
#include "interfaces/PackageInfoListRequest.h"
#include "PackagerListener.h"
#include "RepositorySnapshot.h"
#include "interfaces/ExtendedPackageInfo.h"

#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

namespace Velmora {

class FSMonitor;

class Packager : public CommandProcessor, public EAVStoreListener, public virtual IObservable {
public:
    static std::string const SETTINGS_ENTITY;
    static std::string const SETTINGS_CONFIG_PATH_ATTRIBUTE;
    static std::string const SETTINGS_MACROS_PATH_ATTRIBUTE;
    static std::string const SETTINGS_ROOT_PATH_ATTRIBUTE;
    static std::string const SETTINGS_REPOSITORY_PATH_ATTRIBUTE;
    static std::string const SETTINGS_SILENT_UPDATE_ATTRIBUTE;
    static std::string const SETTINGS_TIMED_MANIFEST_UPDATE_SEC_ATTRIBUTE;
    static std::string const SETTINGS_TIMED_MANIFEST_UPDATE_ATTRIBUTE;
    static std::string const SETTINGS_DB_NAME;
    static std::string const MANIFEST_PATH_ATTRIBUTE;
    static std::string const MANIFEST_DEPENDENCIES_ATTRIBUTE;
    static std::string const MANIFEST_GROUP_ATTRIBUTE;
    static std::string const MANIFEST_DB_NAME;
    static std::string const PACKAGER_DB_PATH;
    // The shortest period of the timed update: "TimedManifestUpdateSec" below
    // it reads as it, so that a "0" can't make the monitor refresh back to
    // back; a text that is no number keeps the default of 10.
    static unsigned int const MINIMUM_TIMED_MANIFEST_UPDATE_SEC;

    // Runs _init on the packager's own thread, for a host that wants it there.
    class PackagerInitCommand : public CommandProcessor::Command {
    public:
        PackagerInitCommand(Packager* packager, std::string const& rcFile, std::string const& macroFile,
                            std::string const& dbRoot);
        void call() override;
        Packager* getPackager() const { return static_cast<Packager*>(processor); }

    private:
        std::string rcFile;
        std::string macroFile;
        std::string dbRoot;
    };

    // Opens both stores (a store that can't be opened throws) and reads the settings.
    Packager();
    ~Packager() override;

    // Loads the configuration and starts the repository monitor, on the
    // caller's thread. Empty arguments fall back to the settings store.
    virtual void init(std::string const& rcFile, std::string const& macroFile, std::string const& dbRoot);
    using CommandProcessor::init;

    // The RPM database lock: see RPMPackager.
    virtual bool acquireDB(void** handle) = 0;
    virtual void releaseDB(void* handle) = 0;

    virtual PackageInfo getPackageInfo(std::string const& name) = 0;
    virtual ExtendedPackageInfo getExtendedPackageInfo(std::string const& name) = 0;
    virtual ManifestPackageInfo getManifestPackageInfo(std::string const& name);
    virtual void getPackageInfoList(PackageInfoListRequest const& request, VectorObject<PackageInfo>& out) = 0;
    virtual void getExtendedPackageInfoList(PackageInfoListRequest const& request,
                                            VectorObject<ExtendedPackageInfo>& out) = 0;
    virtual void getManifestPackageInfoList(PackageInfoListRequest const& request,
                                            VectorObject<ManifestPackageInfo>& out);
    // What the repository directory holds now, one record per file.
    virtual void getFilePackageInfoList(PackageInfoListRequest const& request,
                                        VectorObject<ManifestPackageInfo>& out) = 0;

    // The manifest refresh, in this order: strip drops rows whose file is gone,
    // update writes the rows of files that are new or changed, and nothing
    // when nothing is. Update looks at no file's content and at no row while
    // the repository holds the same files, each unchanged, as when update
    // last ran to its end and strip removed nothing since.
    virtual void updateLocalManifest();
    virtual void stripLocalManifest();

    void addListener(IListener* listener) override;
    void removeListener(IListener* listener) override;

    virtual void _init(std::string const& rcFile, std::string const& macroFile, std::string const& dbRoot);
    virtual void loadRCFile(std::string const& path) = 0;
    virtual void loadMacroFile(std::string const& path) = 0;
    virtual void loadDB(std::string const& path) = 0;

    int onEAVUpdate(std::string const& entity, std::string const& attribute, std::string const& value) override;
    int onEAVCommit() override;

    std::string const& getRCFilePath() const { return rcFilePath; }
    std::string const& getMacroFilePath() const { return macroFilePath; }
    std::string const& getDBPath() const { return dbPath; }
    std::string getRepositoryPath() const { return repositoryPath; }
    bool getSilentUpdate() const { return silentUpdate; }
    bool getTimedManifestUpdate() const { return timedManifestUpdate; }
    unsigned int getTimedManifestUpdateSec() const { return timedManifestUpdateSec; }
    int getInotifyFd() const { return inotifyFd; }
    // The watch of the repository's parent, which tells when the repository
    // comes (back).
    int getParentWatchDescriptor() const { return parentWatchDescriptor; }
    // Watches the repository directory anew, which follows a repository that
    // was made (again) since; true when the watch is a new one. Monitor
    // thread only, while the monitor runs.
    bool watchRepository();

    // Manifest reads, on the caller's thread.
    std::vector<std::string> getAvailablePackages() const;
    std::string getPackageURI(std::string const& name) const;
    std::string getPackageGroup(std::string const& name) const;
    // Throws Exception(ReturnInvalidParameter) when the stored value is not a
    // JSON array of strings.
    void getPackageDependencies(std::string const& name, VectorObject<BasePackageInfo>& out) const;

protected:
    // Starts watching `path` and its parent directory, and the monitor thread,
    // also when `path` doesn't exist yet; each step only when not done yet, so
    // a second call starts no second thread.
    void addFSMonitor(std::string const& path);
    // Stops the monitor, then closes the watch and the descriptor.
    void removeFSMonitor();

private:
    // The stored values of one manifest entity; empty when absent.
    struct ManifestRow {
        std::string path;
        std::string dependencies;
        std::string group;
        bool operator==(ManifestRow const& other) const = default;
    };

    void readSettings();
    // Throws Exception(ReturnInvalidParameter) when `stored` is not a JSON array of strings.
    static void parseDependencies(std::string const& stored, VectorObject<BasePackageInfo>& out);
    ManifestPackageInfo getInfo(std::string const& name) const;
    // Every stored row by package name; `names` gets the names in store order.
    std::unordered_map<std::string, ManifestRow> readRows(std::vector<std::string>& names) const;
    static ManifestPackageInfo makeInfo(std::string const& name, ManifestRow const& row);
    void getInfoList(PackageInfoListRequest const& request, VectorObject<ManifestPackageInfo>& out) const;

    EAVStore settingsStore;
    EAVStore manifestStore;
    // The repository as it was when update last ran to its end, settled;
    // none when strip removed a row since. Refresh thread only.
    std::optional<RepositorySnapshot> refreshedFrom;
    Mutex listenerMutex;
    std::vector<PackagerListener*> listeners; // guarded by listenerMutex
    bool listenersChanged = false;
    int inotifyFd = -1;
    int watchDescriptor = -1;       // written by the monitor thread while it runs
    int parentWatchDescriptor = -1;
    std::string rcFilePath;
    std::string macroFilePath;
    std::string dbPath;
    std::string repositoryPath;
    bool silentUpdate = false;
    unsigned int timedManifestUpdateSec = 10;
    bool timedManifestUpdate = false;
    std::unique_ptr<FSMonitor> fsMonitor;
};

} // namespace Velmora
