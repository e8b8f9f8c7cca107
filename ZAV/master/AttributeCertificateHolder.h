// ATTRIBUTE_CERTIFICATE_HOLDER: who an attribute certificate is for.
//   SEQUENCE { baseCertificateID [0] IMPLICIT IssuerSerial OPTIONAL,
//              entityName [1] IMPLICIT GeneralNames OPTIONAL,
//              objectDigestInfo [2] IMPLICIT ObjectDigestInfo OPTIONAL }
// Plain data, the OpenSSL item's functions; any thread on owned objects.
#pragma once

#include "AttributeCertificateIssuerSerial.h"
#include "AttributeCertificateObjectDigestInfo.h"

namespace Velmora {

struct ATTRIBUTE_CERTIFICATE_HOLDER_st {
    ATTRIBUTE_CERTIFICATE_ISSUER_SERIAL* baseCertificateID;    // null when absent
    GENERAL_NAMES* entityName;                                 // null when absent
    ATTRIBUTE_CERTIFICATE_OBJECT_DIGESTINFO* objectDigestInfo; // null when absent
};
using ATTRIBUTE_CERTIFICATE_HOLDER = ATTRIBUTE_CERTIFICATE_HOLDER_st;

DECLARE_ASN1_FUNCTIONS(ATTRIBUTE_CERTIFICATE_HOLDER)

} // namespace Velmora
