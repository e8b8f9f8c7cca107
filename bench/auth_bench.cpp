// Figures of the authorization subsystem: issuing and applying an attribute
// certificate for one holder, against the RSA-2048/SHA-1 signature and
// verification at its heart, over a buffer of the size that is signed.
#include "FigureReporter.h"

#include "AuthorizationAttributesManager.h"
#include "AuthorizationFixture.h"

#include <openssl/pem.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

using namespace Velmora;

namespace {

// An issuer, a holder of "DORICProtected" and a manager, in a private sysroot.
struct Setup {
    Setup()
    {
        // A box keeps /tmp in memory; so does the bench when this machine can.
        std::filesystem::path base =
            std::filesystem::is_directory("/dev/shm") ? "/dev/shm" : std::filesystem::temp_directory_path();
        std::string pattern = (base / "velmora-bench-XXXXXX").string();
        root = mkdtemp(pattern.data());
        std::filesystem::create_directories(root / "tmp");
        setenv("VELMORA_ROOT", root.c_str(), 1);
        setenv("VELMORA_DEBUG", "0", 1);
        X509Ptr issuer = VelmoraTest::makeCertificate({{"CN", "bench"}}, {{"O", "Velmora"}}, 1, key.get(), key.get());
        std::ofstream(root / "issuer.crt") << VelmoraTest::toPem(issuer.get());
        FilePtr keyFile = openFile((root / "issuer.key").c_str(), "w");
        PEM_write_PrivateKey(keyFile.get(), key.get(), nullptr, nullptr, 0, nullptr, nullptr);
        keyFile.reset();
        holder = VelmoraTest::toPem(
            VelmoraTest::makeCertificate({{"CN", "bench"}}, {{"O", "DORICProtected"}}, 7, key.get(), key.get()).get());
        manager = AuthorizationAttributesManager::getInstance();
        manager->initialize((root / "issuer.crt").string(), (root / "issuer.key").string(), nullptr);
    }
    ~Setup()
    {
        delete manager;
        delete manager;
        std::filesystem::remove_all(root);
    }

    // The size of what is signed: the DER of one issued certificate's acinfo.
    int signedSize()
    {
        std::string pem = manager->retreiveAttributeCertificate(holder);
        BIOPtr bio(BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size())));
        AttributeCertificatePtr certificate(PEM_read_bio_ATTRIBUTE_CERTIFICATE(bio.get()));
        return certificate ? i2d_ATTRIBUTE_CERTIFICATE_INFO(certificate->acinfo, nullptr) : 0;
    }

    std::filesystem::path root;
    EVPKeyPtr key{EVP_RSA_gen(2048)};
    std::string holder;
    AuthorizationAttributesManager* manager = nullptr;
};

Setup& setup()
{
    static Setup instance;
    return instance;
}

void BM_IssueApply(benchmark::State& state)
{
    Setup& s = setup();
    for (auto _ : state) {
        std::string certificate = s.manager->retreiveAttributeCertificate(s.holder);
        uint32_t token = s.manager->applyAttributeCertificate(s.holder, certificate);
        if (token == 0)
            state.SkipWithError("rejected");
        benchmark::DoNotOptimize(token);
    }
}
BENCHMARK(BM_IssueApply)->UseRealTime();

void BM_RawSignVerify(benchmark::State& state)
{
    Setup& s = setup();
    std::vector<unsigned char> buffer(static_cast<size_t>(s.signedSize()), 0x5a);
    std::vector<unsigned char> signature(static_cast<size_t>(EVP_PKEY_get_size(s.key.get())));
    for (auto _ : state) {
        EVP_MD_CTX* sign = EVP_MD_CTX_new();
        size_t length = signature.size();
        EVP_DigestSignInit(sign, nullptr, EVP_sha1(), nullptr, s.key.get());
        EVP_DigestSign(sign, signature.data(), &length, buffer.data(), buffer.size());
        EVP_MD_CTX_free(sign);
        EVP_MD_CTX* verify = EVP_MD_CTX_new();
        EVP_DigestVerifyInit(verify, nullptr, EVP_sha1(), nullptr, s.key.get());
        int ok = EVP_DigestVerify(verify, signature.data(), length, buffer.data(), buffer.size());
        EVP_MD_CTX_free(verify);
        if (ok != 1)
            state.SkipWithError("verify failed");
    }
}
BENCHMARK(BM_RawSignVerify)->UseRealTime();

} // namespace

int main(int argc, char** argv)
{
    return VelmoraBench::runFigures(argc, argv,
                                    {{"ac_issue_apply_ratio", "BM_IssueApply/real_time", "BM_RawSignVerify/real_time"}});
}
