// PackageInfo plus what a catalogue shows: URL, summary (as "description"),
// epoch, group and the package's own JSON object. A value; not shared between
// threads.
#pragma once

#include "interfaces/CustomPackageInfo.h"
#include "interfaces/PackageInfo.h"

namespace Velmora {

class ExtendedPackageInfo : public PackageInfo {
public:
    ExtendedPackageInfo();
    explicit ExtendedPackageInfo(Deserializer& deserializer);
    ExtendedPackageInfo(PackageInfo package, std::string uri, std::string description, std::string epoch,
                        std::string group, CustomPackageInfo customPackageInfo);

    std::string const& getObjectType() const override;
    SerialObject* clone() const override;
    using SerialObject::serialize;
    void serialize(Serializer& serializer) const override;

    std::string const& getURI() const { return uri; }
    std::string const& getDescription() const { return description; }
    std::string const& getEpoch() const { return epoch; }
    std::string const& getGroup() const { return group; }
    CustomPackageInfo const& getCustomPackageInfo() const { return customPackageInfo; }

private:
    std::string uri;
    std::string description;
    std::string epoch;
    std::string group;
    CustomPackageInfo customPackageInfo;
};

} // namespace Velmora
