// Empty root of every listener family. Families inherit it virtually so that
// one object can listen to several of them and be passed around as IListener*.
#pragma once

namespace Velmora {

class IListener {
public:
    virtual ~IListener() = default;
};

} // namespace Velmora
