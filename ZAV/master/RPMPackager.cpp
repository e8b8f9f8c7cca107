#include "RPMPackager.h"

#include "frame/DebugPrint.h"
#include "serial/Deserializer.h"
#include "serial/Serialization.h"

#include <rpm/header.h>
#include <rpm/rpmdb.h>
#include <rpm/rpmio.h>
#include <rpm/rpmlib.h>
#include <rpm/rpmlog.h>
#include <rpm/rpmmacro.h>
#include <rpm/rpmtd.h>
#include <rpm/rpmts.h>

#include <json/reader.h>

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <limits>
#include <memory>
#include <optional>
#include <string_view>
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

// What the JSON text of one header holds for the records, as read from it.
struct HeaderFields {
    std::string name;
    std::string version;
    std::string release;
    unsigned int installTime = 0;
    std::string architecture;
    std::vector<std::string> requireNames;
    std::vector<std::string> requireVersions;
    std::string uri;
    std::string description;
    std::string epoch;
    std::string group;
    CustomPackageInfo customPackageInfo;

    // The fields are handed over: a HeaderFields makes one record.
    PackageInfo package()
    {
        std::vector<BasePackageInfo> dependencies;
        dependencies.reserve(requireNames.size());
        for (std::size_t i = 0; i < requireNames.size(); ++i)
            dependencies.emplace_back(requireNames[i], i < requireVersions.size() ? requireVersions[i] : "");
        return PackageInfo(BasePackageInfo(name, version, release), installTime, std::move(architecture),
                           std::move(dependencies));
    }
    void assignTo(PackageInfo& out) { out = package(); }
    void assignTo(ExtendedPackageInfo& out)
    {
        out = ExtendedPackageInfo(package(), std::move(uri), std::move(description), std::move(epoch),
                                  std::move(group), std::move(customPackageInfo));
    }
};

// The member of HeaderFields that a key of the header text fills, with the
// type of value the record reads there.
struct FieldSlot {
    RPMPackager::HeaderInfoType type;
    std::string* text = nullptr;
    unsigned int* number = nullptr;
    std::vector<std::string>* strings = nullptr;
    CustomPackageInfo* custom = nullptr;

    // Gives the member the empty value of its type.
    void clear() const
    {
        if (text)
            text->clear();
        if (number)
            *number = 0;
        if (strings)
            strings->clear();
        if (custom)
            *custom = CustomPackageInfo();
    }
};

std::optional<FieldSlot> slotOf(std::string_view key, HeaderFields& fields)
{
    using Type = RPMPackager::HeaderInfoType;
    std::pair<std::string_view, std::string*> const texts[] = {
        {"\"name\":", &fields.name},       {"\"version\":", &fields.version},
        {"\"release\":", &fields.release}, {"\"architecture\":", &fields.architecture},
        {"\"URI\":", &fields.uri},         {"\"description\":", &fields.description},
        {"\"epoch\":", &fields.epoch},     {"\"group\":", &fields.group}};
    for (auto const& [textKey, member] : texts) {
        if (key == textKey)
            return FieldSlot{Type::HEADER_INFO_STRING, member};
    }
    if (key == "\"installTime\":")
        return FieldSlot{Type::HEADER_INFO_NUMBER, nullptr, &fields.installTime};
    if (key == "\"dependenciename\":")
        return FieldSlot{Type::HEADER_INFO_STRING_ARRAY, nullptr, nullptr, &fields.requireNames};
    if (key == "\"dependencieversion\":")
        return FieldSlot{Type::HEADER_INFO_STRING_ARRAY, nullptr, nullptr, &fields.requireVersions};
    if (key == "\"customPackageInfo\":")
        return FieldSlot{Type::HEADER_INFO_JSON, nullptr, nullptr, nullptr, &fields.customPackageInfo};
    return std::nullopt;
}

// True when `text` reads back unchanged from between double quotes in JSON:
// it holds no quote, backslash or control character.
bool survivesQuotes(char const* text)
{
    for (; *text; ++text) {
        auto const c = static_cast<unsigned char>(*text);
        if (c < 0x20 || c == '"' || c == '\\')
            return false;
    }
    return true;
}

bool readText(char const* text, std::string& out)
{
    if (!survivesQuotes(text))
        return false;
    out = text;
    return true;
}

// A number as the record reads it from the text, when the text holds plain
// decimal digits of an unsigned 32-bit value.
bool readNumber(char const* text, unsigned int& out)
{
    std::size_t const length = std::strlen(text);
    auto const isDigit = [](char c) { return c >= '0' && c <= '9'; };
    if (length == 0 || length > 18 || !std::all_of(text, text + length, isDigit))
        return false;
    std::uint64_t value = 0;
    std::from_chars(text, text + length, value);
    if (value > std::numeric_limits<unsigned int>::max())
        return false;
    out = static_cast<unsigned int>(value);
    return true;
}

// The strings of a string array tag, when each survives the quotes.
bool readStrings(rpmtd data, std::vector<std::string>& out)
{
    out.clear();
    rpmtdInit(data);
    while (char const* text = rpmtdNextString(data)) {
        if (!survivesQuotes(text))
            return false;
        out.emplace_back(text);
    }
    return true;
}

// The package's own object of the description field, when the text is
// exactly one JSON value: then the header text reads the same value from it,
// and nothing of it spills over into the keys around it there.
bool readCustom(char const* text, CustomPackageInfo& out)
{
    thread_local std::unique_ptr<Json::CharReader> const reader = [] {
        Json::CharReaderBuilder builder;
        builder["collectComments"] = false;
        builder["allowComments"] = false;
        builder["failIfExtra"] = true;
        builder["allowSpecialFloats"] = false;
        builder["rejectDupKeys"] = false;
        builder["stackLimit"] = 255; // the header text nests it one level deeper
        return std::unique_ptr<Json::CharReader>(builder.newCharReader());
    }();
    Json::Value value;
    try {
        if (!reader->parse(text, text + std::strlen(text), &value, nullptr))
            return false;
        Deserializer deserializer(std::move(value));
        out = CustomPackageInfo(deserializer);
        return true;
    } catch (...) { // nesting beyond the stack limit, or a member of the wrong type
        return false;
    }
}

// Fills the field of `row` from the header as the header text would; false
// when only the text can tell what it reads as.
bool readField(Header header, RPMPackager::headerTag const& row, HeaderFields& fields)
{
    std::optional<FieldSlot> const slot = slotOf(row.key, fields);
    if (!slot || slot->type != row.type)
        return false;
    TagData data(rpmtdNew());
    Text formatted;
    if (data && headerGet(header, row.tag, data.get(), HEADERGET_MINMEM))
        formatted.reset(rpmtdFormat(data.get(), RPMTD_FORMAT_STRING, nullptr));
    if (!formatted) {
        // The text holds the row's default: only the empty value of the type keeps the member empty.
        static char const* const EMPTY[] = {"0", "\"\"", "[]", "{}"}; // by HeaderInfoType
        slot->clear();
        return std::strcmp(row.defaultValue, EMPTY[row.type]) == 0;
    }
    switch (row.type) {
    case RPMPackager::HEADER_INFO_NUMBER:
        return readNumber(formatted.get(), *slot->number);
    case RPMPackager::HEADER_INFO_STRING:
        return readText(formatted.get(), *slot->text);
    case RPMPackager::HEADER_INFO_STRING_ARRAY:
        return readStrings(data.get(), *slot->strings);
    case RPMPackager::HEADER_INFO_JSON:
        return readCustom(formatted.get(), *slot->custom);
    }
    return false;
}

// The record that the header's JSON text would give, built from the same
// values without writing and parsing the text; false, with `out` untouched,
// when a value needs the text.
template <class T>
bool directRecord(Header header, std::vector<RPMPackager::headerTag> const& tags, T& out)
{
    HeaderFields fields;
    for (RPMPackager::headerTag const& row : tags) {
        if (!readField(header, row, fields))
            return false;
    }
    fields.assignTo(out);
    return true;
}

// Releases a database hold on every way out of a pass.
class DatabaseHold {
public:
    DatabaseHold(RPMPackager& packager, void* handle) : packager(packager), handle(handle) {}
    ~DatabaseHold() { packager.releaseDB(handle); }
    DatabaseHold(DatabaseHold const&) = delete;
    DatabaseHold& operator=(DatabaseHold const&) = delete;

private:
    RPMPackager& packager;
    void* handle;
};

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
    knownFiles.clear();
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
    std::unique_lock lock(dbMutex);
    if (!openDataBase()) {
        VLOG(DebugLevelError, "Error opening the package database.\n");
        return false;
    }
    *handle = transactionSet;
    lock.release(); // held until releaseDB
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

template <class T>
bool RPMPackager::headerRecord(Header header, std::vector<headerTag> const& tags, T& out, bool& direct)
{
    direct = directRecord(header, tags, out);
    return direct || parseRecord(headerToJson(header, tags), out);
}

template <class Visit>
void RPMPackager::forEachDBHeader(rpmTagVal filterTag, VectorObject<std::string> const& values, Visit visit)
{
    void* handle = nullptr;
    if (!acquireDB(&handle))
        return;
    DatabaseHold const hold(*this, handle);
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
        visit(header);
    }
}

// A single record is rare and goes the text way: every matching header is
// formatted, and the first one read.
template <class T>
T RPMPackager::getRPMInfo(std::string const& name, std::vector<headerTag> const& tags)
{
    VectorObject<std::string> entries;
    forEachDBHeader(RPMTAG_NAME, VectorObject<std::string>{name},
                    [&](Header header) { entries.push_back(headerToJson(header, tags)); });
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
    forEachDBHeader(RPMTAG_GROUP, request.getGroups(), [&](Header header) {
        bool direct = false;
        out.emplace_back(); // built in place: a record copies its lists when it moves
        if (!headerRecord(header, tags, out.back(), direct))
            out.pop_back();
    });
}

ExtendedPackageInfo RPMPackager::readFileRecord(rpmts ts, std::string const& path, bool& direct)
{
    direct = false;
    File file(Fopen(path.c_str(), "r.ufdio"));
    if (!file || Ferror(file.get()))
        return ExtendedPackageInfo();
    Header raw = nullptr;
    rpmReadPackageFile(ts, file.get(), path.c_str(), &raw);
    HeaderHandle header(raw);
    ExtendedPackageInfo record;
    if (!header || !headerRecord(header.get(), extendedPackageInfoHeaderTags, record, direct))
        return ExtendedPackageInfo();
    return record;
}

// Only records built without the text are remembered: a file whose reading
// printed a message prints it again whenever the file is read.
ManifestPackageInfo RPMPackager::fileRecord(rpmts ts, RepositorySnapshot const& snapshot,
                                            RepositorySnapshot::File const& file, KnownFiles& still)
{
    std::string const path = snapshot.pathOf(file);
    std::optional<RepositorySnapshot::FileState> const& identity = file.second;
    auto const known = knownFiles.find(path);
    if (identity && known != knownFiles.end() && known->second.identity == *identity) {
        ManifestPackageInfo record = known->second.record;
        still.emplace(path, std::move(known->second));
        return record;
    }
    bool direct = false;
    ExtendedPackageInfo const info = readFileRecord(ts, path, direct);
    ManifestPackageInfo record(info.getName(), path, info.getDependencies(), info.getGroup());
    if (identity && direct && identity->settledBefore(snapshot.getTakenAt()))
        still.emplace(path, KnownFile{*identity, record});
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
    std::optional<RepositorySnapshot> const snapshot = RepositorySnapshot::take(repository);
    if (!snapshot) {
        VLOG(DebugLevelError, "local repository %s not found.\n", repository.c_str());
        return;
    }

    out.clear();
    // One database hold for the whole directory: opening the database per
    // file would cost more than reading the files.
    std::vector<ManifestPackageInfo> records;
    records.reserve(snapshot->getFiles().size());
    void* handle = nullptr;
    if (!acquireDB(&handle))
        return;
    {
        DatabaseHold const hold(*this, handle);
        KnownFiles still;
        for (RepositorySnapshot::File const& file : snapshot->getFiles())
            records.push_back(fileRecord(static_cast<rpmts>(handle), *snapshot, file, still));
        knownFiles = std::move(still); // files that vanished or changed are forgotten
    }

    VectorObject<std::string> const& groups = request.getGroups();
    for (ManifestPackageInfo& record : records) {
        if (groups.empty()) {
            out.push_back(std::move(record));
            continue;
        }
        for (std::string const& group : groups) {
            if (group == record.getGroup())
                out.push_back(record);
        }
    }
}

} // namespace Velmora
