// A SerialObject holding one string, written as a bare JSON string.
#pragma once

#include "serial/LeafObject.h"

namespace Velmora {

using StringObject = LeafObject<std::string, STRING_OBJECT_NAME>;

} // namespace Velmora
