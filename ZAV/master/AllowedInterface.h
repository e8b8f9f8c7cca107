// AllowedInterface: one value of the authorization attribute, an interface and
// the functions of it that the holder may call.
//   SEQUENCE { interfaceName GeneralName, functionNames GeneralNames OPTIONAL }
// Every name is a directoryName whose only entry is a commonName.
// Plain data, the OpenSSL item's functions; any thread on owned objects.
#pragma once

#include "OpenSSLPtr.h"

#include <openssl/asn1t.h>

namespace Velmora {

struct AllowedInterface_st {
    GENERAL_NAME* interfaceName;
    GENERAL_NAMES* functionNames; // null when absent
};
using AllowedInterface = AllowedInterface_st;

DECLARE_ASN1_FUNCTIONS(AllowedInterface)

using AllowedInterfacePtr = std::unique_ptr<AllowedInterface, OpenSSLDeleter<AllowedInterface_free>>;

} // namespace Velmora
