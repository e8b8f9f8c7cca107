// The package's own JSON object, carried in the RPM description field: what a
// package announces about the application it brings. "{}" or any value that is
// not an object gives the empty record. A value; not shared between threads.
#pragma once

#include "serial/SerialObject.h"
#include "serial/VectorObject.h"

#include <string>

namespace Velmora {

class CustomPackageInfo : public SerialObject {
public:
    CustomPackageInfo();
    // Members of the wrong JSON type throw Exception(ReturnInvalidParameter).
    explicit CustomPackageInfo(Deserializer& deserializer);
    CustomPackageInfo(CustomPackageInfo const& other) = default;
    CustomPackageInfo& operator=(CustomPackageInfo const& other) = default;
    // A VectorObject copies its elements when moved; these hand the list over.
    CustomPackageInfo(CustomPackageInfo&& other) noexcept;
    CustomPackageInfo& operator=(CustomPackageInfo&& other) noexcept;

    std::string const& getObjectType() const override;
    SerialObject* clone() const override;
    using SerialObject::serialize;
    void serialize(Serializer& serializer) const override;

    std::string const& getApplicationName() const { return applicationName; }
    VectorObject<std::string> const& getPermissions() const { return permissions; }
    std::string const& getApplicationType() const { return applicationType; }
    std::string const& getApplicationURL() const { return applicationURL; }
    std::string const& getIconURL() const { return iconURL; }
    std::string const& getVendor() const { return vendor; }
    std::string const& getCategory() const { return category; }

private:
    std::string applicationName;
    VectorObject<std::string> permissions;
    std::string applicationType;
    std::string applicationURL;
    std::string iconURL;
    std::string vendor;
    std::string category;
};

} // namespace Velmora
