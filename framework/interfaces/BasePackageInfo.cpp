#include "interfaces/BasePackageInfo.h"

#include "interfaces/PackageJson.h"
#include "serial/Serialization.h"

namespace Velmora {

namespace {
SerialTypeRegistry::Registrar<BasePackageInfo> const registrar("BasePackageInfo");
}

BasePackageInfo::BasePackageInfo() = default;

BasePackageInfo::BasePackageInfo(Deserializer& d)
{
    requirePackageObject(d, "BasePackageInfo");
    name = deserializeOptional<std::string>("name", d, "");
    version = deserializeOptional<std::string>("version", d, "");
    release = deserializeOptional<std::string>("release", d, "");
}

BasePackageInfo::BasePackageInfo(std::string const& name, std::string const& version, std::string const& release)
    : name(name), version(version), release(release)
{
}

std::string const& BasePackageInfo::getObjectType() const
{
    static std::string const TYPE_NAME("BasePackageInfo");
    return TYPE_NAME;
}

SerialObject* BasePackageInfo::clone() const { return new BasePackageInfo(*this); }

void BasePackageInfo::serialize(Serializer& s) const
{
    Velmora::serialize("name", name, s);
    Velmora::serialize("version", version, s);
    Velmora::serialize("release", release, s);
}

} // namespace Velmora
