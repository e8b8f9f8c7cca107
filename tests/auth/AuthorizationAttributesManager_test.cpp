// The rule set, tokens and their road to the service manager, temporary
// files, threads, and the diagnostic print.
#include "AuthorizationFixture.h"

#include <openssl/objects.h>

#include <set>
#include <thread>

using namespace Velmora;
using namespace VelmoraTest;
using ::testing::HasSubstr;

namespace {

IServiceManager::Rights doricRights()
{
    IServiceManager::Rights rights;
    rights["DoricPlatformManager"]["transformation"] = 1;
    rights["DoricPlatformManager"]["translation"] = 1;
    return rights;
}

IServiceManager::Rights verisignRights()
{
    IServiceManager::Rights rights;
    rights["IMediaService"]["transformation"] = 1;
    rights["IMediaService"]["translation"] = 1;
    rights["IPortMapper"]["lookupService"] = 1;
    rights["IPortMapper"]["registerService"] = 1;
    return rights;
}

} // namespace

using RulesAndTokens = AuthorizationTest;

TEST_F(RulesAndTokens, HolderGetsTheRightsOfItsIssuerAsAToken)
{
    uint32_t token = apply(pki.doricHolder.get(), issue(pki.doricHolder.get()));
    ASSERT_NE(token, 0u);
    EXPECT_EQ(manager->lookupAuthorizationToken(token), doricRights());
    ASSERT_EQ(services.created.size(), 1u);
    EXPECT_EQ(services.created[0].first, token);
    EXPECT_EQ(services.created[0].second, doricRights());
    EXPECT_EQ(sandbox.temporaryFiles(), 0);

    uint32_t media = apply(pki.verisignHolder.get(), issue(pki.verisignHolder.get()));
    ASSERT_NE(media, 0u);
    EXPECT_EQ(manager->lookupAuthorizationToken(media), verisignRights());
}

TEST_F(RulesAndTokens, EachApplicationMintsANewToken)
{
    std::string certificate = issue(pki.doricHolder.get());
    uint32_t first = apply(pki.doricHolder.get(), certificate);
    uint32_t second = apply(pki.doricHolder.get(), certificate);
    EXPECT_NE(first, 0u);
    EXPECT_NE(second, 0u);
    EXPECT_NE(first, second);
    EXPECT_EQ(manager->lookupAuthorizationToken(first), manager->lookupAuthorizationToken(second));
}

TEST_F(RulesAndTokens, UnknownTokensAndZeroHaveNoRights)
{
    EXPECT_TRUE(manager->lookupAuthorizationToken(0).empty());
    EXPECT_TRUE(manager->lookupAuthorizationToken(12345).empty());
}

TEST_F(RulesAndTokens, FirstMatchingEntryOfTheIssuerNameDecides)
{
    IServiceManager::Rights rights;
    std::string holder = sandbox.file("both.crt", toPem(pki.bothHolder.get()));
    ASSERT_TRUE(manager->getInterfaceInfoAccessFromRulesSet(holder, &rights));
    EXPECT_EQ(rights, verisignRights());
}

TEST_F(RulesAndTokens, UnknownIssuerGetsNoCertificate)
{
    ::testing::internal::CaptureStderr();
    EXPECT_EQ(issue(pki.unknownHolder.get()), "");
    EXPECT_THAT(::testing::internal::GetCapturedStderr(), HasSubstr("getInterfaceInfoAccessFromRulesSet failed.\n"));
    EXPECT_EQ(sandbox.temporaryFiles(), 0);
}

TEST_F(RulesAndTokens, FlagsAreNotCarriedEveryListedFunctionIsGranted)
{
    manager->deserializeRulesSet(R"({"DORICProtected": {"IZap": {"zap": 0, "zip": 7}}})");
    uint32_t token = apply(pki.doricHolder.get(), issue(pki.doricHolder.get()));
    IServiceManager::Rights expected;
    expected["IZap"]["zap"] = 1;
    expected["IZap"]["zip"] = 1;
    EXPECT_EQ(manager->lookupAuthorizationToken(token), expected);
}

TEST_F(RulesAndTokens, RulesSetRoundTripsAndABadOneChangesNothing)
{
    std::string rules = manager->serializeRulesSet();
    EXPECT_THAT(rules, HasSubstr("VeriSign, Inc."));
    manager->deserializeRulesSet(rules);
    EXPECT_EQ(manager->serializeRulesSet(), rules);
    EXPECT_THROW(manager->deserializeRulesSet(R"({"DORICProtected": {"IZap": {"zap": "yes"}}})"), Exception);
    EXPECT_EQ(manager->serializeRulesSet(), rules);
}

TEST_F(RulesAndTokens, MissingIssuerKeyIsReportedAtInitAndAtSigning)
{
    delete manager;
    delete manager;
    manager = Manager::getInstance();
    ::testing::internal::CaptureStderr();
    EXPECT_TRUE(manager->initialize(sandbox.issuerCertificate(), sandbox.path() / "absent.key", &services));
    EXPECT_EQ(issue(pki.doricHolder.get()), "");
    std::string log = ::testing::internal::GetCapturedStderr();
    for (char const* message : {"cannot open AC issuer private key. Path:", "RetreiveACIssuerPrivateKey failed.\n",
                                "pkey is NULL.\n", "signKey failed.\n", "generateX509AuthAttr failed.\n"})
        EXPECT_THAT(log, HasSubstr(message));
    EXPECT_EQ(sandbox.temporaryFiles(), 0);
}

TEST_F(RulesAndTokens, GarbageKeyFileIsReported)
{
    ::testing::internal::CaptureStderr();
    manager->initialize(sandbox.issuerCertificate(), sandbox.file("bad.key", "not a key"), &services);
    EXPECT_THAT(::testing::internal::GetCapturedStderr(), HasSubstr("cannot read AC issuer private key. Path:"));
}

TEST_F(RulesAndTokens, AServiceManagerThatThrowsLeavesTheTokenAndNoFiles)
{
    services.failing = true;
    uint32_t token = apply(pki.doricHolder.get(), issue(pki.doricHolder.get()));
    ASSERT_NE(token, 0u);
    EXPECT_EQ(manager->lookupAuthorizationToken(token), doricRights());
    EXPECT_EQ(sandbox.temporaryFiles(), 0);
    services.failing = false;
    EXPECT_NE(apply(pki.doricHolder.get(), issue(pki.doricHolder.get())), 0u); // the mutex was released
}

TEST_F(RulesAndTokens, FileNameFormsLeaveTheCallersFiles)
{
    std::string holder = sandbox.file("holder.crt", toPem(pki.doricHolder.get()));
    std::string output = (sandbox.path() / "ac.pem").string();
    std::string certificate = manager->retreiveAttributeCertificateUsingFileName(holder, output);
    ASSERT_FALSE(certificate.empty());
    EXPECT_EQ(manager->CertificateFileToBuffer(output), certificate);
    EXPECT_NE(manager->applyAttributeCertificateUsingFileName(holder, output), 0u);
    EXPECT_TRUE(std::filesystem::exists(holder));
    EXPECT_TRUE(std::filesystem::exists(output));
}

// Certificates are parsed once per file contents: a changed file must still be
// read anew, and a file that fails must fail (and say so) every time.
TEST_F(RulesAndTokens, ChangedCertificateFilesAreReadAnew)
{
    std::string certificate = issue(pki.doricHolder.get());
    ASSERT_NE(apply(pki.doricHolder.get(), certificate), 0u);

    // Same subject, another key: the issuer's file swapped behind the manager.
    writeFile(sandbox.issuerCertificate(), toPem(pki.stranger.get()));
    std::string log;
    EXPECT_EQ(apply(pki.doricHolder.get(), certificate, &log), 0u);
    EXPECT_THAT(log, HasSubstr("AC Issuer signature verification failed.\n"));

    writeFile(sandbox.issuerCertificate(), "garbage");
    for (int attempt = 0; attempt < 2; ++attempt) {
        EXPECT_EQ(apply(pki.doricHolder.get(), certificate, &log), 0u);
        EXPECT_THAT(log, HasSubstr("PEM_read_X509 failed on:" + sandbox.issuerCertificate()));
    }

    writeFile(sandbox.issuerCertificate(), toPem(pki.issuer.get()));
    EXPECT_NE(apply(pki.doricHolder.get(), certificate), 0u);

    // The caller's holder file replaced by another holder's between two calls.
    std::string holder = sandbox.file("holder.crt", toPem(pki.doricHolder.get()));
    std::string output = (sandbox.path() / "ac.pem").string();
    ASSERT_FALSE(manager->retreiveAttributeCertificateUsingFileName(holder, output).empty());
    EXPECT_NE(manager->applyAttributeCertificateUsingFileName(holder, output), 0u);
    writeFile(holder, toPem(pki.verisignHolder.get()));
    ::testing::internal::CaptureStderr();
    EXPECT_EQ(manager->applyAttributeCertificateUsingFileName(holder, output), 0u);
    EXPECT_THAT(::testing::internal::GetCapturedStderr(), HasSubstr("cmpBaseCertificateIDWithIssuer failed.\n"));
    EXPECT_EQ(sandbox.temporaryFiles(), 0);
}

TEST_F(RulesAndTokens, TemporaryFilesLiveUnderTheSysroot)
{
    std::string name = manager->CertificateBufferToFileName(std::string("abc\0def", 7));
    EXPECT_EQ(name.rfind((sandbox.path() / "tmp" / "aam").string(), 0), 0u) << name;
    EXPECT_EQ(name.substr(name.size() - 4), ".pem");
    EXPECT_EQ(manager->CertificateFileToBuffer(name), "abc"); // text ends at a zero byte
    manager->removeCertificateFile(name);
    EXPECT_EQ(sandbox.temporaryFiles(), 0);
    EXPECT_EQ(manager->CertificateFileToBuffer(name), "");
    ::testing::internal::CaptureStderr();
    manager->removeCertificateFile(name);
    EXPECT_THAT(::testing::internal::GetCapturedStderr(), HasSubstr("Could not delete file " + name + ".\n"));
}

TEST_F(RulesAndTokens, ConcurrentIssuingAndApplyingGiveDistinctTokens)
{
    constexpr int THREADS = 4;
    constexpr int ROUNDS = 3;
    std::vector<std::vector<uint32_t>> tokens(THREADS);
    std::vector<std::thread> threads;
    std::string holder = toPem(pki.verisignHolder.get());
    for (int t = 0; t < THREADS; ++t)
        threads.emplace_back([&, t] {
            for (int round = 0; round < ROUNDS; ++round) {
                std::string certificate = manager->retreiveAttributeCertificate(holder);
                tokens[t].push_back(manager->applyAttributeCertificate(holder, certificate));
                manager->lookupAuthorizationToken(tokens[t].back());
            }
        });
    for (std::thread& thread : threads)
        thread.join();
    std::set<uint32_t> distinct;
    for (auto const& list : tokens)
        for (uint32_t token : list) {
            EXPECT_NE(token, 0u);
            EXPECT_EQ(manager->lookupAuthorizationToken(token), verisignRights());
            distinct.insert(token);
        }
    EXPECT_EQ(distinct.size(), static_cast<size_t>(THREADS * ROUNDS));
    EXPECT_EQ(services.created.size(), static_cast<size_t>(THREADS * ROUNDS));
    EXPECT_EQ(sandbox.temporaryFiles(), 0);
}

using Diagnostics = AuthorizationTest;

TEST_F(Diagnostics, PrintShowsEveryPartOfAnIssuedCertificate)
{
    AttributeCertificatePtr certificate = fromPem(issue(pki.doricHolder.get()));
    ASSERT_TRUE(certificate);
    ::testing::internal::CaptureStdout();
    Manager::PrintAttributeCertificate(certificate.get());
    std::string out = ::testing::internal::GetCapturedStdout();
    for (char const* line :
         {"Version 2.\n", "Issuer:\nIssuer is of the v2 form:\nIssuer is: /O=Velmora/CN=AC Issuer:\n",
          "Holder:\nHolder base cert ID:\n\n\t->name(GNs):GEN_DIRNAME: /C=FR/O=DORICProtected\n\t->serial(INT):07:",
          "\n\t->issuerUniqueID(INT):IS EMPTY\n", "Not before not after information.\nNot before:",
          "Attributes: \nAttributes count: 1.\n:Attribute index: 0.\n:Attribute nid:177 is Authority Information Access.\n:",
          "Values count:1.\n:Value:0.\n:Interface Name details:GEN_DIRNAME: /CN=DoricPlatformManager\n",
          "Function Names:\nGEN_DIRNAME: /CN=transformationGEN_DIRNAME: /CN=translation\n",
          "Extensions details:\nExtensions count:0\nSignature.\n", "sha1WithRSAEncryption"})
        EXPECT_THAT(out, HasSubstr(line));
    EXPECT_THAT(out, ::testing::EndsWith(std::string(86, '=') + ":\n"));
}

TEST_F(Diagnostics, NamesArePrintedAsDataNeverAsFormats)
{
    GeneralNamePtr name(GENERAL_NAME_new());
    X509NamePtr directory = makeName({{"CN", "%s%n%x"}});
    GENERAL_NAME_set0_value(name.get(), GEN_DIRNAME, directory.release());
    ::testing::internal::CaptureStdout();
    Manager::traceGeneralName(stdout, name.get());
    EXPECT_EQ(::testing::internal::GetCapturedStdout(), "GEN_DIRNAME: /CN=%s%n%x");

    GeneralNamePtr uri(GENERAL_NAME_new());
    ASN1_IA5STRING* text = ASN1_IA5STRING_new();
    ASN1_STRING_set(text, "http://x", -1);
    GENERAL_NAME_set0_value(uri.get(), GEN_URI, text);
    ::testing::internal::CaptureStdout();
    Manager::traceGeneralName(stdout, uri.get());
    EXPECT_EQ(::testing::internal::GetCapturedStdout(), "GEN_URI:http://x");

    ::testing::internal::CaptureStderr();
    Manager::traceGeneralNames(nullptr, nullptr);
    Manager::traceGeneralNames(stdout, nullptr);
    std::string log = ::testing::internal::GetCapturedStderr();
    EXPECT_THAT(log, HasSubstr("out is NULL.\n"));
    EXPECT_THAT(log, HasSubstr("generalNames is NULL.\n"));
}
