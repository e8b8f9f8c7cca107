#include "interfaces/PackageInfo.h"

namespace Velmora {

namespace {
SerialTypeRegistry::Registrar<PackageInfo> const registrar("PackageInfo");
}

PackageInfo::PackageInfo() = default;

PackageInfo::PackageInfo(Deserializer& d)
    : BasePackageInfo(d), installTime(deserializeOptional<unsigned int>("installTime", d, 0)),
      architecture(deserializeOptional<std::string>("architecture", d, "")),
      dependencies(deserializeOptional<VectorObject<BasePackageInfo>>("dependencies", d, {}))
{
}

PackageInfo::PackageInfo(BasePackageInfo const& identity, unsigned int installTime, std::string architecture,
                         std::vector<BasePackageInfo> dependencies)
    : BasePackageInfo(identity), installTime(installTime), architecture(std::move(architecture))
{
    this->dependencies.swap(dependencies);
}

PackageInfo::PackageInfo(PackageInfo&& other) noexcept
    : BasePackageInfo(std::move(other)), installTime(other.installTime), architecture(std::move(other.architecture))
{
    dependencies.swap(other.dependencies);
}

PackageInfo& PackageInfo::operator=(PackageInfo&& other) noexcept
{
    BasePackageInfo::operator=(std::move(other));
    installTime = other.installTime;
    architecture = std::move(other.architecture);
    dependencies.swap(other.dependencies);
    return *this;
}

std::string const& PackageInfo::getObjectType() const
{
    static std::string const TYPE_NAME("PackageInfo");
    return TYPE_NAME;
}

SerialObject* PackageInfo::clone() const { return new PackageInfo(*this); }

void PackageInfo::serialize(Serializer& s) const
{
    BasePackageInfo::serialize(s);
    Velmora::serialize("installTime", installTime, s);
    Velmora::serialize("architecture", architecture, s);
    dependencies.serialize("dependencies", s);
}

} // namespace Velmora
