// ATTRIBUTE_CERTIFICATE_VALIDITY: the period in which an attribute certificate
// is in force.
//   SEQUENCE { notBeforeTime GeneralizedTime, notAfterTime GeneralizedTime }
// Both times are real GeneralizedTime ("YYYYMMDDHHMMSSZ"). The type has an
// item but no functions of its own: it only lives inside ATTRIBUTE_CERTIFICATE_INFO.
#pragma once

#include "OpenSSLPtr.h"

#include <openssl/asn1t.h>

namespace Velmora {

struct ATTRIBUTE_CERTIFICATE_VALIDITY_st {
    ASN1_GENERALIZEDTIME* notBeforeTime;
    ASN1_GENERALIZEDTIME* notAfterTime;
};
using ATTRIBUTE_CERTIFICATE_VALIDITY = ATTRIBUTE_CERTIFICATE_VALIDITY_st;

DECLARE_ASN1_ITEM(ATTRIBUTE_CERTIFICATE_VALIDITY)

} // namespace Velmora
