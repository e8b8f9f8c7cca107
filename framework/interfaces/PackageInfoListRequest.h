// What a list query asks for: the groups (none: all), how many sorted entries
// to skip, how many to return at most (0 or negative: all) and the order
// (IPackageManager::SORT_BY_DATE, else alphabetical). A value; not shared
// between threads.
#pragma once

#include "serial/SerialObject.h"
#include "serial/VectorObject.h"

#include <string>

namespace Velmora {

class PackageInfoListRequest : public SerialObject {
public:
    explicit PackageInfoListRequest(VectorObject<std::string> const& groups);
    PackageInfoListRequest(VectorObject<std::string> const& groups, unsigned int start, int nbItems,
                           std::string const& sortOrder);
    // Reads the record from the member `name` of the current object; missing
    // fields keep their defaults, a missing member or a wrong type throws
    // Exception(ReturnInvalidParameter).
    PackageInfoListRequest(std::string const& name, Deserializer& deserializer);
    explicit PackageInfoListRequest(Deserializer& deserializer);

    std::string const& getObjectType() const override;
    SerialObject* clone() const override;
    using SerialObject::serialize;
    void serialize(Serializer& serializer) const override;

    VectorObject<std::string> const& getGroups() const { return groups; }
    unsigned int getStart() const { return start; }
    int getNbItems() const { return nbItems; }
    std::string const& getSortOrder() const { return sortOrder; }

private:
    void read(Deserializer& deserializer);

    VectorObject<std::string> groups;
    unsigned int start = 0;
    int nbItems = 0;
    std::string sortOrder;
};

} // namespace Velmora
