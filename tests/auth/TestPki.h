// Key material for the authorization tests, made with OpenSSL when the test
// binary starts: an attribute-certificate issuer, a stranger with a key of its
// own, and holder certificates whose issuer names match the rule set or not.
// Also a private directory that stands for the sysroot (VELMORA_ROOT), so the
// temporary certificate files can be counted. One instance per process.
#pragma once

#include "AttributeCertificate.h"
#include "OpenSSLPtr.h"

#include <openssl/bio.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <initializer_list>
#include <string>
#include <utility>

namespace VelmoraTest {

using Names = std::initializer_list<std::pair<char const*, char const*>>;

inline Velmora::X509NamePtr makeName(Names entries)
{
    Velmora::X509NamePtr name(X509_NAME_new());
    for (auto const& [field, value] : entries)
        X509_NAME_add_entry_by_txt(name.get(), field, MBSTRING_UTF8, reinterpret_cast<unsigned char const*>(value),
                                   -1, -1, 0);
    return name;
}

// A certificate for `subject`, issued by `issuer`, signed with `signer`.
inline Velmora::X509Ptr makeCertificate(Names subject, Names issuer, long serial, EVP_PKEY* key, EVP_PKEY* signer)
{
    Velmora::X509Ptr certificate(X509_new());
    X509_set_version(certificate.get(), 2);
    ASN1_INTEGER_set(X509_get_serialNumber(certificate.get()), serial);
    X509_gmtime_adj(X509_getm_notBefore(certificate.get()), 0);
    X509_gmtime_adj(X509_getm_notAfter(certificate.get()), 3600L * 24 * 365);
    X509_set_subject_name(certificate.get(), makeName(subject).get());
    X509_set_issuer_name(certificate.get(), makeName(issuer).get());
    X509_set_pubkey(certificate.get(), key);
    X509_sign(certificate.get(), signer, EVP_sha256());
    return certificate;
}

inline std::string toPem(X509* certificate)
{
    Velmora::BIOPtr bio(BIO_new(BIO_s_mem()));
    PEM_write_bio_X509(bio.get(), certificate);
    char* data = nullptr;
    long length = BIO_get_mem_data(bio.get(), &data);
    return std::string(data, length);
}

inline std::string toPem(EVP_PKEY* key)
{
    Velmora::BIOPtr bio(BIO_new(BIO_s_mem()));
    PEM_write_bio_PrivateKey(bio.get(), key, nullptr, nullptr, 0, nullptr, nullptr);
    char* data = nullptr;
    long length = BIO_get_mem_data(bio.get(), &data);
    return std::string(data, length);
}

inline std::string toPem(Velmora::ATTRIBUTE_CERTIFICATE const* certificate)
{
    Velmora::BIOPtr bio(BIO_new(BIO_s_mem()));
    Velmora::PEM_write_bio_ATTRIBUTE_CERTIFICATE(bio.get(), certificate);
    char* data = nullptr;
    long length = BIO_get_mem_data(bio.get(), &data);
    return std::string(data, length);
}

inline Velmora::AttributeCertificatePtr fromPem(std::string const& text)
{
    Velmora::BIOPtr bio(BIO_new_mem_buf(text.data(), static_cast<int>(text.size())));
    return Velmora::AttributeCertificatePtr(Velmora::PEM_read_bio_ATTRIBUTE_CERTIFICATE(bio.get()));
}

inline std::string toDer(Velmora::ATTRIBUTE_CERTIFICATE const* certificate)
{
    unsigned char* der = nullptr;
    int length = Velmora::i2d_ATTRIBUTE_CERTIFICATE(certificate, &der);
    Velmora::OpenSSLMemoryPtr owner(der);
    return length > 0 ? std::string(reinterpret_cast<char*>(der), length) : std::string();
}

inline void writeFile(std::filesystem::path const& path, std::string const& text)
{
    std::ofstream(path, std::ios::binary) << text;
}

class TestPki {
public:
    static TestPki& get()
    {
        static TestPki pki;
        return pki;
    }

    Velmora::EVPKeyPtr issuerKey{EVP_RSA_gen(2048)};
    Velmora::EVPKeyPtr strangerKey{EVP_RSA_gen(2048)};
    Velmora::EVPKeyPtr ecKey{EVP_EC_gen("P-256")};
    Velmora::X509Ptr issuer =
        makeCertificate({{"O", "Velmora"}, {"CN", "AC Issuer"}}, {{"O", "Velmora"}, {"CN", "AC Issuer"}}, 1,
                        issuerKey.get(), issuerKey.get());
    // Same subject as the issuer, another key: what a forger would show.
    Velmora::X509Ptr stranger =
        makeCertificate({{"O", "Velmora"}, {"CN", "AC Issuer"}}, {{"O", "Velmora"}, {"CN", "AC Issuer"}}, 2,
                        strangerKey.get(), strangerKey.get());
    Velmora::X509Ptr ecIssuer =
        makeCertificate({{"O", "Velmora"}, {"CN", "AC Issuer"}}, {{"O", "Velmora"}, {"CN", "AC Issuer"}}, 3,
                        ecKey.get(), ecKey.get());
    Velmora::X509Ptr doricHolder = makeCertificate({{"CN", "browser"}}, {{"C", "FR"}, {"O", "DORICProtected"}}, 7,
                                                   strangerKey.get(), issuerKey.get());
    Velmora::X509Ptr doricOtherSerial = makeCertificate(
        {{"CN", "browser"}}, {{"C", "FR"}, {"O", "DORICProtected"}}, 8, strangerKey.get(), issuerKey.get());
    Velmora::X509Ptr verisignHolder = makeCertificate({{"CN", "media"}}, {{"O", "VeriSign, Inc."}}, 9,
                                                      strangerKey.get(), issuerKey.get());
    Velmora::X509Ptr unknownHolder = makeCertificate({{"CN", "nobody"}}, {{"O", "Nobody Ltd"}, {"CN", "Nobody"}}, 10,
                                                     strangerKey.get(), issuerKey.get());
    // Both rule-set issuers in one name: the first entry in name order decides.
    Velmora::X509Ptr bothHolder = makeCertificate(
        {{"CN", "both"}}, {{"CN", "VeriSign, Inc."}, {"O", "DORICProtected"}}, 11, strangerKey.get(), issuerKey.get());

private:
    TestPki() = default;
};

// A private sysroot with its tmp/ and a file set holding the issuer's PEMs.
class Sandbox {
public:
    Sandbox()
    {
        std::string pattern = (std::filesystem::temp_directory_path() / "velmora-auth-XXXXXX").string();
        root = mkdtemp(pattern.data());
        std::filesystem::create_directories(root / "tmp");
        TestPki& pki = TestPki::get();
        writeFile(issuerCertificate(), toPem(pki.issuer.get()));
        writeFile(issuerKey(), toPem(pki.issuerKey.get()));
        setenv("VELMORA_ROOT", root.c_str(), 1);
    }
    ~Sandbox()
    {
        unsetenv("VELMORA_ROOT");
        std::error_code ignored;
        std::filesystem::remove_all(root, ignored);
    }
    Sandbox(Sandbox const&) = delete;
    Sandbox& operator=(Sandbox const&) = delete;

    std::filesystem::path const& path() const { return root; }
    std::string issuerCertificate() const { return (root / "issuer.crt").string(); }
    std::string issuerKey() const { return (root / "issuer.key").string(); }
    std::string file(std::string const& name, std::string const& text) const
    {
        writeFile(root / name, text);
        return (root / name).string();
    }
    // Files left in the sysroot's tmp/.
    int temporaryFiles() const
    {
        int count = 0;
        for ([[maybe_unused]] auto const& entry : std::filesystem::directory_iterator(root / "tmp"))
            ++count;
        return count;
    }

private:
    std::filesystem::path root;
};

} // namespace VelmoraTest
