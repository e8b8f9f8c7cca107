// The rule set, tokens and their road to the service manager, temporary
// files, threads, the cache of parsed certificates and the diagnostic print.
// The random source is replaced through the method table, which is deprecated
// but the one way to make the library's random numbers fail or repeat.
#define OPENSSL_SUPPRESS_DEPRECATED
#include "AuthorizationFixture.h"

#include <openssl/rand.h>

#include <cstring>
#include <deque>
#include <set>
#include <sys/stat.h>
#include <thread>

using namespace Velmora;
using namespace VelmoraTest;
using ::testing::HasSubstr;

namespace {

using Rights = IServiceManager::Rights;

Rights const doricRights{{"DoricPlatformManager", {{"transformation", 1}, {"translation", 1}}}};
Rights const verisignRights{{"IMediaService", {{"transformation", 1}, {"translation", 1}}},
                            {"IPortMapper", {{"lookupService", 1}, {"registerService", 1}}}};

} // namespace

using RulesAndTokens = AuthorizationTest;

// Every application mints a token of its own, known to the manager and told to
// the service manager with the rights of the holder's issuer. The rule is
// chosen by the first entry of the holder's issuer name that the rule set
// knows; a holder whose issuer it does not know gets nothing.
TEST_F(RulesAndTokens, EachApplicationMintsANewTokenWithItsIssuersRightsUnderTheRulesOfTheDay)
{
    std::string certificate = issue(pki.doricHolder.get());
    uint32_t first = apply(pki.doricHolder.get(), certificate);
    uint32_t second = apply(pki.doricHolder.get(), certificate);
    uint32_t media = apply(pki.verisignHolder.get(), issue(pki.verisignHolder.get()));
    ASSERT_NE(first, 0u);
    EXPECT_NE(second, 0u);
    EXPECT_NE(first, second);
    EXPECT_EQ(manager->lookupAuthorizationToken(first), doricRights);
    EXPECT_EQ(manager->lookupAuthorizationToken(second), doricRights);
    EXPECT_EQ(manager->lookupAuthorizationToken(media), verisignRights);
    ASSERT_EQ(services.created.size(), 3u);
    EXPECT_EQ(services.created[0], std::make_pair(first, doricRights));
    EXPECT_EQ(sandbox.temporaryFiles(), 0);
    EXPECT_TRUE(manager->lookupAuthorizationToken(0).empty());
    EXPECT_TRUE(manager->lookupAuthorizationToken(12345).empty());

    // A service manager that throws leaves the token, no file and no lock held.
    services.failing = true;
    uint32_t const refused = apply(pki.doricHolder.get(), certificate);
    ASSERT_NE(refused, 0u);
    EXPECT_EQ(manager->lookupAuthorizationToken(refused), doricRights);
    EXPECT_EQ(sandbox.temporaryFiles(), 0);
    services.failing = false;
    EXPECT_NE(apply(pki.doricHolder.get(), certificate), 0u);

    Rights rights;
    ASSERT_TRUE(manager->getInterfaceInfoAccessFromRulesSet(sandbox.file("both.crt", toPem(pki.bothHolder.get())),
                                                            &rights));
    EXPECT_EQ(rights, verisignRights);
    std::string log = stderrOf([&] { EXPECT_EQ(issue(pki.unknownHolder.get()), ""); });
    EXPECT_THAT(log, HasSubstr("getInterfaceInfoAccessFromRulesSet failed.\n"));
    EXPECT_EQ(sandbox.temporaryFiles(), 0);

    // A new rule set grants every function it lists, whatever its flag; one
    // that does not parse leaves the rules as they were.
    std::string builtIn = manager->serializeRulesSet();
    manager->deserializeRulesSet(builtIn);
    EXPECT_EQ(manager->serializeRulesSet(), builtIn);
    manager->deserializeRulesSet(R"({"DORICProtected": {"IZap": {"zap": 0, "zip": 7}}})");
    std::string rules = manager->serializeRulesSet();
    EXPECT_THROW(manager->deserializeRulesSet(R"({"DORICProtected": {"IZap": {"zap": "yes"}}})"), Exception);
    EXPECT_EQ(manager->serializeRulesSet(), rules);
    uint32_t token = apply(pki.doricHolder.get(), issue(pki.doricHolder.get())); // rights are issued in the certificate
    EXPECT_EQ(manager->lookupAuthorizationToken(token), (Rights{{"IZap", {{"zap", 1}, {"zip", 1}}}}));
}

// Certificates are parsed once per file contents: a changed file must still be
// read anew, and a file that fails must fail (and say so) every time.
TEST_F(RulesAndTokens, ChangedCertificateFilesAreReadAnew)
{
    std::string certificate = issue(pki.doricHolder.get());
    ASSERT_NE(apply(pki.doricHolder.get(), certificate), 0u);

    // Same subject, another key: the issuer's file swapped behind the manager.
    writeFile(sandbox.issuerCertificate, toPem(pki.stranger.get()));
    std::string log;
    EXPECT_EQ(apply(pki.doricHolder.get(), certificate, &log), 0u);
    EXPECT_THAT(log, HasSubstr("AC Issuer signature verification failed.\n"));

    writeFile(sandbox.issuerCertificate, "garbage");
    for (int attempt = 0; attempt < 2; ++attempt) {
        EXPECT_EQ(apply(pki.doricHolder.get(), certificate, &log), 0u);
        EXPECT_THAT(log, HasSubstr("PEM_read_X509 failed on:" + sandbox.issuerCertificate));
    }

    writeFile(sandbox.issuerCertificate, toPem(pki.issuer.get()));
    EXPECT_NE(apply(pki.doricHolder.get(), certificate), 0u);

    // The file-name forms keep the caller's files, and read the holder's anew
    // when it is replaced by another holder's between two calls.
    std::string holder = sandbox.file("holder.crt", toPem(pki.doricHolder.get()));
    std::string output = (sandbox.root / "ac.pem").string();
    std::string issued = manager->retreiveAttributeCertificateUsingFileName(holder, output);
    ASSERT_FALSE(issued.empty());
    EXPECT_EQ(manager->CertificateFileToBuffer(output), issued);
    EXPECT_NE(manager->applyAttributeCertificateUsingFileName(holder, output), 0u);
    EXPECT_TRUE(std::filesystem::exists(holder) && std::filesystem::exists(output));
    writeFile(holder, toPem(pki.verisignHolder.get()));
    log = stderrOf([&] { EXPECT_EQ(manager->applyAttributeCertificateUsingFileName(holder, output), 0u); });
    EXPECT_THAT(log, HasSubstr("cmpBaseCertificateIDWithIssuer failed.\n"));
    EXPECT_EQ(sandbox.temporaryFiles(), 0);
}

// A random source that hands out the numbers queued in `draws`, one per call,
// and fails once they are used up. Installed for the life of the object.
class ScriptedRandom {
public:
    explicit ScriptedRandom(std::deque<uint32_t> numbers) : saved(RAND_get_rand_method())
    {
        draws = std::move(numbers);
        static RAND_METHOD const method{nullptr, &bytes, nullptr, nullptr, &bytes, &status};
        RAND_set_rand_method(&method);
    }
    ~ScriptedRandom() { RAND_set_rand_method(saved); }

private:
    static int bytes(unsigned char* out, int length)
    {
        if (draws.empty() || length != sizeof(uint32_t))
            return 0;
        std::memcpy(out, &draws.front(), sizeof(uint32_t));
        draws.pop_front();
        return 1;
    }
    static int status() { return 1; }
    static inline std::deque<uint32_t> draws;
    RAND_METHOD const* saved;
};

// A temporary file is always a new file of this user under the sysroot's
// tmp/: a name taken by a symbolic link (pointing at a file of someone else's
// choice) or by any file is passed over, and without random numbers no file
// is made.
TEST_F(RulesAndTokens, TemporaryFilesAreCreatedNewAndPrivate)
{
    std::filesystem::path const victim = sandbox.root / "victim";
    writeFile(victim, "precious");
    std::filesystem::create_symlink(victim, sandbox.root / "tmp" / "aam7.pem");
    writeFile(sandbox.root / "tmp" / "aam8.pem", "someone's");
    std::string name;
    {
        ScriptedRandom random({7, 8, 9});
        name = manager->CertificateBufferToFileName(std::string("text\0def", 8));
    }
    EXPECT_EQ((sandbox.root / "tmp" / "aam9.pem").string(), name);
    EXPECT_EQ("precious", manager->CertificateFileToBuffer(victim.string()));
    EXPECT_EQ("someone's", manager->CertificateFileToBuffer((sandbox.root / "tmp" / "aam8.pem").string()));
    EXPECT_EQ("text", manager->CertificateFileToBuffer(name)); // text ends at a zero byte
    struct stat status {};
    ASSERT_EQ(0, lstat(name.c_str(), &status));
    EXPECT_EQ(0600u, status.st_mode & 0777);
    manager->removeCertificateFile(name);
    EXPECT_EQ(manager->CertificateFileToBuffer(name), "");
    EXPECT_THAT(stderrOf([&] { manager->removeCertificateFile(name); }),
                HasSubstr("Could not delete file " + name + ".\n"));
    std::filesystem::remove(sandbox.root / "tmp" / "aam7.pem");
    std::filesystem::remove(sandbox.root / "tmp" / "aam8.pem");

    std::string log = stderrOf([&] {
        ScriptedRandom broken({});
        EXPECT_EQ("", manager->CertificateBufferToFileName("text"));
        EXPECT_EQ("", manager->EmptyCertificateFileName());
    });
    EXPECT_THAT(log, HasSubstr("No random number for a temporary certificate file.\n"));
    EXPECT_EQ(sandbox.temporaryFiles(), 0);
    EXPECT_EQ(std::filesystem::file_size(victim), 8u);
}

TEST_F(RulesAndTokens, ConcurrentIssuingAndApplyingGiveDistinctTokens)
{
    constexpr int THREADS = 4;
    constexpr int ROUNDS = 3;
    std::vector<uint32_t> tokens(THREADS * ROUNDS);
    std::vector<std::thread> threads;
    std::string holder = toPem(pki.verisignHolder.get());
    for (int t = 0; t < THREADS; ++t)
        threads.emplace_back([&, t] {
            for (int round = 0; round < ROUNDS; ++round) {
                std::string certificate = manager->retreiveAttributeCertificate(holder);
                uint32_t& token = tokens[t * ROUNDS + round];
                token = manager->applyAttributeCertificate(holder, certificate);
                manager->lookupAuthorizationToken(token);
            }
        });
    for (std::thread& thread : threads)
        thread.join();
    for (uint32_t token : tokens)
        EXPECT_EQ(manager->lookupAuthorizationToken(token), verisignRights) << token;
    EXPECT_EQ(std::set<uint32_t>(tokens.begin(), tokens.end()).size(), tokens.size());
    EXPECT_EQ(services.created.size(), tokens.size());
    EXPECT_EQ(sandbox.temporaryFiles(), 0);
}

// Every read of the parsed-certificate cache gives what PEM_read_X509 on the
// same file would, whatever was read before and whatever kind of file it is.
class ParsedCertificates : public ::testing::Test {
protected:
    // The serial number of the certificate read from a file holding `text`.
    long serialOf(std::string const& text)
    {
        writeFile(sandbox.root / "certificate.pem", text);
        return serialAt(sandbox.root / "certificate.pem");
    }
    long serialAt(std::filesystem::path const& path)
    {
        FilePtr file = openFile(path.c_str(), "r");
        X509Ptr certificate = file ? cache.read(file.get()) : nullptr;
        return certificate ? ASN1_INTEGER_get(X509_get0_serialNumber(certificate.get())) : -1;
    }

    Sandbox sandbox;
    TestPki& pki = TestPki::get();
    ParsedCertificateCache cache{2};
};

TEST_F(ParsedCertificates, EachReadGivesTheCertificateOfTheBytesReadNow)
{
    std::string doric = toPem(pki.doricHolder.get());
    std::string other = toPem(pki.doricOtherSerial.get());
    std::string verisign = toPem(pki.verisignHolder.get());
    // More certificates than places, in an order that evicts and revisits.
    for (std::string const* text : {&doric, &other, &doric, &verisign, &other, &doric, &doric})
        EXPECT_EQ(serialOf(*text), text == &doric ? 7 : text == &other ? 8 : 9);
    EXPECT_EQ(serialOf("garbage"), -1);
    EXPECT_EQ(serialOf(""), -1);
    EXPECT_EQ(serialOf(doric.substr(0, doric.size() / 2)), -1);
    EXPECT_EQ(serialOf("leading text\n" + doric), 7);
    EXPECT_EQ(serialOf(doric), 7);
    // The file reader ends a line at a zero byte, so junk after one on the
    // BEGIN line goes unseen: the cache must read it so too, first and after.
    std::string cut = doric;
    cut.insert(cut.find('\n'), std::string("\0tail", 5));
    EXPECT_EQ(serialOf(cut), 7);
    EXPECT_EQ(serialOf(cut), 7);

    // Pipes are read as they come.
    std::filesystem::path fifo = sandbox.root / "certificate.fifo";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    for (int round = 0; round < 2; ++round) {
        std::thread writer([&] { writeFile(fifo, doric); });
        EXPECT_EQ(serialAt(fifo), 7);
        writer.join();
    }
}

using Diagnostics = AuthorizationTest;

// A name holding printf conversions must come out as written, and null
// arguments must be refused rather than followed.
TEST_F(Diagnostics, NamesArePrintedAsDataNeverAsFormats)
{
    std::pair<GENERAL_NAME*, char const*> const names[] = {
        {directoryName({{"CN", "%s%n%x"}}), "GEN_DIRNAME: /CN=%s%n%x"},
        {stringName(GEN_URI, "http://%s"), "GEN_URI:http://%s"},
    };
    for (auto const& [name, printed] : names) {
        GeneralNamePtr owner(name);
        ::testing::internal::CaptureStdout();
        Manager::traceGeneralName(stdout, name);
        EXPECT_EQ(::testing::internal::GetCapturedStdout(), printed);
    }
    std::string log = stderrOf([] {
        Manager::traceGeneralNames(nullptr, nullptr);
        Manager::traceGeneralNames(stdout, nullptr);
    });
    EXPECT_THAT(log, HasSubstr("out is NULL.\n"));
    EXPECT_THAT(log, HasSubstr("generalNames is NULL.\n"));
}
