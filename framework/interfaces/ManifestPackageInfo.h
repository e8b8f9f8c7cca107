// What the local repository offers for one package: its name, the path of its
// file, the packages it requires and its group. Read from the manifest store,
// never from the RPM database. A value; not shared between threads.
#pragma once

#include "interfaces/BasePackageInfo.h"
#include "serial/VectorObject.h"

#include <string>

namespace Velmora {

class ManifestPackageInfo : public SerialObject {
public:
    ManifestPackageInfo();
    // Requires a JSON object (else Exception(ReturnInvalidParameter)).
    explicit ManifestPackageInfo(Deserializer& deserializer);
    ManifestPackageInfo(std::string const& name, std::string const& path,
                        VectorObject<BasePackageInfo> const& dependencies, std::string const& group);

    std::string const& getObjectType() const override;
    SerialObject* clone() const override;
    using SerialObject::serialize;
    void serialize(Serializer& serializer) const override;

    std::string const& getName() const { return name; }
    std::string const& getPath() const { return path; }
    std::string const& getGroup() const { return group; }
    VectorObject<BasePackageInfo> const& getDependencies() const { return dependencies; }

    // Replaces `out` by one "name version" text per dependency ("name" alone
    // when the version is empty): the form the manifest stores.
    void getNVRDependencies(VectorObject<std::string>& out) const;

    // Strict weak order over name, path, group and the (name, version) of each
    // dependency: exactly what the manifest keeps of a package, so the record
    // read from a file and the one stored for it are equivalent, and a file
    // whose content changed is not.
    bool operator<(ManifestPackageInfo const& other) const;

private:
    std::string name;
    std::string path;
    VectorObject<BasePackageInfo> dependencies;
    std::string group;
};

} // namespace Velmora
