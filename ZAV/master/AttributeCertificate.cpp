#include "AttributeCertificate.h"

namespace Velmora {

char const ATTRIBUTE_CERTIFICATE_PEM_LABEL[] = "ATTRIBUTE CERTIFICATE";

ASN1_SEQUENCE(ATTRIBUTE_CERTIFICATE) = {
    ASN1_SIMPLE(ATTRIBUTE_CERTIFICATE, acinfo, ATTRIBUTE_CERTIFICATE_INFO),
    ASN1_SIMPLE(ATTRIBUTE_CERTIFICATE, signatureAlgorithm, X509_ALGOR),
    ASN1_SIMPLE(ATTRIBUTE_CERTIFICATE, signatureValue, ASN1_BIT_STRING),
} ASN1_SEQUENCE_END(ATTRIBUTE_CERTIFICATE)

IMPLEMENT_ASN1_FUNCTIONS(ATTRIBUTE_CERTIFICATE)

namespace {

// The PEM layer works on untyped coders; the pointer parameters convert alike.
d2i_of_void* const decode = reinterpret_cast<d2i_of_void*>(d2i_ATTRIBUTE_CERTIFICATE);
i2d_of_void* const encode = reinterpret_cast<i2d_of_void*>(i2d_ATTRIBUTE_CERTIFICATE);

} // namespace

ATTRIBUTE_CERTIFICATE* PEM_read_ATTRIBUTE_CERTIFICATE(FILE* file)
{
    return static_cast<ATTRIBUTE_CERTIFICATE*>(
        PEM_ASN1_read(decode, ATTRIBUTE_CERTIFICATE_PEM_LABEL, file, nullptr, nullptr, nullptr));
}

ATTRIBUTE_CERTIFICATE* PEM_read_bio_ATTRIBUTE_CERTIFICATE(BIO* bio)
{
    return static_cast<ATTRIBUTE_CERTIFICATE*>(
        PEM_ASN1_read_bio(decode, ATTRIBUTE_CERTIFICATE_PEM_LABEL, bio, nullptr, nullptr, nullptr));
}

int PEM_write_ATTRIBUTE_CERTIFICATE(FILE* file, ATTRIBUTE_CERTIFICATE const* certificate)
{
    return PEM_ASN1_write(encode, ATTRIBUTE_CERTIFICATE_PEM_LABEL, file, certificate, nullptr, nullptr, 0, nullptr,
                          nullptr);
}

int PEM_write_bio_ATTRIBUTE_CERTIFICATE(BIO* bio, ATTRIBUTE_CERTIFICATE const* certificate)
{
    return PEM_ASN1_write_bio(encode, ATTRIBUTE_CERTIFICATE_PEM_LABEL, bio, certificate, nullptr, nullptr, 0, nullptr,
                              nullptr);
}

} // namespace Velmora
