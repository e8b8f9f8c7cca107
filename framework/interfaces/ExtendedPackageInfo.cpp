#include "interfaces/ExtendedPackageInfo.h"

namespace Velmora {

namespace {
SerialTypeRegistry::Registrar<ExtendedPackageInfo> const registrar("ExtendedPackageInfo");
}

ExtendedPackageInfo::ExtendedPackageInfo() = default;

ExtendedPackageInfo::ExtendedPackageInfo(Deserializer& d)
    : PackageInfo(d), uri(deserializeOptional<std::string>("URI", d, "")),
      description(deserializeOptional<std::string>("description", d, "")),
      epoch(deserializeOptional<std::string>("epoch", d, "")),
      group(deserializeOptional<std::string>("group", d, "")),
      customPackageInfo(deserializeOptional<CustomPackageInfo>("customPackageInfo", d, {}))
{
}

ExtendedPackageInfo::ExtendedPackageInfo(PackageInfo package, std::string uri, std::string description,
                                         std::string epoch, std::string group, CustomPackageInfo customPackageInfo)
    : PackageInfo(std::move(package)), uri(std::move(uri)), description(std::move(description)),
      epoch(std::move(epoch)), group(std::move(group)), customPackageInfo(std::move(customPackageInfo))
{
}

std::string const& ExtendedPackageInfo::getObjectType() const
{
    static std::string const TYPE_NAME("ExtendedPackageInfo");
    return TYPE_NAME;
}

SerialObject* ExtendedPackageInfo::clone() const { return new ExtendedPackageInfo(*this); }

void ExtendedPackageInfo::serialize(Serializer& s) const
{
    PackageInfo::serialize(s);
    Velmora::serialize("URI", uri, s);
    Velmora::serialize("description", description, s);
    Velmora::serialize("epoch", epoch, s);
    Velmora::serialize("group", group, s);
    customPackageInfo.serialize("customPackageInfo", s);
}

} // namespace Velmora
