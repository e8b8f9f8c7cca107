// ATTRIBUTE_CERTIFICATE_ISSUER: who issued an attribute certificate.
//   CHOICE { v1Form GeneralNames, v2Form [0] IMPLICIT V2Form }
// `type` selects the member of `d`: 0 for v1Form, 1 for v2Form, -1 while unset.
// Plain data, the OpenSSL item's functions; any thread on owned objects.
#pragma once

#include "AttributeCertificateV2Form.h"

namespace Velmora {

struct ATTRIBUTE_CERTIFICATE_ISSUER_st {
    int type;
    union {
        GENERAL_NAMES* v1Form;
        ATTRIBUTE_CERTIFICATE_V2FORM* v2Form;
    } d;
};
using ATTRIBUTE_CERTIFICATE_ISSUER = ATTRIBUTE_CERTIFICATE_ISSUER_st;

DECLARE_ASN1_FUNCTIONS(ATTRIBUTE_CERTIFICATE_ISSUER)

} // namespace Velmora
