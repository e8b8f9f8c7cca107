#include "MasterPackageInstaller.h"

#include "frame/DebugPrint.h"

#include <rpm/rpmlog.h>
#include <rpm/rpmprob.h>
#include <rpm/rpmts.h>

#include <algorithm>
#include <cstdlib>
#include <memory>

namespace Velmora {

static char const MODULE[] = "MasterPackageInstaller";

// Every problem filter but the one that allows a downgrade.
static int const FORCE_PROBLEM_FILTER = RPMPROB_FILTER_IGNOREOS | RPMPROB_FILTER_IGNOREARCH |
                                        RPMPROB_FILTER_REPLACEPKG | RPMPROB_FILTER_FORCERELOCATE |
                                        RPMPROB_FILTER_REPLACENEWFILES | RPMPROB_FILTER_REPLACEOLDFILES |
                                        RPMPROB_FILTER_DISKSPACE | RPMPROB_FILTER_DISKNODES;

namespace {

struct FreeText {
    void operator()(char* text) const { std::free(text); }
};
using Text = std::unique_ptr<char, FreeText>;

// The database lock of the packager for one transaction. A null handle (a
// failed open, which holds no lock) fails the request without calling RPM.
class DatabaseHold {
public:
    explicit DatabaseHold(Packager& packager) : packager(packager) { packager.acquireDB(&handle); }
    ~DatabaseHold()
    {
        if (handle)
            packager.releaseDB(handle);
    }
    DatabaseHold(DatabaseHold const&) = delete;
    DatabaseHold& operator=(DatabaseHold const&) = delete;
    rpmts get() const { return static_cast<rpmts>(handle); }

private:
    Packager& packager;
    void* handle = nullptr;
};

// True when RPM's install reads `path` as this one file: it splits its
// arguments at quotes and backslashes and expands glob patterns, which no
// escape turns off, so a name holding any of those could name other files.
bool passesLiterally(std::string const& path)
{
    return path.find_first_of("*?[]{}\\'\"") == std::string::npos;
}

// The null-terminated argument vector RPM wants, pointing into `texts`.
std::vector<char*> argumentVector(std::vector<std::string>& texts)
{
    std::vector<char*> argv;
    for (std::string& text : texts)
        argv.push_back(text.data());
    argv.push_back(nullptr);
    return argv;
}

} // namespace

MasterPackageInstaller::MasterPackageInstaller(Packager& packager) : packager(packager)
{
    if (packager.getSilentUpdate())
        packager.addListener(this);
}

MasterPackageInstaller::~MasterPackageInstaller()
{
    if (packager.getSilentUpdate())
        packager.removeListener(this);
    uninit();
}

rpmInstallArguments_s MasterPackageInstaller::installArguments(bool force)
{
    rpmInstallArguments_s arguments{};
    arguments.probFilter = static_cast<rpmprobFilterFlags>(force ? FORCE_PROBLEM_FILTER : 0);
    arguments.installInterfaceFlags =
        static_cast<rpmInstallFlags>(INSTALL_INSTALL | (force ? INSTALL_NODEPS : INSTALL_NONE));
    return arguments;
}

rpmInstallArguments_s MasterPackageInstaller::removeArguments(bool force)
{
    rpmInstallArguments_s arguments{};
    arguments.installInterfaceFlags =
        static_cast<rpmInstallFlags>(INSTALL_ERASE | (force ? INSTALL_NODEPS : INSTALL_NONE));
    return arguments;
}

// The manifest path comes from a directory entry: every "%" is doubled so that
// the expansion reads it as a plain character and a file name never runs a macro.
std::string MasterPackageInstaller::_getPackagePath(std::string const& name) const
{
    std::string escaped;
    for (char const c : packager.getPackageURI(name))
        escaped += c == '%' ? std::string("%%") : std::string(1, c);
    Text path(rpmGetPath(escaped.c_str(), nullptr));
    return path ? path.get() : "";
}

void MasterPackageInstaller::logFailure(char const* what, VectorObject<std::string> const& packages)
{
    char const* message = rpmlogMessage();
    VLOG(DebugLevelError, "RPM error %s", message ? message : "");
    VLOG(DebugLevelError, "Couldn't %s the following packages:\n", what);
    for (std::string const& name : packages)
        VLOG(DebugLevelError, "\t%s\n", name.c_str());
}

void MasterPackageInstaller::_packageInstall(VectorObject<std::string> const& packages, bool force)
{
    ReturnCode result = ReturnGenericFailure;
    if (!packages.empty()) {
        rpmInstallArguments_s arguments = installArguments(force);
        // All or nothing: one unknown name stops the request before RPM runs.
        std::vector<std::string> paths;
        for (std::string const& name : packages) {
            paths.push_back(_getPackagePath(name));
            if (!passesLiterally(paths.back())) {
                VLOG(DebugLevelError, "Package file name %s can't be handed to RPM as it is\n", paths.back().c_str());
                paths.back().clear();
            }
            if (paths.back().empty()) {
                VLOG(DebugLevelError, "Couldn't find the following package: %s at path %s\n", name.c_str(),
                     _getPackagePath(name).c_str());
                break;
            }
        }
        DatabaseHold database(packager);
        if (!paths.back().empty() && database.get()) {
            std::vector<char*> argv = argumentVector(paths);
            if (rpmInstall(database.get(), &arguments, argv.data()) == 0)
                result = ReturnSuccess;
        }
        if (result != ReturnSuccess)
            logFailure("install", packages);
    }
    onRequestEnd(packages, "install", result);
}

void MasterPackageInstaller::_packageRemove(VectorObject<std::string> const& packages, bool force)
{
    ReturnCode result = ReturnSuccess;
    {
        rpmInstallArguments_s arguments = removeArguments(force);
        DatabaseHold database(packager);
        std::vector<std::string> names(packages.begin(), packages.end());
        std::vector<char*> argv = argumentVector(names);
        if (!database.get() || rpmErase(database.get(), &arguments, argv.data()) != 0) {
            result = ReturnGenericFailure;
            logFailure("remove", packages);
        }
    }
    onRequestEnd(packages, "remove", result);
}

int MasterPackageInstaller::onPackagerSettingsChange() { return 0; }

int MasterPackageInstaller::onPackagerManifestChange(std::string const& entity, std::string const& attribute,
                                                     std::string const& value)
{
    if (attribute == Packager::MANIFEST_PATH_ATTRIBUTE)
        pendingPackages.push_back(entity);
    return 0;
}

// Runs on the monitor's thread; the transaction itself is queued to the
// installer's thread so the monitor isn't held up.
int MasterPackageInstaller::onPackagerManifestCommit()
{
    pendingPackages.erase(std::unique(pendingPackages.begin(), pendingPackages.end()), pendingPackages.end());
    if (!pendingPackages.empty())
        packageInstall(pendingPackages, true);
    pendingPackages.clear();
    return 0;
}

} // namespace Velmora
