#include "interfaces/PackageJson.h"

#include "serial/Deserializer.h"
#include "frame/Exception.h"

namespace Velmora {

static char const MODULE[] = "PackageJson";

void requirePackageObject(Deserializer& deserializer, char const* record)
{
    if (!deserializer.current().isObject())
        throwException(MODULE, __LINE__, record, ReturnInvalidParameter);
}

} // namespace Velmora
