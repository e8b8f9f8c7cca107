// ATTRIBUTE_CERTIFICATE_OBJECT_DIGESTINFO: names an object by its digest.
//   SEQUENCE { digestedObjectType ENUMERATED, otherObjectTypeID OBJECT IDENTIFIER
//              OPTIONAL, digestAlgorithm AlgorithmIdentifier, objectDigest BIT STRING }
// Decoded and encoded only; the system itself never fills one in.
// Plain data, the OpenSSL item's functions; any thread on owned objects.
#pragma once

#include "OpenSSLPtr.h"

#include <openssl/asn1t.h>

namespace Velmora {

struct ATTRIBUTE_CERTIFICATE_OBJECT_DIGESTINFO_st {
    ASN1_ENUMERATED* digestedObjectType;
    ASN1_OBJECT* otherObjectTypeID; // null when absent
    X509_ALGOR* digestAlgorithm;
    ASN1_BIT_STRING* objectDigest;
};
using ATTRIBUTE_CERTIFICATE_OBJECT_DIGESTINFO = ATTRIBUTE_CERTIFICATE_OBJECT_DIGESTINFO_st;

DECLARE_ASN1_FUNCTIONS(ATTRIBUTE_CERTIFICATE_OBJECT_DIGESTINFO)

} // namespace Velmora
