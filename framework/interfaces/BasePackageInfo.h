// The identity of a package: name, version and release. Also the element of a
// dependency list, where the release stays empty. A default record (all empty)
// stands for "not found". A value; not shared between threads.
#pragma once

#include "serial/SerialObject.h"

#include <string>

namespace Velmora {

class Deserializer;

class BasePackageInfo : public SerialObject {
public:
    BasePackageInfo();
    // Requires a JSON object (else Exception(ReturnInvalidParameter)); missing
    // members stay empty.
    explicit BasePackageInfo(Deserializer& deserializer);
    BasePackageInfo(std::string const& name, std::string const& version, std::string const& release = "");

    std::string const& getObjectType() const override;
    SerialObject* clone() const override;
    using SerialObject::serialize;
    void serialize(Serializer& serializer) const override;

    std::string const& getName() const { return name; }
    std::string const& getVersion() const { return version; }
    std::string const& getRelease() const { return release; }

protected:
    std::string name;
    std::string version;
    std::string release;
};

} // namespace Velmora
