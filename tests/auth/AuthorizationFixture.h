// Material for the authorization tests: keys and certificates made with
// OpenSSL once per process, a private sysroot (VELMORA_ROOT) whose tmp/ can be
// counted, and a fixture holding a fresh AuthorizationAttributesManager with a
// service manager that records the tokens it is told of.
#pragma once

#include "AuthorizationAttributesManager.h"
#include "frame/Exception.h"
#include "ScopedEnv.h"
#include "ScratchDirectory.h"
#include "ReturnCodeOf.h"

#include <gmock/gmock.h>
#include <openssl/objects.h>
#include <openssl/pem.h>

#include <filesystem>
#include <functional>
#include <mutex>
#include <vector>

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

inline GENERAL_NAME* directoryName(Names entries)
{
    GENERAL_NAME* name = GENERAL_NAME_new();
    GENERAL_NAME_set0_value(name, GEN_DIRNAME, makeName(entries).release());
    return name;
}

// A general name of a string type: GEN_DNS, GEN_URI...
inline GENERAL_NAME* stringName(int type, char const* text)
{
    ASN1_IA5STRING* value = ASN1_IA5STRING_new();
    ASN1_STRING_set(value, text, -1);
    GENERAL_NAME* name = GENERAL_NAME_new();
    GENERAL_NAME_set0_value(name, type, value);
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

// What `write` puts into a memory BIO.
template <typename Write>
std::string memoryText(Write write)
{
    Velmora::BIOPtr bio(BIO_new(BIO_s_mem()));
    write(bio.get());
    char* data = nullptr;
    long length = BIO_get_mem_data(bio.get(), &data);
    return std::string(data, length);
}

inline std::string toPem(X509* certificate)
{
    return memoryText([&](BIO* bio) { PEM_write_bio_X509(bio, certificate); });
}

inline std::string toPem(EVP_PKEY* key)
{
    return memoryText([&](BIO* bio) { PEM_write_bio_PrivateKey(bio, key, nullptr, nullptr, 0, nullptr, nullptr); });
}

inline std::string toPem(Velmora::ATTRIBUTE_CERTIFICATE const* certificate)
{
    return memoryText([&](BIO* bio) { Velmora::PEM_write_bio_ATTRIBUTE_CERTIFICATE(bio, certificate); });
}

inline Velmora::AttributeCertificatePtr fromPem(std::string const& text)
{
    Velmora::BIOPtr bio(BIO_new_mem_buf(text.data(), static_cast<int>(text.size())));
    return Velmora::AttributeCertificatePtr(Velmora::PEM_read_bio_ATTRIBUTE_CERTIFICATE(bio.get()));
}

inline Velmora::AttributeCertificatePtr fromDer(std::string const& der)
{
    auto const* cursor = reinterpret_cast<unsigned char const*>(der.data());
    return Velmora::AttributeCertificatePtr(Velmora::d2i_ATTRIBUTE_CERTIFICATE(nullptr, &cursor, static_cast<long>(der.size())));
}

inline std::string toDer(Velmora::ATTRIBUTE_CERTIFICATE const* certificate)
{
    unsigned char* der = nullptr;
    int length = Velmora::i2d_ATTRIBUTE_CERTIFICATE(certificate, &der);
    Velmora::OpenSSLMemoryPtr owner(der);
    return length > 0 ? std::string(reinterpret_cast<char*>(der), length) : std::string();
}

inline Velmora::X509AttributePtr makeAttribute(int nid)
{
    Velmora::X509AttributePtr attribute(X509_ATTRIBUTE_new());
    X509_ATTRIBUTE_set1_object(attribute.get(), OBJ_nid2obj(nid));
    return attribute;
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
    Velmora::X509Ptr issuer = selfSignedIssuer(1, issuerKey.get());
    // Same subject as the issuer, another key: what a forger would show.
    Velmora::X509Ptr stranger = selfSignedIssuer(2, strangerKey.get());
    Velmora::X509Ptr ecIssuer = selfSignedIssuer(3, ecKey.get());
    Velmora::X509Ptr doricHolder = holder("browser", {{"C", "FR"}, {"O", "DORICProtected"}}, 7);
    Velmora::X509Ptr doricOtherSerial = holder("browser", {{"C", "FR"}, {"O", "DORICProtected"}}, 8);
    Velmora::X509Ptr verisignHolder = holder("media", {{"O", "VeriSign, Inc."}}, 9);
    Velmora::X509Ptr unknownHolder = holder("nobody", {{"O", "Nobody Ltd"}, {"CN", "Nobody"}}, 10);
    // Both rule-set issuers in one name: the first entry in name order decides.
    Velmora::X509Ptr bothHolder = holder("both", {{"CN", "VeriSign, Inc."}, {"O", "DORICProtected"}}, 11);

private:
    TestPki() = default;

    static Velmora::X509Ptr selfSignedIssuer(long serial, EVP_PKEY* key)
    {
        return makeCertificate({{"O", "Velmora"}, {"CN", "AC Issuer"}}, {{"O", "Velmora"}, {"CN", "AC Issuer"}}, serial,
                               key, key);
    }
    Velmora::X509Ptr holder(char const* name, Names issuerName, long serial)
    {
        return makeCertificate({{"CN", name}}, issuerName, serial, strangerKey.get(), issuerKey.get());
    }
};

// A private sysroot (VELMORA_ROOT) with its tmp/ and a file each for the issuer's PEMs.
class Sandbox {
public:
    std::string file(std::string const& name, std::string const& text) const
    {
        writeFile(root / name, text);
        return (root / name).string();
    }
    // Files left in the sysroot's tmp/.
    long temporaryFiles() const { return std::distance(std::filesystem::directory_iterator(root / "tmp"), {}); }

    ScratchDirectory const directory{"velmora-auth"};
    std::filesystem::path const root = directory.get();
    bool const made = std::filesystem::create_directory(root / "tmp");
    std::string const issuerCertificate = file("issuer.crt", toPem(TestPki::get().issuer.get()));
    std::string const issuerKey = file("issuer.key", toPem(TestPki::get().issuerKey.get()));

private:
    ScopedEnv const variable{"VELMORA_ROOT", directory.get()};
};

class FakeServiceManager : public Velmora::IServiceManager {
public:
    std::string getState(std::string const&) override { return std::string(); }
    void setState(std::string const&, std::string const&) override {}
    void activate(std::string const&) override {}
    void suspend(std::string const&) override {}
    void terminate(std::string const&) override {}
    RuntimeStatistics getRuntimeStatistics(std::string const&) override { return RuntimeStatistics(); }
    Velmora::VectorObject<std::string> getServiceList() override { return {}; }
    void authorizationTokenCreation(unsigned int token, Rights rights) override
    {
        std::lock_guard<std::mutex> lock(mutex);
        created.emplace_back(token, rights);
        if (failing)
            throw Velmora::Exception(Velmora::ReturnInvalidParameter);
    }
    void authorizationTokenDeletion(unsigned int) override {}

    std::mutex mutex;
    std::vector<std::pair<unsigned int, Rights>> created;
    bool failing = false;
};

class AuthorizationTest : public ::testing::Test {
protected:
    using Manager = Velmora::AuthorizationAttributesManager;

    void SetUp() override { start(sandbox.issuerCertificate, sandbox.issuerKey); }
    void TearDown() override { stop(); }

    // A new manager on these issuer files; returns what its set-up logged.
    std::string restart(std::string const& issuerCertificate, std::string const& issuerKey)
    {
        stop();
        return stderrOf([&] { start(issuerCertificate, issuerKey); });
    }

    std::string issue(X509* holder) { return manager->retreiveAttributeCertificate(toPem(holder)); }

    // An issued certificate for `holder`, changed by `change` and signed again
    // with `signer` (left as it is when null).
    std::string altered(X509* holder, std::function<void(Velmora::ATTRIBUTE_CERTIFICATE*)> const& change,
                        EVP_PKEY* signer)
    {
        Velmora::AttributeCertificatePtr certificate = fromPem(issue(holder));
        if (!certificate)
            return std::string();
        change(certificate.get());
        if (signer != nullptr)
            Manager::signKey(certificate.get(), signer, EVP_sha1());
        return toPem(certificate.get());
    }
    std::string resigned(X509* holder, std::function<void(Velmora::ATTRIBUTE_CERTIFICATE*)> const& change)
    {
        return altered(holder, change, TestPki::get().issuerKey.get());
    }

    // Applies and captures the log.
    uint32_t apply(X509* holder, std::string const& certificate, std::string* log = nullptr)
    {
        uint32_t token = 0;
        std::string text = stderrOf([&] { token = manager->applyAttributeCertificate(toPem(holder), certificate); });
        if (log != nullptr)
            *log = text;
        return token;
    }

    void expectRejected(X509* holder, std::string const& certificate, char const* message)
    {
        std::string log;
        EXPECT_EQ(apply(holder, certificate, &log), 0u);
        EXPECT_THAT(log, ::testing::HasSubstr(message));
        EXPECT_THAT(log, ::testing::HasSubstr("processApplyACCertificate failed.\n"));
        EXPECT_EQ(sandbox.temporaryFiles(), 0);
        EXPECT_TRUE(services.created.empty());
    }

    Sandbox sandbox;
    FakeServiceManager services;
    Manager* manager = nullptr;
    TestPki& pki = TestPki::get();

private:
    void start(std::string const& issuerCertificate, std::string const& issuerKey)
    {
        manager = Manager::getInstance();
        manager->initialize(issuerCertificate, issuerKey, &services);
    }
    // getInstance() and the constructor each hold a reference.
    void stop()
    {
        delete manager;
        delete manager;
    }
};

} // namespace VelmoraTest
