// ATTRIBUTE_CERTIFICATE_V2FORM: the issuer of an attribute certificate in the
// v2 form.
//   SEQUENCE { issuerName GeneralNames OPTIONAL,
//              baseCertificateID [0] IMPLICIT IssuerSerial OPTIONAL,
//              objectDigestInfo [1] IMPLICIT ObjectDigestInfo OPTIONAL }
// Plain data, the OpenSSL item's functions; any thread on owned objects.
#pragma once

#include "AttributeCertificateIssuerSerial.h"
#include "AttributeCertificateObjectDigestInfo.h"

namespace Velmora {

struct ATTRIBUTE_CERTIFICATE_V2FORM_st {
    GENERAL_NAMES* issuerName;                             // null when absent
    ATTRIBUTE_CERTIFICATE_ISSUER_SERIAL* baseCertificateID; // null when absent
    ATTRIBUTE_CERTIFICATE_OBJECT_DIGESTINFO* objectDigestInfo; // null when absent
};
using ATTRIBUTE_CERTIFICATE_V2FORM = ATTRIBUTE_CERTIFICATE_V2FORM_st;

DECLARE_ASN1_FUNCTIONS(ATTRIBUTE_CERTIFICATE_V2FORM)

} // namespace Velmora
