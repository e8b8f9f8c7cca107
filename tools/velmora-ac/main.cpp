// velmora-ac: the attribute-certificate road of the server, from a shell.
//   velmora-ac issue  ISSUER_CERT ISSUER_KEY HOLDER_CERT   PEM on standard output
//   velmora-ac verify ISSUER_CERT HOLDER_CERT AC_FILE      rights as JSON; status 1 when rejected
//   velmora-ac print  AC_FILE                              the diagnostic form
//   velmora-ac --help                                      the usage (on standard error with status 2
//                                                          for a wrong command line)
// Temporary files go where the server puts them, under VELMORA_ROOT when set.
// Messages of the authorization code go to standard error (VELMORA_DEBUG).
#include "AuthorizationAttributesManager.h"

#include <cstdio>
#include <cstring>
#include <string>

using Velmora::AuthorizationAttributesManager;

namespace {

int const STATUS_REJECTED = 1;
int const STATUS_USAGE = 2;

// The usage on `out`; `status` is the exit status that goes with it.
int usage(FILE* out, int status)
{
    std::fprintf(out, "usage: velmora-ac issue ISSUER_CERT ISSUER_KEY HOLDER_CERT\n"
                      "       velmora-ac verify ISSUER_CERT HOLDER_CERT AC_FILE\n"
                      "       velmora-ac print AC_FILE\n");
    return status;
}

int issue(AuthorizationAttributesManager& manager, char** arguments)
{
    manager.initialize(arguments[0], arguments[1], nullptr);
    std::string holder = manager.CertificateFileToBuffer(arguments[2]);
    if (holder.empty()) {
        std::fprintf(stderr, "velmora-ac: cannot read %s\n", arguments[2]);
        return STATUS_REJECTED;
    }
    std::string certificate = manager.retreiveAttributeCertificate(holder);
    if (certificate.empty())
        return STATUS_REJECTED;
    std::fputs(certificate.c_str(), stdout);
    return 0;
}

int verify(AuthorizationAttributesManager& manager, char** arguments)
{
    // The checks of applyAttributeCertificate, without minting a token.
    AuthorizationAttributesManager::Rights allowed;
    if (!manager.processApplyACCertificate(arguments[1], arguments[0], arguments[2], allowed))
        return STATUS_REJECTED;
    std::fputs(allowed.serialize().c_str(), stdout);
    return 0;
}

int print(char const* path)
{
    Velmora::FilePtr file = Velmora::openFile(path, "r");
    Velmora::AttributeCertificatePtr certificate(file ? Velmora::PEM_read_ATTRIBUTE_CERTIFICATE(file.get()) : nullptr);
    if (!certificate) {
        std::fprintf(stderr, "velmora-ac: no attribute certificate in %s\n", path);
        return STATUS_REJECTED;
    }
    AuthorizationAttributesManager::PrintAttributeCertificate(certificate.get());
    return 0;
}

// The singleton for one command; getInstance() and the constructor each hold a reference.
template <class Command>
int withManager(Command command)
{
    AuthorizationAttributesManager* manager = AuthorizationAttributesManager::getInstance();
    int status = command(*manager);
    delete manager;
    delete manager;
    return status;
}

int run(int argc, char** argv)
{
    if (argc == 5 && std::strcmp(argv[1], "issue") == 0)
        return withManager([argv](AuthorizationAttributesManager& manager) { return issue(manager, argv + 2); });
    if (argc == 5 && std::strcmp(argv[1], "verify") == 0)
        return withManager([argv](AuthorizationAttributesManager& manager) { return verify(manager, argv + 2); });
    if (argc == 3 && std::strcmp(argv[1], "print") == 0)
        return print(argv[2]);
    if (argc == 2 && (std::strcmp(argv[1], "--help") == 0 || std::strcmp(argv[1], "-h") == 0))
        return usage(stdout, 0);
    return usage(stderr, STATUS_USAGE);
}

} // namespace

int main(int argc, char** argv)
{
    return run(argc, argv);
}
