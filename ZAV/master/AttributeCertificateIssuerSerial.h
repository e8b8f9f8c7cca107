// ATTRIBUTE_CERTIFICATE_ISSUER_SERIAL: a public-key certificate named by its
// issuer, its serial number and, optionally, its issuer unique ID.
//   SEQUENCE { issuer GeneralNames, serial INTEGER, issuerUID BIT STRING OPTIONAL }
// Plain data; the functions below are those of the OpenSSL item and may be
// called from any thread on objects that the caller owns.
#pragma once

#include "OpenSSLPtr.h"

#include <openssl/asn1t.h>

namespace Velmora {

struct ATTRIBUTE_CERTIFICATE_ISSUER_SERIAL_st {
    GENERAL_NAMES* issuer;
    ASN1_INTEGER* serial;
    ASN1_BIT_STRING* issuerUID; // null when absent
};
using ATTRIBUTE_CERTIFICATE_ISSUER_SERIAL = ATTRIBUTE_CERTIFICATE_ISSUER_SERIAL_st;

DECLARE_ASN1_FUNCTIONS(ATTRIBUTE_CERTIFICATE_ISSUER_SERIAL)

using AttributeCertificateIssuerSerialPtr =
    std::unique_ptr<ATTRIBUTE_CERTIFICATE_ISSUER_SERIAL, OpenSSLDeleter<ATTRIBUTE_CERTIFICATE_ISSUER_SERIAL_free>>;

} // namespace Velmora
