#include "PackageJson.h"

#include "Deserializer.h"
#include "Exception.h"

namespace Velmora {

static char const MODULE[] = "PackageJson";

void requirePackageObject(Deserializer& deserializer, char const* record)
{
    if (!deserializer.current().isObject())
        throwException(MODULE, __LINE__, record, ReturnInvalidParameter);
}

} // namespace Velmora
