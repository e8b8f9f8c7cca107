#include "interfaces/PackageInfoListRequest.h"

#include "interfaces/PackageJson.h"

namespace Velmora {

namespace {
SerialTypeRegistry::Registrar<PackageInfoListRequest> const registrar("PackageInfoListRequest");
}

PackageInfoListRequest::PackageInfoListRequest(VectorObject<std::string> const& groups) : groups(groups) {}

PackageInfoListRequest::PackageInfoListRequest(VectorObject<std::string> const& groups, unsigned int start,
                                               int nbItems, std::string const& sortOrder)
    : groups(groups), start(start), nbItems(nbItems), sortOrder(sortOrder)
{
}

PackageInfoListRequest::PackageInfoListRequest(std::string const& name, Deserializer& d)
{
    d.enterObject(name);
    read(d);
    d.leaveObject(name);
}

PackageInfoListRequest::PackageInfoListRequest(Deserializer& d) { read(d); }

void PackageInfoListRequest::read(Deserializer& d)
{
    requirePackageObject(d, "PackageInfoListRequest");
    groups = deserializeOptional<VectorObject<std::string>>("groups", d, {});
    start = deserializeOptional<unsigned int>("start", d, 0);
    nbItems = deserializeOptional<int>("nbItems", d, 0);
    sortOrder = deserializeOptional<std::string>("sortOrder", d, "");
}

std::string const& PackageInfoListRequest::getObjectType() const
{
    static std::string const TYPE_NAME("PackageInfoListRequest");
    return TYPE_NAME;
}

SerialObject* PackageInfoListRequest::clone() const { return new PackageInfoListRequest(*this); }

void PackageInfoListRequest::serialize(Serializer& s) const
{
    groups.serialize("groups", s);
    Velmora::serialize("start", start, s);
    Velmora::serialize("nbItems", nbItems, s);
    Velmora::serialize("sortOrder", sortOrder, s);
}

} // namespace Velmora
