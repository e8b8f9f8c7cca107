#include "CustomPackageInfo.h"

namespace Velmora {

namespace {
SerialTypeRegistry::Registrar<CustomPackageInfo> const registrar("CustomPackageInfo");
}

CustomPackageInfo::CustomPackageInfo() = default;

CustomPackageInfo::CustomPackageInfo(Deserializer& d)
{
    if (!d.current().isObject())
        return;
    applicationName = deserializeOptional<std::string>("applicationName", d, "");
    permissions = deserializeOptional<VectorObject<std::string>>("permissions", d, {});
    applicationType = deserializeOptional<std::string>("applicationType", d, "");
    applicationURL = deserializeOptional<std::string>("applicationURL", d, "");
    iconURL = deserializeOptional<std::string>("iconURL", d, "");
    vendor = deserializeOptional<std::string>("vendor", d, "");
    category = deserializeOptional<std::string>("category", d, "");
}

std::string const& CustomPackageInfo::getObjectType() const
{
    static std::string const TYPE_NAME("CustomPackageInfo");
    return TYPE_NAME;
}

SerialObject* CustomPackageInfo::clone() const { return new CustomPackageInfo(*this); }

void CustomPackageInfo::serialize(Serializer& s) const
{
    Velmora::serialize("applicationName", applicationName, s);
    permissions.serialize("permissions", s);
    Velmora::serialize("applicationType", applicationType, s);
    Velmora::serialize("applicationURL", applicationURL, s);
    Velmora::serialize("iconURL", iconURL, s);
    Velmora::serialize("vendor", vendor, s);
    Velmora::serialize("category", category, s);
}

} // namespace Velmora
