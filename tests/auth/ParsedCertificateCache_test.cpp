// The parsed-certificate cache: every read gives what PEM_read_X509 on the
// same file would, whatever was read before and whatever kind of file it is.
#include "AuthorizationFixture.h"
#include "ParsedCertificateCache.h"

#include <sys/stat.h>

#include <thread>

using namespace Velmora;
using namespace VelmoraTest;

namespace {

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

} // namespace
