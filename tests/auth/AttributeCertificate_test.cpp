// The encoding: DER and PEM round trips, both issuer forms, and what the
// issuer writes into a certificate.
#include "AuthorizationFixture.h"

#include <openssl/objects.h>

#include <cstring>

using namespace Velmora;
using namespace VelmoraTest;
using ::testing::HasSubstr;

namespace {

std::string text(ASN1_STRING const* value)
{
    return std::string(reinterpret_cast<char const*>(ASN1_STRING_get0_data(value)), ASN1_STRING_length(value));
}

AttributeCertificatePtr fromDer(std::string const& der)
{
    auto const* cursor = reinterpret_cast<unsigned char const*>(der.data());
    return AttributeCertificatePtr(d2i_ATTRIBUTE_CERTIFICATE(nullptr, &cursor, static_cast<long>(der.size())));
}

} // namespace

using AttributeCertificateFormat = AuthorizationTest;

TEST_F(AttributeCertificateFormat, IssuedCertificateRoundTripsThroughDerAndPem)
{
    std::string pem = issue(pki.doricHolder.get());
    ASSERT_THAT(pem, HasSubstr("-----BEGIN ATTRIBUTE CERTIFICATE-----"));
    AttributeCertificatePtr certificate = fromPem(pem);
    ASSERT_TRUE(certificate);
    std::string der = toDer(certificate.get());
    AttributeCertificatePtr again = fromDer(der);
    ASSERT_TRUE(again);
    EXPECT_EQ(toDer(again.get()), der);
    EXPECT_EQ(toPem(again.get()), pem);
}

TEST_F(AttributeCertificateFormat, IssuedFieldsAreThoseOfTheV2Form)
{
    AttributeCertificatePtr certificate = fromPem(issue(pki.doricHolder.get()));
    ASSERT_TRUE(certificate);
    ATTRIBUTE_CERTIFICATE_INFO const* info = certificate->acinfo;
    EXPECT_EQ(ASN1_INTEGER_get(info->version), 2);
    EXPECT_EQ(ASN1_INTEGER_get(info->serialNumber), 0);
    ASSERT_EQ(info->issuer->type, 1);
    EXPECT_EQ(X509_NAME_cmp(Manager::getACCertificateIssuerName(certificate.get()),
                            X509_get_subject_name(pki.issuer.get())),
              0);
    ATTRIBUTE_CERTIFICATE_ISSUER_SERIAL const* id = info->holder->baseCertificateID;
    ASSERT_NE(id, nullptr);
    EXPECT_EQ(ASN1_INTEGER_cmp(id->serial, X509_get0_serialNumber(pki.doricHolder.get())), 0);
    EXPECT_EQ(info->holder->entityName, nullptr);
    EXPECT_EQ(info->extensions, nullptr);
    EXPECT_EQ(OBJ_obj2nid(certificate->signatureAlgorithm->algorithm), NID_sha1WithRSAEncryption);
    ASSERT_EQ(X509at_get_attr_count(info->attributes), 1);
    EXPECT_EQ(OBJ_obj2nid(X509_ATTRIBUTE_get0_object(X509at_get_attr(info->attributes, 0))), NID_info_access);
}

TEST_F(AttributeCertificateFormat, ValidityIsOneDayOfRealGeneralizedTime)
{
    AttributeCertificatePtr certificate = fromPem(issue(pki.doricHolder.get()));
    ASSERT_TRUE(certificate);
    ATTRIBUTE_CERTIFICATE_VALIDITY const* validity = certificate->acinfo->attrCertValidityPeriod;
    for (ASN1_GENERALIZEDTIME const* time : {validity->notBeforeTime, validity->notAfterTime}) {
        EXPECT_EQ(ASN1_STRING_type(time), V_ASN1_GENERALIZEDTIME);
        std::string value = text(time);
        ASSERT_EQ(value.size(), 15u) << value;
        EXPECT_EQ(value.back(), 'Z');
        EXPECT_EQ(value.find_first_not_of("0123456789"), 14u) << value;
    }
    int days = -1;
    int seconds = -1;
    ASSERT_EQ(ASN1_TIME_diff(&days, &seconds, validity->notBeforeTime, validity->notAfterTime), 1);
    EXPECT_EQ(days, 1);
    EXPECT_EQ(seconds, 0);
}

TEST_F(AttributeCertificateFormat, IssuerNameIsFoundInTheV1FormToo)
{
    AttributeCertificatePtr certificate(ATTRIBUTE_CERTIFICATE_new());
    ASSERT_TRUE(Manager::updateAttributeVersion(certificate.get(), 1));
    EXPECT_FALSE(Manager::updateIssuerName(certificate.get(), X509_get_subject_name(pki.issuer.get())));
    certificate->acinfo->issuer->d.v1Form = GENERAL_NAMES_new();
    ASSERT_TRUE(Manager::updateIssuerName(certificate.get(), X509_get_subject_name(pki.issuer.get())));
    EXPECT_EQ(X509_NAME_cmp(Manager::getACCertificateIssuerName(certificate.get()),
                            X509_get_subject_name(pki.issuer.get())),
              0);

    // Switching to the v2 form drops the v1 names instead of misreading them.
    ASSERT_TRUE(Manager::updateAttributeVersion(certificate.get(), 2));
    EXPECT_EQ(Manager::getACCertificateIssuerName(certificate.get()), nullptr);
    ASSERT_TRUE(Manager::updateIssuerName(certificate.get(), X509_get_subject_name(pki.doricHolder.get())));
    EXPECT_EQ(X509_NAME_cmp(Manager::getACCertificateIssuerName(certificate.get()),
                            X509_get_subject_name(pki.doricHolder.get())),
              0);
}

TEST_F(AttributeCertificateFormat, V1FormDecodesFromDer)
{
    std::string pem = resigned(pki.doricHolder.get(), [&](ATTRIBUTE_CERTIFICATE* certificate) {
        ASN1_INTEGER_set(certificate->acinfo->version, 1);
        ATTRIBUTE_CERTIFICATE_ISSUER* issuer = certificate->acinfo->issuer;
        ATTRIBUTE_CERTIFICATE_V2FORM_free(issuer->d.v2Form);
        issuer->type = 0;
        issuer->d.v1Form = GENERAL_NAMES_new();
        Manager::generalNameInsert(issuer->d.v1Form, X509_get_subject_name(pki.issuer.get()));
    });
    AttributeCertificatePtr decoded = fromDer(toDer(fromPem(pem).get()));
    ASSERT_TRUE(decoded);
    EXPECT_EQ(decoded->acinfo->issuer->type, 0);
    EXPECT_EQ(X509_NAME_cmp(Manager::getACCertificateIssuerName(decoded.get()),
                            X509_get_subject_name(pki.issuer.get())),
              0);
}

TEST_F(AttributeCertificateFormat, HolderWithOnlyAnEntityNameParsesButFailsTheBaseCertificateTest)
{
    std::string pem = resigned(pki.doricHolder.get(), [&](ATTRIBUTE_CERTIFICATE* certificate) {
        ATTRIBUTE_CERTIFICATE_HOLDER* holder = certificate->acinfo->holder;
        ATTRIBUTE_CERTIFICATE_ISSUER_SERIAL_free(holder->baseCertificateID);
        holder->baseCertificateID = nullptr;
        holder->entityName = GENERAL_NAMES_new();
        Manager::generalNameInsert(holder->entityName, X509_get_subject_name(pki.doricHolder.get()));
    });
    AttributeCertificatePtr decoded = fromPem(pem);
    ASSERT_TRUE(decoded);
    EXPECT_EQ(X509_NAME_cmp(Manager::retreiveHolderEntityName(decoded.get()),
                            X509_get_subject_name(pki.doricHolder.get())),
              0);
    expectRejected(pki.doricHolder.get(), pem, "baseCertificateID is NULL.\n");
}

TEST_F(AttributeCertificateFormat, HelpersRejectNullArguments)
{
    ::testing::internal::CaptureStderr();
    EXPECT_FALSE(Manager::updateAttributeVersion(nullptr, 2));
    EXPECT_FALSE(Manager::updateAttributeSerialNumber(nullptr, 0));
    EXPECT_FALSE(Manager::dupBaseCertificateIDFromIssuer(nullptr));
    EXPECT_FALSE(Manager::setHolderBaseCertificateIDNoDuplicate(nullptr, nullptr));
    EXPECT_FALSE(Manager::updateIssuerName(nullptr, nullptr));
    EXPECT_FALSE(Manager::generalNameInsert(nullptr, nullptr));
    EXPECT_FALSE(Manager::x509NameDuplicateAndFree(nullptr, nullptr));
    EXPECT_FALSE(Manager::insertAttribute(nullptr, nullptr));
    EXPECT_EQ(Manager::signKey(nullptr, nullptr, nullptr), 0);
    EXPECT_FALSE(Manager::AllowedInterfaceAddValue(nullptr, nullptr));
    EXPECT_FALSE(Manager::cmpBaseCertificateIDWithIssuer(nullptr, nullptr));
    EXPECT_EQ(Manager::getACCertificateIssuerName(nullptr), nullptr);
    EXPECT_EQ(Manager::retreiveHolderEntityName(nullptr), nullptr);
    std::string log = ::testing::internal::GetCapturedStderr();
    for (char const* message : {"acCertificate is NULL.\n", "Attribute is NULL.\n", "x509Certificate is NULL.\n",
                                "generalNames is NULL.\n", "x509NameDest is NULL.\n", "attr is NULL.\n",
                                "baseCertificateID is NULL.\n"})
        EXPECT_THAT(log, HasSubstr(message));
}

TEST_F(AttributeCertificateFormat, InsertingAnAttributeOfTheSameTypeReplacesIt)
{
    AttributeCertificatePtr certificate(ATTRIBUTE_CERTIFICATE_new());
    for (int round = 0; round < 2; ++round) {
        X509AttributePtr attribute(X509_ATTRIBUTE_new());
        X509_ATTRIBUTE_set1_object(attribute.get(), OBJ_nid2obj(NID_info_access));
        ASSERT_TRUE(Manager::insertAttribute(certificate.get(), std::move(attribute)));
    }
    X509AttributePtr other(X509_ATTRIBUTE_new());
    X509_ATTRIBUTE_set1_object(other.get(), OBJ_nid2obj(NID_commonName));
    ASSERT_TRUE(Manager::insertAttribute(certificate.get(), std::move(other)));
    EXPECT_EQ(X509at_get_attr_count(certificate->acinfo->attributes), 2);
}
