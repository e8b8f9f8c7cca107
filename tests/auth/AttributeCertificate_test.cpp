// The encoding: DER and PEM round trips, both issuer forms, and what the
// issuer writes into a certificate.
#include "AuthorizationFixture.h"

using namespace Velmora;
using namespace VelmoraTest;

using AttributeCertificateFormat = AuthorizationTest;

// An issued certificate re-encodes to the same bytes, leaves empty what it
// does not use, and lasts one day (the independent checker reads the time
// format, the version and the signature). The v1 form holds the issuer's names
// directly; it must be written, decoded and read back, and a switch to the v2
// form must drop its names rather than read them as a v2 form.
TEST_F(AttributeCertificateFormat, IssuedCertificateRoundTripsAndTheIssuerIsFoundInEitherForm)
{
    std::string pem = issue(pki.doricHolder.get());
    std::string der = toDer(fromPem(pem).get());
    AttributeCertificatePtr certificate = fromDer(der);
    ASSERT_TRUE(certificate);
    EXPECT_EQ(toDer(certificate.get()), der);
    EXPECT_EQ(toPem(certificate.get()), pem);
    ATTRIBUTE_CERTIFICATE_INFO const* info = certificate->acinfo;
    EXPECT_EQ(ASN1_INTEGER_get(info->serialNumber), 0);
    EXPECT_EQ(info->holder->entityName, nullptr);
    EXPECT_EQ(info->extensions, nullptr);
    EXPECT_EQ(X509at_get_attr_count(info->attributes), 1);
    int days = -1;
    int seconds = -1;
    ASSERT_EQ(ASN1_TIME_diff(&days, &seconds, info->attrCertValidityPeriod->notBeforeTime,
                             info->attrCertValidityPeriod->notAfterTime),
              1);
    EXPECT_EQ(std::make_pair(days, seconds), std::make_pair(1, 0));

    X509_NAME const* issuerName = X509_get_subject_name(pki.issuer.get());
    ASSERT_TRUE(Manager::updateAttributeVersion(certificate.get(), 1));
    stderrOf([&] { EXPECT_FALSE(Manager::updateIssuerName(certificate.get(), issuerName)); }); // no names to add to
    certificate->acinfo->issuer->d.v1Form = GENERAL_NAMES_new();
    ASSERT_TRUE(Manager::updateIssuerName(certificate.get(), issuerName));
    AttributeCertificatePtr decoded = fromDer(toDer(certificate.get()));
    ASSERT_TRUE(decoded);
    EXPECT_EQ(decoded->acinfo->issuer->type, 0);
    EXPECT_EQ(X509_NAME_cmp(Manager::getACCertificateIssuerName(decoded.get()), issuerName), 0);

    ASSERT_TRUE(Manager::updateAttributeVersion(decoded.get(), 2));
    EXPECT_EQ(Manager::getACCertificateIssuerName(decoded.get()), nullptr);
    X509_NAME const* holderName = X509_get_subject_name(pki.doricHolder.get());
    ASSERT_TRUE(Manager::updateIssuerName(decoded.get(), holderName));
    EXPECT_EQ(X509_NAME_cmp(Manager::getACCertificateIssuerName(decoded.get()), holderName), 0);
}
