// What other programs see: the encoding (DER and PEM round trips, both issuer
// forms), the DER checked by an independent RFC 5755 decoder and signature
// check, and the velmora-ac tool on real files.
#include "AuthorizationFixture.h"
#include "ServerProcess.h"

using namespace Velmora;
using namespace VelmoraTest;
using ::testing::HasSubstr;

class Interoperability : public AuthorizationTest {
protected:
    using Outcome = HostTest::Finished;
    Outcome run(std::string const& program, std::vector<std::string> arguments)
    {
        return HostTest::runToEnd(program, std::move(arguments), sandbox.root / "out");
    }
    std::string forged()
    {
        return altered(pki.doricHolder.get(), [](ATTRIBUTE_CERTIFICATE*) {}, pki.strangerKey.get());
    }
    Outcome check(std::string const& pem)
    {
        std::string der = sandbox.file("ac.der", toDer(fromPem(pem).get()));
        return run("/usr/bin/python3", {VELMORA_AC_CHECKER, der, sandbox.issuerCertificate});
    }
};

// The independent decoder accepts the DER and its signature only. The tool
// issues, verifies and prints what the server would, and fails (status 1, 2
// for usage) where the server would refuse.
TEST_F(Interoperability, IndependentDecoderAndToolAcceptAndRejectAsTheServerDoes)
{
    for (X509* holder : {pki.doricHolder.get(), pki.verisignHolder.get()}) {
        Outcome outcome = check(issue(holder));
        EXPECT_EQ(outcome.status, 0);
        EXPECT_THAT(outcome.output, HasSubstr("directoryName"));
    }
    EXPECT_NE(check(forged()).status, 0);

    std::string issuer = sandbox.issuerCertificate;
    std::string doric = sandbox.file("doric.crt", toPem(pki.doricHolder.get()));
    Outcome issued = run(VELMORA_AC_TOOL, {"issue", issuer, sandbox.issuerKey, doric});
    ASSERT_EQ(issued.status, 0);
    ASSERT_THAT(issued.output, HasSubstr("-----BEGIN ATTRIBUTE CERTIFICATE-----"));
    std::string good = sandbox.file("good.pem", issued.output);
    Outcome verified = run(VELMORA_AC_TOOL, {"verify", issuer, doric, good});
    EXPECT_EQ(verified.status, 0);
    EXPECT_EQ(verified.output, "{\"DoricPlatformManager\":{\"transformation\":1,\"translation\":1}}\n");
    Outcome printed = run(VELMORA_AC_TOOL, {"print", good});
    EXPECT_EQ(printed.status, 0);
    EXPECT_THAT(printed.output, HasSubstr("Version 2.\n"));
    EXPECT_THAT(printed.output, HasSubstr("GEN_DIRNAME: /CN=DoricPlatformManager"));

    std::string verisign = sandbox.file("verisign.crt", toPem(pki.verisignHolder.get()));
    std::string unknown = sandbox.file("unknown.crt", toPem(pki.unknownHolder.get()));
    std::string forgery = sandbox.file("forged.pem", forged());
    std::string garbage = sandbox.file("garbage.pem", "-----BEGIN ATTRIBUTE CERTIFICATE-----\nxx\n");
    EXPECT_EQ(run(VELMORA_AC_TOOL, {"verify", issuer, verisign, good}).status, 1);
    EXPECT_EQ(run(VELMORA_AC_TOOL, {"verify", issuer, doric, forgery}).status, 1);
    EXPECT_EQ(run(VELMORA_AC_TOOL, {"verify", issuer, doric, garbage}).status, 1);
    EXPECT_EQ(run(VELMORA_AC_TOOL, {"print", garbage}).status, 1);
    EXPECT_EQ(run(VELMORA_AC_TOOL, {"issue", issuer, sandbox.issuerKey, unknown}).status, 1);
    EXPECT_EQ(run(VELMORA_AC_TOOL, {"issue", issuer, "/nonexistent.key", doric}).status, 1);
    EXPECT_EQ(run(VELMORA_AC_TOOL, {"frobnicate"}).status, 2);
    EXPECT_EQ(sandbox.temporaryFiles(), 0);
}

// An issued certificate re-encodes to the same bytes, leaves empty what it
// does not use, and lasts one day (the independent checker reads the time
// format, the version and the signature). The v1 form holds the issuer's names
// directly; it must be written, decoded and read back, and a switch to the v2
// form must drop its names rather than read them as a v2 form.
TEST_F(Interoperability, IssuedCertificateRoundTripsAndTheIssuerIsFoundInEitherForm)
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
