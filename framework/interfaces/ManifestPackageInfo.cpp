#include "interfaces/ManifestPackageInfo.h"

#include "interfaces/PackageJson.h"

#include <algorithm>
#include <tuple>

namespace Velmora {

namespace {
SerialTypeRegistry::Registrar<ManifestPackageInfo> const registrar("ManifestPackageInfo");
}

ManifestPackageInfo::ManifestPackageInfo() = default;

ManifestPackageInfo::ManifestPackageInfo(Deserializer& d)
{
    requirePackageObject(d, "ManifestPackageInfo");
    name = deserializeOptional<std::string>("name", d, "");
    path = deserializeOptional<std::string>("path", d, "");
    dependencies = deserializeOptional<VectorObject<BasePackageInfo>>("dependencies", d, {});
    group = deserializeOptional<std::string>("group", d, "");
}

ManifestPackageInfo::ManifestPackageInfo(std::string const& name, std::string const& path,
                                         VectorObject<BasePackageInfo> const& dependencies, std::string const& group)
    : name(name), path(path), dependencies(dependencies), group(group)
{
}

std::string const& ManifestPackageInfo::getObjectType() const
{
    static std::string const TYPE_NAME("ManifestPackageInfo");
    return TYPE_NAME;
}

SerialObject* ManifestPackageInfo::clone() const { return new ManifestPackageInfo(*this); }

void ManifestPackageInfo::serialize(Serializer& s) const
{
    Velmora::serialize("name", name, s);
    Velmora::serialize("path", path, s);
    dependencies.serialize("dependencies", s);
    Velmora::serialize("group", group, s);
}

void ManifestPackageInfo::getNVRDependencies(VectorObject<std::string>& out) const
{
    out.clear();
    for (BasePackageInfo const& dependency : dependencies) {
        std::string word = dependency.getName();
        if (!dependency.getVersion().empty())
            word += " " + dependency.getVersion();
        out.push_back(word);
    }
}

bool ManifestPackageInfo::operator<(ManifestPackageInfo const& other) const
{
    auto key = [](ManifestPackageInfo const& record) {
        return std::tie(record.name, record.path, record.group);
    };
    if (key(*this) != key(other))
        return key(*this) < key(other);
    auto lessDependency = [](BasePackageInfo const& a, BasePackageInfo const& b) {
        return std::tie(a.getName(), a.getVersion()) < std::tie(b.getName(), b.getVersion());
    };
    return std::lexicographical_compare(dependencies.begin(), dependencies.end(), other.dependencies.begin(),
                                        other.dependencies.end(), lessDependency);
}

} // namespace Velmora
