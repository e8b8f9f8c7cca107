// A SerialObject holding one unsigned number, written as a bare JSON unsigned number.
#pragma once

#include "serial/LeafObject.h"

namespace Velmora {

using UInt32Object = LeafObject<unsigned int, UINT32_OBJECT_NAME>;

} // namespace Velmora
