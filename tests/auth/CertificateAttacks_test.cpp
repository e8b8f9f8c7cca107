// Certificates that must not give rights: each ends with token 0, its
// message, and no temporary file left behind; and the near misses that must.
#include "AuthorizationFixture.h"

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
    X509AttributePtr attribute = makeAttribute(NID_info_access);
    if (value != nullptr)
        AuthorizationAttributesManager::AllowedInterfaceAddValue(attribute.get(), value);
    AuthorizationAttributesManager::insertAttribute(certificate, std::move(attribute));
}

GENERAL_NAMES* namesOf(GENERAL_NAME* name)
{
    GENERAL_NAMES* names = GENERAL_NAMES_new();
    sk_GENERAL_NAME_push(names, name);
    return names;
}

std::string pemOf(std::string const& der)
{
    return memoryText([&](BIO* bio) {
        PEM_write_bio(bio, "ATTRIBUTE CERTIFICATE", "", reinterpret_cast<unsigned char const*>(der.data()),
                      static_cast<long>(der.size()));
    });
}

struct Case {
    char const* what;
    std::string certificate;
    char const* message;
};

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
    // Adds an extension of a type nobody knows.
    static std::function<void(ATTRIBUTE_CERTIFICATE*)> withExtension(bool critical)
    {
        return [critical](ATTRIBUTE_CERTIFICATE* certificate) {
            ASN1StringPtr value(ASN1_OCTET_STRING_new());
            ASN1_OCTET_STRING_set(value.get(), reinterpret_cast<unsigned char const*>("\x05\x00"), 2);
            ASN1_OBJECT* type = OBJ_txt2obj("1.3.6.1.4.1.55555.1", 1);
            X509_EXTENSION* extension = X509_EXTENSION_create_by_OBJ(nullptr, type, critical ? 1 : 0, value.get());
            ASN1_OBJECT_free(type);
            X509v3_add_ext(&certificate->acinfo->extensions, extension, -1);
            X509_EXTENSION_free(extension);
        };
    }
    void expectAllRejected(std::initializer_list<Case> cases)
    {
        for (Case const& rejected : cases) {
            SCOPED_TRACE(rejected.what);
            expectRejected(pki.doricHolder.get(), rejected.certificate, rejected.message);
        }
    }
};

// Every attack, each refused with its own reason: forged or tampered
// signatures, weak or inconsistent ones, unknown critical extensions, times
// out of date or malformed, a wrong version, issuer, holder or attributes,
// malformed allowed interfaces, and bytes that do not decode.
TEST_F(Rejection, EveryAttackIsRefusedWithItsReason)
{
    X509* holder = pki.doricHolder.get();
    EVP_PKEY* key = pki.issuerKey.get();
    auto flipBit = [](ATTRIBUTE_CERTIFICATE* certificate) {
        ASN1_BIT_STRING* signature = certificate->signatureValue;
        ASN1_BIT_STRING_set_bit(signature, 100, !ASN1_BIT_STRING_get_bit(signature, 100));
    };
    auto longerLife = [](ATTRIBUTE_CERTIFICATE* certificate) { setTimes(certificate, -60, 86400L * 365); };
    auto signedWith = [&](EVP_MD const* digest) {
        return altered(holder, [&](ATTRIBUTE_CERTIFICATE* c) { Manager::signKey(c, key, digest); }, nullptr);
    };
    // The body names SHA-256, the outer identifier and the signature SHA-1.
    auto innerDiffers = [&](ATTRIBUTE_CERTIFICATE* certificate) {
        X509_ALGOR_set0(certificate->acinfo->signature, OBJ_nid2obj(NID_sha256WithRSAEncryption), V_ASN1_NULL,
                        nullptr);
        ASN1_item_sign(ASN1_ITEM_rptr(ATTRIBUTE_CERTIFICATE_INFO), certificate->signatureAlgorithm, nullptr,
                       certificate->signatureValue, certificate->acinfo, key, EVP_sha1());
    };
    auto malformedTime = [](bool notBefore, char const* text) {
        return [=](ATTRIBUTE_CERTIFICATE* certificate) {
            ATTRIBUTE_CERTIFICATE_VALIDITY* validity = certificate->acinfo->attrCertValidityPeriod;
            ASN1_STRING_set(notBefore ? validity->notBeforeTime : validity->notAfterTime, text, -1);
        };
    };
    auto foreignIssuer = [&](ATTRIBUTE_CERTIFICATE* certificate) {
        GENERAL_NAMES*& names = certificate->acinfo->issuer->d.v2Form->issuerName;
        sk_GENERAL_NAME_pop_free(names, GENERAL_NAME_free);
        names = GENERAL_NAMES_new();
        Manager::updateIssuerName(certificate, X509_get_subject_name(holder));
    };
    auto noAttribute = [](ATTRIBUTE_CERTIFICATE* certificate) {
        sk_X509_ATTRIBUTE_pop_free(certificate->acinfo->attributes, X509_ATTRIBUTE_free);
        certificate->acinfo->attributes = sk_X509_ATTRIBUTE_new_null();
    };
    auto entityNameOnly = [&](ATTRIBUTE_CERTIFICATE* certificate) {
        ATTRIBUTE_CERTIFICATE_HOLDER* named = certificate->acinfo->holder;
        ATTRIBUTE_CERTIFICATE_ISSUER_SERIAL_free(named->baseCertificateID);
        named->baseCertificateID = nullptr;
        named->entityName = namesOf(directoryName({{"CN", "browser"}}));
    };
    auto junkValue = [](ATTRIBUTE_CERTIFICATE* certificate) {
        X509AttributePtr attribute = makeAttribute(NID_info_access);
        unsigned char const junk[] = {0x30, 0x03, 0x02, 0x01, 0x05};
        Manager::AttributeAddValue(attribute.get(), V_ASN1_OCTET_STRING, junk, sizeof junk);
        Manager::insertAttribute(certificate, std::move(attribute));
    };
    std::string const der = toDer(fromPem(issue(holder)).get());
    std::string lying = der; // a length that claims far more than there is
    lying.replace(1, 3, std::string("\x84\x7f\xff\xff\xff", 5));
    char const* badSignature = "AC Issuer signature verification failed.\n";
    char const* undecodable = "PEM_read_X509 failed on:";
    expectAllRejected({
        {"flipped signature bit", altered(holder, flipBit, nullptr), badSignature},
        {"content changed under the old signature", altered(holder, longerLife, nullptr), badSignature},
        {"signed by another key", altered(holder, [](ATTRIBUTE_CERTIFICATE*) {}, pki.strangerKey.get()), badSignature},
        {"MD5", signedWith(EVP_md5()), "AC certificate signed with a weak digest (RSA-MD5).\n"},
        {"inner algorithm differs", altered(holder, innerDiffers, nullptr),
         "AC certificate signature algorithms inside and outside differ.\n"},
        {"unknown critical extension", resigned(holder, withExtension(true)),
         "AC certificate carries an unknown critical extension (1.3.6.1.4.1.55555.1).\n"},
        {"expired", resigned(holder, [](ATTRIBUTE_CERTIFICATE* c) { setTimes(c, -86401, -1); }),
         "AC certificate not after is in the past.\n"},
        {"not yet valid", resigned(holder, [](ATTRIBUTE_CERTIFICATE* c) { setTimes(c, 3600, 86400); }),
         "AC certificate not before is in the futur.\n"},
        {"not before is no time", resigned(holder, malformedTime(true, "yesterday")),
         "AC certificate not before verification error.\n"},
        {"not after has a thirteenth month", resigned(holder, malformedTime(false, "20991301000000Z")),
         "AC certificate not after verification error.\n"},
        {"version 1 as the RFC numbers it",
         resigned(holder, [](ATTRIBUTE_CERTIFICATE* c) { ASN1_INTEGER_set(c->acinfo->version, 1); }),
         "Invalid Attribute certificate version (received v1 instead of expected v2).\n"},
        {"issuer name of someone else", resigned(holder, foreignIssuer),
         "AC certificate Issuer name and Issuer Name subject name do not match.\n"},
        {"holder named only by an entity name", resigned(holder, entityNameOnly), "baseCertificateID is NULL.\n"},
        {"no attribute", resigned(holder, noAttribute), "No attribute found.\n"},
        {"value that is no allowed interface", resigned(holder, junkValue), "Attribute type cannot be parsed.\n"},
        {"no function names", withValue(directoryName({{"CN", "IZap"}}), nullptr), "Function name array is NULL.\n"},
        {"interface named by DNS", withValue(stringName(GEN_DNS, "izap.example"), GENERAL_NAMES_new()),
         "Attribute values interface name is not a DIRNAME.\n"},
        {"function named by DNS", withValue(directoryName({{"CN", "IZap"}}), namesOf(stringName(GEN_DNS, "zap"))),
         "Attribute values instance subtype is not a DIRNAME.\n"},
        {"directory name without a common name",
         withValue(directoryName({{"O", "no common name"}}), GENERAL_NAMES_new()), "X509 Name is invalid.\n"},
        {"garbage PEM", "-----BEGIN ATTRIBUTE CERTIFICATE-----\n%%%%\n", undecodable},
        {"empty", "", undecodable},
        {"all the DER but its last byte", pemOf(der.substr(0, der.size() - 1)), undecodable},
        {"lying length", pemOf(lying), undecodable},
        {"a megabyte of nothing in particular", pemOf(std::string(1 << 20, '\x30')), undecodable},
    });
    std::string log = stderrOf([&] {
        EXPECT_EQ(manager->applyAttributeCertificate("junk", issue(holder)), 0u);
        EXPECT_EQ(manager->retreiveAttributeCertificate("junk"), "");
    });
    EXPECT_THAT(log, HasSubstr(undecodable));
    EXPECT_EQ(sandbox.temporaryFiles(), 0);
}

// What comes close to an attack but is none still gives a token: an unknown
// extension that is not critical, SHA-256, a holder of another serial from the
// same issuer (the serial is not compared), and attributes of other types or
// without values (with an empty right set).
TEST_F(Rejection, NearMissesAreAccepted)
{
    X509* holder = pki.doricHolder.get();
    EXPECT_NE(apply(holder, resigned(holder, withExtension(false))), 0u);
    EXPECT_NE(apply(holder, altered(holder, [&](ATTRIBUTE_CERTIFICATE* c) {
        Manager::signKey(c, pki.issuerKey.get(), EVP_sha256());
    }, nullptr)), 0u);
    std::string certificate = issue(holder);
    EXPECT_NE(apply(pki.doricOtherSerial.get(), certificate), 0u);

    auto otherType = [](ATTRIBUTE_CERTIFICATE* certificate) {
        X509_ATTRIBUTE_set1_object(X509at_get_attr(certificate->acinfo->attributes, 0), OBJ_nid2obj(NID_commonName));
    };
    auto noValue = [](ATTRIBUTE_CERTIFICATE* certificate) { replaceValue(certificate, nullptr); };
    for (std::string const& emptyRights : {resigned(holder, noValue), resigned(holder, otherType)}) {
        uint32_t token = apply(holder, emptyRights);
        ASSERT_NE(token, 0u);
        EXPECT_TRUE(manager->lookupAuthorizationToken(token).empty());
    }
    services.created.clear();
    expectRejected(pki.verisignHolder.get(), certificate, "cmpBaseCertificateIDWithIssuer failed.\n");
}

// Issuer files that are missing, unreadable or of the wrong kind stop issuing
// or applying, each with its reason, and leave no temporary file.
TEST_F(Rejection, BrokenIssuerFiles)
{
    struct Broken {
        std::string issuerCertificate, issuerKey;
        char const* message;
        bool issues, applies;
    };
    std::string absent = (sandbox.root / "absent").string();
    Broken const cases[] = {
        {sandbox.issuerCertificate, absent, "cannot open AC issuer private key. Path:", false, true},
        {sandbox.issuerCertificate, sandbox.file("bad.key", "not a key"), "cannot read AC issuer private key. Path:",
         false, true},
        {absent, sandbox.issuerKey, "cannot open AC issuer PKI certificate. Path:", false, false},
        {sandbox.file("ec.crt", toPem(pki.ecIssuer.get())), sandbox.issuerKey,
         "AC Issuer public key is not of RSA type.\n", true, false},
    };
    std::string certificate = issue(pki.doricHolder.get());
    for (Broken const& broken : cases) {
        SCOPED_TRACE(broken.message);
        std::string log = restart(broken.issuerCertificate, broken.issuerKey);
        log += stderrOf([&] {
            EXPECT_EQ(issue(pki.doricHolder.get()).empty(), !broken.issues);
            EXPECT_EQ(manager->applyAttributeCertificate(toPem(pki.doricHolder.get()), certificate) != 0,
                      broken.applies);
        });
        EXPECT_THAT(log, HasSubstr(broken.message));
        EXPECT_EQ(sandbox.temporaryFiles(), 0);
    }
}

} // namespace
