#include "RPMPackager.h"

#include "DebugPrint.h"
#include "Deserializer.h"
#include "Serialization.h"

#include <rpm/header.h>
#include <rpm/rpmdb.h>
#include <rpm/rpmio.h>
#include <rpm/rpmlib.h>
#include <rpm/rpmlog.h>
#include <rpm/rpmmacro.h>
#include <rpm/rpmtd.h>
#include <rpm/rpmts.h>

#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <type_traits>

namespace Velmora {

static char const MODULE[] = "RPMPackager";

std::vector<RPMPackager::headerTag> const RPMPackager::packageInfoHeaderTags{
    {RPMTAG_NAME, "\"name\":", HEADER_INFO_STRING, "\"\""},
    {RPMTAG_VERSION, "\"version\":", HEADER_INFO_STRING, "\"\""},
    {RPMTAG_RELEASE, "\"release\":", HEADER_INFO_STRING, "\"\""},
    {RPMTAG_INSTALLTIME, "\"installTime\":", HEADER_INFO_NUMBER, "0"},
    {RPMTAG_PLATFORM, "\"architecture\":", HEADER_INFO_STRING, "\"\""},
    {RPMTAG_REQUIRENAME, "\"dependenciename\":", HEADER_INFO_STRING_ARRAY, "[]"},
    {RPMTAG_REQUIREVERSION, "\"dependencieversion\":", HEADER_INFO_STRING_ARRAY, "[]"},
};

// The seven rows above, then what the catalogue adds. The package's own JSON
// object travels in the description field; "description" takes the summary.
std::vector<RPMPackager::headerTag> const RPMPackager::extendedPackageInfoHeaderTags = [] {
    std::vector<headerTag> tags = packageInfoHeaderTags;
    tags.insert(tags.end(), {
                                {RPMTAG_URL, "\"URI\":", HEADER_INFO_STRING, "\"\""},
                                {RPMTAG_SUMMARY, "\"description\":", HEADER_INFO_STRING, "\"\""},
                                {RPMTAG_EPOCH, "\"epoch\":", HEADER_INFO_STRING, "\"\""},
                                {RPMTAG_GROUP, "\"group\":", HEADER_INFO_STRING, "\"\""},
                                {RPMTAG_DESCRIPTION, "\"customPackageInfo\":", HEADER_INFO_JSON, "{}"},
                            });
    return tags;
}();

namespace {

struct FreeText {
    void operator()(char* text) const { std::free(text); }
};
using Text = std::unique_ptr<char, FreeText>;

struct FreeTagData {
    void operator()(rpmtd data) const
    {
        rpmtdFreeData(data);
        rpmtdFree(data);
    }
};
using TagData = std::unique_ptr<rpmtd_s, FreeTagData>;

struct FreeIterator {
    void operator()(rpmdbMatchIterator iterator) const { rpmdbFreeIterator(iterator); }
};
using Iterator = std::unique_ptr<rpmdbMatchIterator_s, FreeIterator>;

struct FreeHeader {
    void operator()(Header header) const { headerFree(header); }
};
using HeaderHandle = std::unique_ptr<headerToken_s, FreeHeader>;

struct CloseFile {
    void operator()(FD_t file) const { Fclose(file); }
};
using File = std::unique_ptr<std::remove_pointer_t<FD_t>, CloseFile>;

struct CloseDirectory {
    void operator()(DIR* directory) const { closedir(directory); }
};

// The structured dependency list of a package, from the flat
// "dependenciename" and "dependencieversion" arrays of its parsed JSON; empty
// when there are none. Throws when the arrays aren't arrays of strings.
VectorObject<BasePackageInfo> readDependencies(Json::Value const& package)
{
    Json::Value arrays(Json::objectValue);
    for (std::string const key : {"dependenciename", "dependencieversion"}) {
        Json::Value const* found = package.isObject() ? package.find(key.data(), key.data() + key.size()) : nullptr;
        if (found)
            arrays[key] = *found;
    }
    Deserializer raw(std::move(arrays));
    auto names = deserializeOptional<VectorObject<std::string>>("dependenciename", raw, {});
    VectorObject<BasePackageInfo> dependencies;
    if (names.empty())
        return dependencies;
    auto versions = deserializeOptional<VectorObject<std::string>>("dependencieversion", raw, {});
    for (std::size_t i = 0; i < names.size(); ++i)
        dependencies.push_back(BasePackageInfo(names[i], i < versions.size() ? versions[i] : ""));
    return dependencies;
}

// The value the records read under "dependencies". Built directly rather than
// through the serial form, which costs as much as the rest of a record: the
// members are those that BasePackageInfo reads.
Json::Value dependencyValue(VectorObject<BasePackageInfo> const& dependencies)
{
    Json::Value list(Json::arrayValue);
    for (BasePackageInfo const& dependency : dependencies) {
        Json::Value& element = list.append(Json::Value(Json::objectValue));
        element["name"] = dependency.getName();
        element["version"] = dependency.getVersion();
        element["release"] = dependency.getRelease();
    }
    return list;
}

// Puts the text of `dependencies` under "dependencies" behind the first "{" of `json`.
void insertDependencies(std::string& json, VectorObject<BasePackageInfo> const& dependencies)
{
    std::string text = dependencies.serialize();
    if (!text.empty() && text.back() == '\n')
        text.pop_back();
    std::size_t const brace = json.find('{');
    if (brace != std::string::npos)
        json.insert(brace + 1, "\"dependencies\":" + text + ",");
}

// The package record of one JSON text, or false after logging the text with
// its dependency list. The text is parsed once: the dependency list goes into
// the parsed value rather than into the text.
template <class T>
bool parseRecord(std::string const& json, T& out)
{
    Json::Value package;
    Deserializer::parse(json, package); // a text that isn't JSON leaves null, which no record accepts
    VectorObject<BasePackageInfo> dependencies;
    try {
        dependencies = readDependencies(package);
    } catch (...) {
        VLOG(DebugLevelError, "Error formating(and deserializing) raw header data:\n%s\n", json.c_str());
    }
    bool const withDependencies = !dependencies.empty();
    if (withDependencies)
        package["dependencies"] = dependencyValue(dependencies);
    try {
        Deserializer deserializer(std::move(package));
        out = T(deserializer);
        return true;
    } catch (...) {
        std::string shown = json;
        if (withDependencies)
            insertDependencies(shown, dependencies);
        VLOG(DebugLevelError, "Error deserializing package info:\n%s\n", shown.c_str());
        return false;
    }
}

} // namespace

RPMPackager::RPMPackager() : dbMutex("Packager") { rpmlogSetMask(RPMLOG_UPTO(RPMLOG_ERR)); }

RPMPackager::~RPMPackager()
{
    removeFSMonitor();
    Mutex::ScopedLock lock(&dbMutex);
    freeTransactionSet();
}

void RPMPackager::freeTransactionSet()
{
    if (transactionSet)
        rpmtsFree(transactionSet);
    transactionSet = nullptr;
}

std::string RPMPackager::expandPath(std::string const& path, std::string const& fallback)
{
    std::string const& chosen = path.empty() ? fallback : path;
    if (chosen.empty())
        return chosen;
    Text expanded(rpmGetPath(chosen.c_str(), nullptr));
    return expanded ? expanded.get() : "";
}

void RPMPackager::loadRCFile(std::string const& path)
{
    Mutex::ScopedLock lock(&dbMutex);
    std::string const file = expandPath(path, getRCFilePath());
    freeTransactionSet();
    if (rpmReadConfigFiles(file.empty() ? nullptr : file.c_str(), nullptr) != 0)
        VLOG(DebugLevelError, "Error reading rc file at \"%s\".\n", file.c_str());
}

void RPMPackager::loadMacroFile(std::string const& path)
{
    Mutex::ScopedLock lock(&dbMutex);
    std::string const file = expandPath(path, getMacroFilePath());
    freeTransactionSet();
    if (!file.empty())
        rpmInitMacros(nullptr, file.c_str());
}

void RPMPackager::loadDB(std::string const& path)
{
    Mutex::ScopedLock lock(&dbMutex);
    std::string const root = expandPath(path, getDBPath());
    freeTransactionSet();
    transactionSet = rpmtsCreate();
    if (transactionSet && rpmtsSetRootDir(transactionSet, root.empty() ? nullptr : root.c_str()) != 0)
        VLOG(DebugLevelError, "Error setting database root.\n");
}

bool RPMPackager::openDataBase() { return transactionSet && rpmtsOpenDB(transactionSet, O_RDONLY) == 0; }

bool RPMPackager::closeDataBase() { return transactionSet && rpmtsCloseDB(transactionSet) == 0; }

bool RPMPackager::acquireDB(void** handle)
{
    *handle = nullptr;
    dbMutex.lock();
    if (!openDataBase())
        return false;
    *handle = transactionSet;
    return true;
}

void RPMPackager::releaseDB(void*)
{
    closeDataBase();
    dbMutex.unlock();
}

std::string RPMPackager::getRPMPath()
{
    Text path(rpmExpand("%{_rpmdir}/%{_arch}", nullptr));
    return path ? path.get() : "";
}

bool RPMPackager::getRPMHeaderData(Header header, rpmTagVal tag, HeaderInfoType type, std::string& out)
{
    TagData data(rpmtdNew());
    if (!data || !headerGet(header, tag, data.get(), HEADERGET_MINMEM))
        return false;
    Text formatted(rpmtdFormat(data.get(), RPMTD_FORMAT_STRING, nullptr));
    if (!formatted)
        return false;
    switch (type) {
    case HEADER_INFO_NUMBER:
        out += formatted.get();
        return true;
    case HEADER_INFO_STRING:
        out += '"';
        out += formatted.get();
        out += '"';
        return true;
    case HEADER_INFO_STRING_ARRAY: {
        out += '[';
        bool any = false;
        rpmtdInit(data.get());
        while (char const* text = rpmtdNextString(data.get())) {
            out += '"';
            out += text;
            out += "\",";
            any = true;
        }
        if (any)
            out.back() = ']';
        else
            out += ']';
        return true;
    }
    case HEADER_INFO_JSON:
        if (!Deserializer(std::string(formatted.get())).isValid()) {
            VLOG(DebugLevelError, "Package header contains invalid data:\n%s\n", formatted.get());
            return false;
        }
        out += formatted.get();
        return true;
    }
    return false;
}

std::string RPMPackager::headerToJson(Header header, std::vector<headerTag> const& tags)
{
    std::string json = "{";
    for (headerTag const& row : tags) {
        json += row.key;
        if (!getRPMHeaderData(header, row.tag, row.type, json))
            json += row.defaultValue;
        json += ',';
    }
    json.back() = '}';
    return json;
}

void RPMPackager::formatRPMDependencies(std::string& json)
{
    try {
        Json::Value package;
        Deserializer::parse(json, package);
        VectorObject<BasePackageInfo> const dependencies = readDependencies(package);
        if (!dependencies.empty())
            insertDependencies(json, dependencies);
    } catch (...) {
        VLOG(DebugLevelError, "Error formating(and deserializing) raw header data:\n%s\n", json.c_str());
    }
}

void RPMPackager::getRPMDBEntries(std::vector<headerTag> const& tags, rpmTagVal filterTag,
                                  VectorObject<std::string> const& values, VectorObject<std::string>& out)
{
    void* handle = nullptr;
    if (!acquireDB(&handle))
        return;
    out.clear();
    Iterator iterator(rpmtsInitIterator(static_cast<rpmts>(handle), RPMDBI_PACKAGES, nullptr, 0));
    bool filtered = true;
    if (iterator && !values.empty()) {
        std::string pattern;
        for (std::string const& value : values)
            pattern += (pattern.empty() ? "" : "|") + value;
        // A pattern that doesn't compile would otherwise leave every package matching.
        filtered = rpmdbSetIteratorRE(iterator.get(), filterTag, RPMMIRE_DEFAULT, pattern.c_str()) == 0;
    }
    while (iterator && filtered) {
        Header header = rpmdbNextIterator(iterator.get());
        if (!header)
            break;
        out.push_back(headerToJson(header, tags));
    }
    iterator.reset();
    releaseDB(handle);
}

void RPMPackager::readFileEntry(rpmts ts, std::string const& path, std::vector<headerTag> const& tags,
                                std::string& out)
{
    out.clear();
    File file(Fopen(path.c_str(), "r.ufdio"));
    if (!file || Ferror(file.get()))
        return;
    Header raw = nullptr;
    rpmReadPackageFile(ts, file.get(), path.c_str(), &raw);
    HeaderHandle header(raw);
    if (header)
        out = headerToJson(header.get(), tags);
}

template <class T>
T RPMPackager::getRPMInfo(std::string const& name, std::vector<headerTag> const& tags)
{
    VectorObject<std::string> entries;
    getRPMDBEntries(tags, RPMTAG_NAME, VectorObject<std::string>{name}, entries);
    T record;
    if (entries.empty() || !parseRecord(entries.front(), record))
        return T();
    return record;
}

template <class T>
void RPMPackager::getRPMInfoList(PackageInfoListRequest const& request, VectorObject<T>& out,
                                 std::vector<headerTag> const& tags)
{
    out.clear();
    VectorObject<std::string> entries;
    getRPMDBEntries(tags, RPMTAG_GROUP, request.getGroups(), entries);
    for (std::string const& entry : entries) {
        T record;
        if (parseRecord(entry, record))
            out.push_back(std::move(record));
    }
}

ExtendedPackageInfo RPMPackager::fileRecord(std::string const& json)
{
    ExtendedPackageInfo record;
    if (json.empty() || !parseRecord(json, record))
        return ExtendedPackageInfo();
    return record;
}

PackageInfo RPMPackager::getPackageInfo(std::string const& name)
{
    return getRPMInfo<PackageInfo>(name, packageInfoHeaderTags);
}

ExtendedPackageInfo RPMPackager::getExtendedPackageInfo(std::string const& name)
{
    return getRPMInfo<ExtendedPackageInfo>(name, extendedPackageInfoHeaderTags);
}

void RPMPackager::getPackageInfoList(PackageInfoListRequest const& request, VectorObject<PackageInfo>& out)
{
    getRPMInfoList(request, out, packageInfoHeaderTags);
}

void RPMPackager::getExtendedPackageInfoList(PackageInfoListRequest const& request,
                                             VectorObject<ExtendedPackageInfo>& out)
{
    getRPMInfoList(request, out, extendedPackageInfoHeaderTags);
}

void RPMPackager::getFilePackageInfoList(PackageInfoListRequest const& request,
                                         VectorObject<ManifestPackageInfo>& out)
{
    std::string const repository = getRepositoryPath();
    if (repository.empty())
        return;
    std::unique_ptr<DIR, CloseDirectory> directory(opendir(repository.c_str()));
    if (!directory) {
        VLOG(DebugLevelError, "local repository %s not found.\n", repository.c_str());
        return;
    }
    std::vector<std::string> paths;
    while (dirent* entry = readdir(directory.get())) {
        if (std::strncmp(entry->d_name, ".", 255) != 0 && std::strncmp(entry->d_name, "..", 255) != 0)
            paths.push_back(repository + "/" + entry->d_name);
    }
    directory.reset();

    out.clear();
    // One database hold for the whole directory: opening the database per
    // file would cost more than reading the files.
    std::vector<std::string> entries(paths.size());
    void* handle = nullptr;
    if (!acquireDB(&handle))
        return;
    for (std::size_t i = 0; i < paths.size(); ++i)
        readFileEntry(static_cast<rpmts>(handle), paths[i], extendedPackageInfoHeaderTags, entries[i]);
    releaseDB(handle);

    VectorObject<std::string> const& groups = request.getGroups();
    for (std::size_t i = 0; i < paths.size(); ++i) {
        std::string const& path = paths[i];
        ExtendedPackageInfo const info = fileRecord(entries[i]);
        ManifestPackageInfo const record(info.getName(), path, info.getDependencies(), info.getGroup());
        if (groups.empty()) {
            out.push_back(record);
            continue;
        }
        for (std::string const& group : groups) {
            if (group == info.getGroup())
                out.push_back(record);
        }
    }
}

} // namespace Velmora
