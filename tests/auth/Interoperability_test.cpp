// What other programs see: the DER checked by an independent RFC 5755 decoder
// and signature check, and the velmora-ac tool on real files.
#include "AuthorizationFixture.h"

#include <sys/wait.h>

#include <array>
#include <cstdio>

using namespace Velmora;
using namespace VelmoraTest;
using ::testing::HasSubstr;

namespace {

struct Outcome {
    int status = -1;
    std::string out;
};

// Runs a shell command; standard error is dropped.
Outcome run(std::string const& command)
{
    Outcome outcome;
    FILE* pipe = popen((command + " 2>/dev/null").c_str(), "r");
    if (pipe == nullptr)
        return outcome;
    std::array<char, 4096> buffer;
    size_t read = 0;
    while ((read = std::fread(buffer.data(), 1, buffer.size(), pipe)) > 0)
        outcome.out.append(buffer.data(), read);
    int status = pclose(pipe);
    outcome.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return outcome;
}

std::string shellQuoted(std::string const& path)
{
    return "'" + path + "'";
}

} // namespace

using Interoperability = AuthorizationTest;

TEST_F(Interoperability, IndependentDecoderAcceptsTheDerAndItsSignature)
{
    for (X509* holder : {pki.doricHolder.get(), pki.verisignHolder.get()}) {
        std::string der = toDer(fromPem(issue(holder)).get());
        ASSERT_FALSE(der.empty());
        std::string path = sandbox.file("ac.der", der);
        Outcome outcome = run("/usr/bin/python3 " + shellQuoted(VELMORA_AC_CHECKER) + " " + shellQuoted(path) + " " +
                              shellQuoted(sandbox.issuerCertificate()));
        EXPECT_EQ(outcome.status, 0);
        EXPECT_THAT(outcome.out, HasSubstr("directoryName"));
    }
}

TEST_F(Interoperability, IndependentDecoderRejectsAForgedSignature)
{
    std::string forged = altered(
        pki.doricHolder.get(), [](ATTRIBUTE_CERTIFICATE*) {}, pki.strangerKey.get());
    std::string path = sandbox.file("forged.der", toDer(fromPem(forged).get()));
    EXPECT_NE(run("/usr/bin/python3 " + shellQuoted(VELMORA_AC_CHECKER) + " " + shellQuoted(path) + " " +
                  shellQuoted(sandbox.issuerCertificate()))
                  .status,
              0);
}

TEST_F(Interoperability, ToolIssuesVerifiesAndPrints)
{
    std::string tool = shellQuoted(VELMORA_AC_TOOL);
    std::string holder = sandbox.file("holder.crt", toPem(pki.doricHolder.get()));
    Outcome issued = run(tool + " issue " + shellQuoted(sandbox.issuerCertificate()) + " " + shellQuoted(sandbox.issuerKey()) +
                         " " + shellQuoted(holder));
    ASSERT_EQ(issued.status, 0);
    ASSERT_THAT(issued.out, HasSubstr("-----BEGIN ATTRIBUTE CERTIFICATE-----"));
    EXPECT_EQ(sandbox.temporaryFiles(), 0);
    std::string certificate = sandbox.file("ac.pem", issued.out);

    Outcome verified =
        run(tool + " verify " + shellQuoted(sandbox.issuerCertificate()) + " " + shellQuoted(holder) + " " + shellQuoted(certificate));
    EXPECT_EQ(verified.status, 0);
    EXPECT_EQ(verified.out, "{\"DoricPlatformManager\":{\"transformation\":1,\"translation\":1}}\n");

    Outcome printed = run(tool + " print " + shellQuoted(certificate));
    EXPECT_EQ(printed.status, 0);
    EXPECT_THAT(printed.out, HasSubstr("Version 2.\n"));
    EXPECT_THAT(printed.out, HasSubstr("GEN_DIRNAME: /CN=DoricPlatformManager"));
}

TEST_F(Interoperability, ToolRejectsWhatTheServerRejects)
{
    std::string tool = shellQuoted(VELMORA_AC_TOOL);
    std::string issuer = shellQuoted(sandbox.issuerCertificate());
    std::string doric = shellQuoted(sandbox.file("doric.crt", toPem(pki.doricHolder.get())));
    std::string verisign = shellQuoted(sandbox.file("verisign.crt", toPem(pki.verisignHolder.get())));
    std::string unknown = shellQuoted(sandbox.file("unknown.crt", toPem(pki.unknownHolder.get())));
    std::string good = shellQuoted(sandbox.file("good.pem", issue(pki.doricHolder.get())));
    std::string forged = shellQuoted(sandbox.file(
        "forged.pem", altered(
                          pki.doricHolder.get(), [](ATTRIBUTE_CERTIFICATE*) {}, pki.strangerKey.get())));
    std::string garbage = shellQuoted(sandbox.file("garbage.pem", "-----BEGIN ATTRIBUTE CERTIFICATE-----\nxx\n"));

    EXPECT_EQ(run(tool + " verify " + issuer + " " + verisign + " " + good).status, 1);
    EXPECT_EQ(run(tool + " verify " + issuer + " " + doric + " " + forged).status, 1);
    EXPECT_EQ(run(tool + " verify " + issuer + " " + doric + " " + garbage).status, 1);
    EXPECT_EQ(run(tool + " print " + garbage).status, 1);
    EXPECT_EQ(run(tool + " issue " + issuer + " " + shellQuoted(sandbox.issuerKey()) + " " + unknown).status, 1);
    EXPECT_EQ(run(tool + " issue " + issuer + " /nonexistent.key " + doric).status, 1);
    EXPECT_EQ(run(tool + " frobnicate").status, 2);
    EXPECT_EQ(sandbox.temporaryFiles(), 0);
}
