// ATTRIBUTE_CERTIFICATE: a signed attribute certificate.
//   SEQUENCE { acinfo AttributeCertificateInfo,
//              signatureAlgorithm AlgorithmIdentifier, signatureValue BIT STRING }
// The signature covers the DER of acinfo. The text form is PEM with the label
// "ATTRIBUTE CERTIFICATE", unencrypted.
// Plain data, the OpenSSL item's functions; any thread on owned objects.
#pragma once

#include "AttributeCertificateInfo.h"

#include <openssl/pem.h>

namespace Velmora {

struct ATTRIBUTE_CERTIFICATE_st {
    ATTRIBUTE_CERTIFICATE_INFO* acinfo;
    X509_ALGOR* signatureAlgorithm;
    ASN1_BIT_STRING* signatureValue;
};
using ATTRIBUTE_CERTIFICATE = ATTRIBUTE_CERTIFICATE_st;

DECLARE_ASN1_FUNCTIONS(ATTRIBUTE_CERTIFICATE)

extern char const ATTRIBUTE_CERTIFICATE_PEM_LABEL[]; // "ATTRIBUTE CERTIFICATE"

// The PEM form. Reads give a new certificate owned by the caller, or null;
// writes give 1 on success, 0 on failure.
ATTRIBUTE_CERTIFICATE* PEM_read_ATTRIBUTE_CERTIFICATE(FILE* file);
ATTRIBUTE_CERTIFICATE* PEM_read_bio_ATTRIBUTE_CERTIFICATE(BIO* bio);
int PEM_write_ATTRIBUTE_CERTIFICATE(FILE* file, ATTRIBUTE_CERTIFICATE const* certificate);
int PEM_write_bio_ATTRIBUTE_CERTIFICATE(BIO* bio, ATTRIBUTE_CERTIFICATE const* certificate);

using AttributeCertificatePtr = std::unique_ptr<ATTRIBUTE_CERTIFICATE, OpenSSLDeleter<ATTRIBUTE_CERTIFICATE_free>>;

} // namespace Velmora
