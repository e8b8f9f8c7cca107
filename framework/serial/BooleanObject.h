// A SerialObject holding one boolean, written as a bare JSON boolean.
#pragma once

#include "serial/LeafObject.h"

namespace Velmora {

using BooleanObject = LeafObject<bool, BOOLEAN_OBJECT_NAME>;

} // namespace Velmora
