// The Packager on the RPM library: loads the RPM configuration, owns the one
// transaction set of the process, and reads the installed-package database
// and the package files of the repository directory.
//
// A header is not mapped to a record field by field: a tag table says which
// tag goes under which JSON key and how it is formatted; the JSON text is
// assembled here and handed to the record's deserialising constructor. Read
// failures never throw: they give a default record or an empty list.
//
// Where every value of a header reads back from that text unchanged, the
// record is built from the values directly, without the text; the text is
// written and parsed only for headers whose values it would alter or break.
// Repository files are remembered by path and identity (device, inode, size,
// mtime, ctime), so that a refresh reads again only the files that changed.
//
// Threads: dbMutex makes the database a single-user resource, held from
// acquireDB to releaseDB across a whole pass; it also guards the remembered
// files. Any thread may query; the load operations belong to start-up. The
// transaction set is owned.
#pragma once

#include "frame/Mutex.h"
#include "Packager.h"
#include "RepositorySnapshot.h"

#include <rpm/rpmtag.h>
#include <rpm/rpmtypes.h>

#include <string>
#include <unordered_map>
#include <vector>

namespace Velmora {

class RPMPackager : public Packager {
public:
    enum HeaderInfoType {
        HEADER_INFO_NUMBER = 0,      // the formatted value as it stands
        HEADER_INFO_STRING = 1,      // between double quotes, not escaped
        HEADER_INFO_STRING_ARRAY = 2, // a JSON array of the tag's strings
        HEADER_INFO_JSON = 3,        // as it stands, when it parses as JSON
    };

    // One row of a tag table: `key` is the JSON key with quotes and colon,
    // `defaultValue` the JSON used when the tag can't be formatted.
    struct headerTag {
        rpmTag_e tag;
        char const* key;
        HeaderInfoType type;
        char const* defaultValue;
    };

    static std::vector<headerTag> const packageInfoHeaderTags;
    static std::vector<headerTag> const extendedPackageInfoHeaderTags;

    RPMPackager();
    ~RPMPackager() override;

    // Locks dbMutex and opens the database read-only; *handle is the
    // transaction set and the lock stays held until releaseDB. A failed open
    // (no database, a corrupt or locked one, no init() yet) returns false with
    // a null handle and the lock released: the caller's operation fails and
    // must not call releaseDB; the next acquireDB tries again.
    bool acquireDB(void** handle) override;
    // Closes the database and unlocks.
    void releaseDB(void* handle) override;

    std::string getRPMPath();

    PackageInfo getPackageInfo(std::string const& name) override;
    ExtendedPackageInfo getExtendedPackageInfo(std::string const& name) override;
    void getPackageInfoList(PackageInfoListRequest const& request, VectorObject<PackageInfo>& out) override;
    void getExtendedPackageInfoList(PackageInfoListRequest const& request,
                                    VectorObject<ExtendedPackageInfo>& out) override;
    void getFilePackageInfoList(PackageInfoListRequest const& request,
                                VectorObject<ManifestPackageInfo>& out) override;

    // Adds "dependencies" (from the raw name and version arrays) behind the
    // first "{" of a package's JSON text; leaves the text alone when there are
    // no dependencies or the text doesn't parse.
    static void formatRPMDependencies(std::string& json);

    void loadRCFile(std::string const& path) override;
    void loadMacroFile(std::string const& path) override;
    void loadDB(std::string const& path) override;

protected:
    bool openDataBase();
    bool closeDataBase();

private:
    // A repository file's record, as read when the file had `identity`.
    struct KnownFile {
        RepositorySnapshot::FileState identity;
        ManifestPackageInfo record;
    };
    using KnownFiles = std::unordered_map<std::string, KnownFile>;

    // Appends the value of `tag` formatted by `type`; false when the header
    // has no such tag or (JSON) the value doesn't parse.
    static bool getRPMHeaderData(Header header, rpmTagVal tag, HeaderInfoType type, std::string& out);
    static std::string headerToJson(Header header, std::vector<headerTag> const& tags);
    // The record of one header; false when its text doesn't make one. `direct`
    // tells whether it was built without the text (and so without a message).
    template <class T>
    static bool headerRecord(Header header, std::vector<headerTag> const& tags, T& out, bool& direct);
    // The record of the package file at `path`, read with `ts` under the
    // database lock; a default record when it is no package.
    static ExtendedPackageInfo readFileRecord(rpmts ts, std::string const& path, bool& direct);
    // The manifest record of one file of `snapshot`, from `knownFiles` while
    // the file is unchanged, else read; files worth remembering go into `still`.
    ManifestPackageInfo fileRecord(rpmts ts, RepositorySnapshot const& snapshot, RepositorySnapshot::File const& file,
                                   KnownFiles& still);
    // Calls `visit` for each header of the database that `values` select, under one database hold.
    template <class Visit>
    void forEachDBHeader(rpmTagVal filterTag, VectorObject<std::string> const& values, Visit visit);
    // The configured path of one load operation, macro-expanded: `path`, else
    // `fallback`, else empty.
    static std::string expandPath(std::string const& path, std::string const& fallback);
    // Also forgets the remembered files: what a file reads as depends on the configuration.
    void freeTransactionSet();

    template <class T>
    T getRPMInfo(std::string const& name, std::vector<headerTag> const& tags);
    template <class T>
    void getRPMInfoList(PackageInfoListRequest const& request, VectorObject<T>& out,
                        std::vector<headerTag> const& tags);

    rpmts transactionSet = nullptr; // guarded by dbMutex
    Mutex dbMutex;
    KnownFiles knownFiles; // guarded by dbMutex
};

} // namespace Velmora
