// What the RPM database says of one installed package: its identity, install
// time (seconds), platform and the packages it requires. The raw keys
// "dependenciename" and "dependencieversion" of the header text are ignored;
// "dependencies" may be absent. A value; not shared between threads.
#pragma once

#include "interfaces/BasePackageInfo.h"
#include "serial/VectorObject.h"

#include <vector>

namespace Velmora {

class PackageInfo : public BasePackageInfo {
public:
    PackageInfo();
    explicit PackageInfo(Deserializer& deserializer);
    PackageInfo(BasePackageInfo const& identity, unsigned int installTime, std::string architecture,
                std::vector<BasePackageInfo> dependencies);
    PackageInfo(PackageInfo const& other) = default;
    PackageInfo& operator=(PackageInfo const& other) = default;
    // A VectorObject copies its elements when moved; these hand the list over.
    PackageInfo(PackageInfo&& other) noexcept;
    PackageInfo& operator=(PackageInfo&& other) noexcept;

    std::string const& getObjectType() const override;
    SerialObject* clone() const override;
    using SerialObject::serialize;
    void serialize(Serializer& serializer) const override;

    unsigned int getInstallTime() const { return installTime; }
    std::string const& getArchitecture() const { return architecture; }
    VectorObject<BasePackageInfo> const& getDependencies() const { return dependencies; }

protected:
    unsigned int installTime = 0;
    std::string architecture;
    VectorObject<BasePackageInfo> dependencies;
};

} // namespace Velmora
