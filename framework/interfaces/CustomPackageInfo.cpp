#include "interfaces/CustomPackageInfo.h"

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

CustomPackageInfo::CustomPackageInfo(CustomPackageInfo&& other) noexcept
    : SerialObject(other), applicationName(std::move(other.applicationName)),
      applicationType(std::move(other.applicationType)), applicationURL(std::move(other.applicationURL)),
      iconURL(std::move(other.iconURL)), vendor(std::move(other.vendor)), category(std::move(other.category))
{
    permissions.swap(other.permissions);
}

CustomPackageInfo& CustomPackageInfo::operator=(CustomPackageInfo&& other) noexcept
{
    applicationName = std::move(other.applicationName);
    permissions.swap(other.permissions);
    applicationType = std::move(other.applicationType);
    applicationURL = std::move(other.applicationURL);
    iconURL = std::move(other.iconURL);
    vendor = std::move(other.vendor);
    category = std::move(other.category);
    return *this;
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
