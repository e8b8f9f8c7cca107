#include "AllowedInterface.h"

namespace Velmora {

ASN1_SEQUENCE(AllowedInterface) = {
    ASN1_SIMPLE(AllowedInterface, interfaceName, GENERAL_NAME),
    ASN1_SEQUENCE_OF_OPT(AllowedInterface, functionNames, GENERAL_NAME),
} ASN1_SEQUENCE_END(AllowedInterface)

IMPLEMENT_ASN1_FUNCTIONS(AllowedInterface)

} // namespace Velmora
