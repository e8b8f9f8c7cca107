// ATTRIBUTE_CERTIFICATE_INFO: the signed body of an attribute certificate.
//   SEQUENCE { version INTEGER, holder Holder, issuer AttCertIssuer,
//              signature AlgorithmIdentifier, serialNumber INTEGER,
//              attrCertValidityPeriod Validity, attributes SEQUENCE OF Attribute,
//              issuerUniqueID BIT STRING OPTIONAL,
//              extensions SEQUENCE OF Extension OPTIONAL }
// This system writes version 2 for the v2 form and serial number 0.
// Plain data, the OpenSSL item's functions; any thread on owned objects.
#pragma once

#include "AttributeCertificateHolder.h"
#include "AttributeCertificateIssuer.h"
#include "AttributeCertificateValidity.h"

namespace Velmora {

struct ATTRIBUTE_CERTIFICATE_INFO_st {
    ASN1_INTEGER* version;
    ATTRIBUTE_CERTIFICATE_HOLDER* holder;
    ATTRIBUTE_CERTIFICATE_ISSUER* issuer;
    X509_ALGOR* signature;
    ASN1_INTEGER* serialNumber;
    ATTRIBUTE_CERTIFICATE_VALIDITY* attrCertValidityPeriod;
    STACK_OF(X509_ATTRIBUTE) * attributes;
    ASN1_BIT_STRING* issuerUniqueID;      // null when absent
    STACK_OF(X509_EXTENSION) * extensions; // null when absent
};
using ATTRIBUTE_CERTIFICATE_INFO = ATTRIBUTE_CERTIFICATE_INFO_st;

DECLARE_ASN1_FUNCTIONS(ATTRIBUTE_CERTIFICATE_INFO)

} // namespace Velmora
