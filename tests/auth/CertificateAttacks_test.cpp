// Certificates that must not give rights: each ends with token 0, its
// message, and no temporary file left behind.
#include "AuthorizationFixture.h"

#include <openssl/objects.h>

#include <ctime>

using namespace Velmora;
using namespace VelmoraTest;
using ::testing::HasSubstr;

namespace {

void setTimes(ATTRIBUTE_CERTIFICATE* certificate, long notBefore, long notAfter)
{
    ATTRIBUTE_CERTIFICATE_VALIDITY* validity = certificate->acinfo->attrCertValidityPeriod;
    time_t now = std::time(nullptr);
    ASN1_GENERALIZEDTIME_adj(validity->notBeforeTime, now, 0, notBefore);
    ASN1_GENERALIZEDTIME_adj(validity->notAfterTime, now, 0, notAfter);
}

// Replaces the authorization attribute by one holding `value` as its only value.
void replaceValue(ATTRIBUTE_CERTIFICATE* certificate, AllowedInterface const* value)
{
    X509AttributePtr attribute(X509_ATTRIBUTE_new());
    X509_ATTRIBUTE_set1_object(attribute.get(), OBJ_nid2obj(NID_info_access));
    if (value != nullptr)
        AuthorizationAttributesManager::AllowedInterfaceAddValue(attribute.get(), value);
    AuthorizationAttributesManager::insertAttribute(certificate, std::move(attribute));
}

GENERAL_NAME* directoryName(char const* text)
{
    GENERAL_NAME* name = GENERAL_NAME_new();
    GENERAL_NAME_set0_value(name, GEN_DIRNAME, makeName({{"CN", text}}).release());
    return name;
}

GENERAL_NAME* dnsName(char const* text)
{
    GENERAL_NAME* name = GENERAL_NAME_new();
    ASN1_IA5STRING* value = ASN1_IA5STRING_new();
    ASN1_STRING_set(value, text, -1);
    GENERAL_NAME_set0_value(name, GEN_DNS, value);
    return name;
}

std::string pemOf(std::string const& der)
{
    BIOPtr bio(BIO_new(BIO_s_mem()));
    PEM_write_bio(bio.get(), "ATTRIBUTE CERTIFICATE", "", reinterpret_cast<unsigned char const*>(der.data()),
                  static_cast<long>(der.size()));
    char* data = nullptr;
    long length = BIO_get_mem_data(bio.get(), &data);
    return std::string(data, length);
}

} // namespace

class Rejection : public AuthorizationTest {
protected:
    // A certificate whose only authorization value names `interfaceName` and
    // `functions` (both owned by the value; null functions are left absent).
    std::string withValue(GENERAL_NAME* interfaceName, GENERAL_NAMES* functions)
    {
        AllowedInterfacePtr value(AllowedInterface_new());
        GENERAL_NAME_free(value->interfaceName);
        value->interfaceName = interfaceName;
        value->functionNames = functions;
        return resigned(pki.doricHolder.get(),
                        [&](ATTRIBUTE_CERTIFICATE* certificate) { replaceValue(certificate, value.get()); });
    }
};

TEST_F(Rejection, TamperedSignature)
{
    expectRejected(pki.doricHolder.get(),
                   altered(
                       pki.doricHolder.get(),
                       [](ATTRIBUTE_CERTIFICATE* certificate) {
                           ASN1_BIT_STRING* signature = certificate->signatureValue;
                           ASN1_BIT_STRING_set_bit(signature, 100, !ASN1_BIT_STRING_get_bit(signature, 100));
                       },
                       nullptr),
                   "AC Issuer signature verification failed.\n");
}

TEST_F(Rejection, TamperedContentUnderTheOldSignature)
{
    expectRejected(pki.doricHolder.get(),
                   altered(
                       pki.doricHolder.get(),
                       [](ATTRIBUTE_CERTIFICATE* certificate) { setTimes(certificate, -60, 86400L * 365); }, nullptr),
                   "AC Issuer signature verification failed.\n");
}

TEST_F(Rejection, SignedByAnotherKey)
{
    expectRejected(pki.doricHolder.get(),
                   altered(
                       pki.doricHolder.get(), [](ATTRIBUTE_CERTIFICATE*) {}, pki.strangerKey.get()),
                   "AC Issuer signature verification failed.\n");
}

TEST_F(Rejection, IssuerWithoutAnRsaKey)
{
    std::string certificate = issue(pki.doricHolder.get());
    delete manager;
    delete manager;
    manager = Manager::getInstance();
    manager->initialize(sandbox.file("ec.crt", toPem(pki.ecIssuer.get())), sandbox.issuerKey(), &services);
    expectRejected(pki.doricHolder.get(), certificate, "AC Issuer public key is not of RSA type.\n");
}

TEST_F(Rejection, Expired)
{
    expectRejected(pki.doricHolder.get(),
                   resigned(pki.doricHolder.get(),
                            [](ATTRIBUTE_CERTIFICATE* certificate) { setTimes(certificate, -86401, -1); }),
                   "AC certificate not after is in the past.\n");
}

TEST_F(Rejection, NotYetValid)
{
    expectRejected(pki.doricHolder.get(),
                   resigned(pki.doricHolder.get(),
                            [](ATTRIBUTE_CERTIFICATE* certificate) { setTimes(certificate, 3600, 86400); }),
                   "AC certificate not before is in the futur.\n");
}

TEST_F(Rejection, MalformedTimesReportBothHalves)
{
    std::string log;
    std::string certificate = resigned(pki.doricHolder.get(), [](ATTRIBUTE_CERTIFICATE* certificate) {
        ATTRIBUTE_CERTIFICATE_VALIDITY* validity = certificate->acinfo->attrCertValidityPeriod;
        ASN1_STRING_set(validity->notBeforeTime, "yesterday", -1);
        ASN1_STRING_set(validity->notAfterTime, "20991301000000Z", -1);
    });
    EXPECT_EQ(apply(pki.doricHolder.get(), certificate, &log), 0u);
    EXPECT_THAT(log, HasSubstr("AC certificate not before verification error.\n"));
    EXPECT_THAT(log, HasSubstr("AC certificate not after verification error.\n"));
}

TEST_F(Rejection, AnotherHoldersCertificate)
{
    expectRejected(pki.verisignHolder.get(), issue(pki.doricHolder.get()), "cmpBaseCertificateIDWithIssuer failed.\n");
}

TEST_F(Rejection, SameIssuerWithAnotherSerialIsAccepted)
{
    // The serial number is not compared; only the holder's issuer is.
    EXPECT_NE(apply(pki.doricOtherSerial.get(), issue(pki.doricHolder.get())), 0u);
}

TEST_F(Rejection, Version1AsTheRfcNumbersIt)
{
    expectRejected(pki.doricHolder.get(),
                   resigned(pki.doricHolder.get(),
                            [](ATTRIBUTE_CERTIFICATE* certificate) { ASN1_INTEGER_set(certificate->acinfo->version, 1); }),
                   "Invalid Attribute certificate version (received v1 instead of expected v2).\n");
}

TEST_F(Rejection, IssuerNameOfSomeoneElse)
{
    expectRejected(pki.doricHolder.get(),
                   resigned(pki.doricHolder.get(),
                            [&](ATTRIBUTE_CERTIFICATE* certificate) {
                                sk_GENERAL_NAME_pop_free(certificate->acinfo->issuer->d.v2Form->issuerName,
                                                         GENERAL_NAME_free);
                                certificate->acinfo->issuer->d.v2Form->issuerName = GENERAL_NAMES_new();
                                Manager::updateIssuerName(certificate,
                                                          X509_get_subject_name(pki.doricHolder.get()));
                            }),
                   "AC certificate Issuer name and Issuer Name subject name do not match.\n");
}

TEST_F(Rejection, AttributeWithoutFunctionNames)
{
    expectRejected(pki.doricHolder.get(), withValue(directoryName("IZap"), nullptr), "Function name array is NULL.\n");
}

TEST_F(Rejection, InterfaceNameThatIsNotADirectoryName)
{
    expectRejected(pki.doricHolder.get(), withValue(dnsName("izap.example"), GENERAL_NAMES_new()),
                   "Attribute values interface name is not a DIRNAME.\n");
}

TEST_F(Rejection, FunctionNameThatIsNotADirectoryName)
{
    GENERAL_NAMES* functions = GENERAL_NAMES_new();
    sk_GENERAL_NAME_push(functions, dnsName("zap"));
    expectRejected(pki.doricHolder.get(), withValue(directoryName("IZap"), functions),
                   "Attribute values instance subtype is not a DIRNAME.\n");
}

TEST_F(Rejection, DirectoryNameWithoutACommonName)
{
    GENERAL_NAME* name = GENERAL_NAME_new();
    GENERAL_NAME_set0_value(name, GEN_DIRNAME, makeName({{"O", "no common name"}}).release());
    expectRejected(pki.doricHolder.get(), withValue(name, GENERAL_NAMES_new()), "X509 Name is invalid.\n");
}

TEST_F(Rejection, ValueThatIsNoAllowedInterface)
{
    expectRejected(pki.doricHolder.get(),
                   resigned(pki.doricHolder.get(),
                            [](ATTRIBUTE_CERTIFICATE* certificate) {
                                X509AttributePtr attribute(X509_ATTRIBUTE_new());
                                X509_ATTRIBUTE_set1_object(attribute.get(), OBJ_nid2obj(NID_info_access));
                                unsigned char const junk[] = {0x30, 0x03, 0x02, 0x01, 0x05};
                                Manager::AttributeAddValue(attribute.get(), V_ASN1_OCTET_STRING, junk, sizeof junk);
                                Manager::insertAttribute(certificate, std::move(attribute));
                            }),
                   "Attribute type cannot be parsed.\n");
}

TEST_F(Rejection, NoAttributeAtAll)
{
    expectRejected(pki.doricHolder.get(),
                   resigned(pki.doricHolder.get(),
                            [](ATTRIBUTE_CERTIFICATE* certificate) {
                                sk_X509_ATTRIBUTE_pop_free(certificate->acinfo->attributes, X509_ATTRIBUTE_free);
                                certificate->acinfo->attributes = sk_X509_ATTRIBUTE_new_null();
                            }),
                   "No attribute found.\n");
}

TEST_F(Rejection, AttributesOfOtherTypesOrWithoutValuesGiveAnEmptyRightSet)
{
    std::string emptySet = resigned(pki.doricHolder.get(),
                                    [](ATTRIBUTE_CERTIFICATE* certificate) { replaceValue(certificate, nullptr); });
    uint32_t token = apply(pki.doricHolder.get(), emptySet);
    ASSERT_NE(token, 0u);
    EXPECT_TRUE(manager->lookupAuthorizationToken(token).empty());

    std::string otherType = resigned(pki.doricHolder.get(), [](ATTRIBUTE_CERTIFICATE* certificate) {
        X509_ATTRIBUTE* attribute = X509at_get_attr(certificate->acinfo->attributes, 0);
        X509_ATTRIBUTE_set1_object(attribute, OBJ_nid2obj(NID_commonName));
    });
    token = apply(pki.doricHolder.get(), otherType);
    ASSERT_NE(token, 0u);
    EXPECT_TRUE(manager->lookupAuthorizationToken(token).empty());
}

TEST_F(Rejection, GarbagePem)
{
    expectRejected(pki.doricHolder.get(), "-----BEGIN ATTRIBUTE CERTIFICATE-----\n%%%%\n", "PEM_read_X509 failed on:");
    expectRejected(pki.doricHolder.get(), "", "PEM_read_X509 failed on:");
}

TEST_F(Rejection, TruncatedDer)
{
    std::string der = toDer(fromPem(issue(pki.doricHolder.get())).get());
    for (size_t length : {size_t(1), der.size() / 2, der.size() - 1})
        expectRejected(pki.doricHolder.get(), pemOf(der.substr(0, length)), "PEM_read_X509 failed on:");
}

TEST_F(Rejection, OversizedDer)
{
    std::string der = toDer(fromPem(issue(pki.doricHolder.get())).get());
    // A length that claims far more than there is...
    std::string lying = der;
    lying.replace(1, 3, std::string("\x84\x7f\xff\xff\xff", 5));
    expectRejected(pki.doricHolder.get(), pemOf(lying), "PEM_read_X509 failed on:");
    // ...and a megabyte of nothing in particular.
    expectRejected(pki.doricHolder.get(), pemOf(std::string(1 << 20, '\x30')), "PEM_read_X509 failed on:");
}

TEST_F(Rejection, GarbageHolderCertificate)
{
    std::string log;
    ::testing::internal::CaptureStderr();
    EXPECT_EQ(manager->applyAttributeCertificate("junk", issue(pki.doricHolder.get())), 0u);
    EXPECT_EQ(manager->retreiveAttributeCertificate("junk"), "");
    log = ::testing::internal::GetCapturedStderr();
    EXPECT_THAT(log, HasSubstr("PEM_read_X509 failed on:"));
    EXPECT_EQ(sandbox.temporaryFiles(), 0);
}

TEST_F(Rejection, MissingIssuerCertificate)
{
    std::string certificate = issue(pki.doricHolder.get());
    delete manager;
    delete manager;
    manager = Manager::getInstance();
    manager->initialize((sandbox.path() / "absent.crt").string(), sandbox.issuerKey(), &services);
    expectRejected(pki.doricHolder.get(), certificate, "cannot open AC issuer PKI certificate. Path:");
    ::testing::internal::CaptureStderr();
    EXPECT_EQ(issue(pki.doricHolder.get()), "");
    std::string log = ::testing::internal::GetCapturedStderr();
    EXPECT_THAT(log, HasSubstr("cannot open AC issuer PKI certificate. Path:"));
    EXPECT_THAT(log, HasSubstr("generateX509AuthAttr failed.\n"));
    EXPECT_EQ(sandbox.temporaryFiles(), 0);
}
