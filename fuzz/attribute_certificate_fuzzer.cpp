// Feeds arbitrary bytes to the attribute-certificate readers (DER and PEM) and
// everything that runs on a certificate once read: the checks of applying it
// against a fixed holder and issuer, the reading of its rights whatever its
// signature, re-encoding, and the diagnostic print (to /dev/null).
#include "AuthorizationAttributesManager.h"
#include "AuthorizationFixture.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>

using namespace Velmora;

namespace {

struct Peers {
    EVPKeyPtr key{EVP_RSA_gen(1024)};
    X509Ptr holder = VelmoraTest::makeCertificate({{"CN", "fuzz"}}, {{"O", "DORICProtected"}}, 7, key.get(), key.get());
    X509Ptr issuer = VelmoraTest::makeCertificate({{"CN", "fuzz"}}, {{"O", "Velmora"}}, 1, key.get(), key.get());
};

void exercise(ATTRIBUTE_CERTIFICATE* certificate)
{
    static Peers peers;
    AuthorizationAttributesManager::Rights allowed;
    AuthorizationAttributesManager::checkAttributeCertificate(peers.holder.get(), peers.issuer.get(), certificate,
                                                              allowed);
    AuthorizationAttributesManager::Rights unchecked;
    AuthorizationAttributesManager::readAllowedInterfaces(certificate, unchecked);
    VelmoraTest::toDer(certificate);
    AuthorizationAttributesManager::PrintAttributeCertificate(certificate);
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    // Rejections log at level 1; silence them, and the print.
    setenv("VELMORA_DEBUG", "0", 1);
    if (std::freopen("/dev/null", "w", stdout) == nullptr)
        std::abort();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size)
{
    std::string const bytes(reinterpret_cast<char const*>(data), size);
    if (auto const fromDer = VelmoraTest::fromDer(bytes))
        exercise(fromDer.get());
    if (auto const fromPem = VelmoraTest::fromPem(bytes))
        exercise(fromPem.get());
    return 0;
}
