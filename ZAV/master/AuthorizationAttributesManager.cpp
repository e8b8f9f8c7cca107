#include "AuthorizationAttributesManager.h"

#include "frame/DebugPrint.h"
#include "serial/Deserializer.h"
#include "frame/SysRoot.h"

#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/rand.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>
#include <vector>

namespace Velmora {

static char const MODULE[] = "AuthorizationAttributesManager";

namespace {

// Owns a descriptor; closes it on every way out.
class FileDescriptor {
public:
    explicit FileDescriptor(int fd) : fd(fd) {}
    ~FileDescriptor()
    {
        if (fd >= 0)
            close(fd);
    }
    FileDescriptor(FileDescriptor const&) = delete;
    FileDescriptor& operator=(FileDescriptor const&) = delete;
    explicit operator bool() const { return fd >= 0; }
    int get() const { return fd; }

private:
    int fd;
};

bool writeAll(int fd, std::string const& text)
{
    for (std::size_t done = 0; done < text.size();) {
        ssize_t const wrote = write(fd, text.data() + done, text.size() - done);
        if (wrote < 0 && errno == EINTR)
            continue;
        if (wrote <= 0)
            return false;
        done += static_cast<std::size_t>(wrote);
    }
    return true;
}

// Who may call what, keyed by the name of the holder certificate's issuer.
char const BUILT_IN_RULES_SET[] = R"({
    "VeriSign, Inc.": {
        "IMediaService": { "transformation": 1, "translation": 1 },
        "IPortMapper": { "lookupService": 1, "registerService": 1 }
    },
    "DORICProtected": {
        "DoricPlatformManager": { "transformation": 1, "translation": 1 }
    }
})";

char const TEMPORARY_FILE_PREFIX[] = "/tmp/aam";
char const TEMPORARY_FILE_SUFFIX[] = ".pem";

// Draws of a free token, or of a free temporary file name, before giving up;
// only a broken random source or an attacker filling the names gets there.
int const TOKEN_DRAWS = 16;

} // namespace

unsigned int const AuthorizationAttributesManager::VALIDITY_SECONDS = 86400;
long const AuthorizationAttributesManager::CERTIFICATE_VERSION = 2;

AuthorizationAttributesManager::AuthorizationAttributesManager() = default;
AuthorizationAttributesManager::~AuthorizationAttributesManager() = default;

bool AuthorizationAttributesManager::initialize(std::string certificatePath, std::string keyPath,
                                                IServiceManager* manager)
{
    serviceManager = manager;
    // The library's configuration file is not read: nothing here depends on it.
    OPENSSL_init_crypto(OPENSSL_INIT_LOAD_CRYPTO_STRINGS | OPENSSL_INIT_ADD_ALL_CIPHERS | OPENSSL_INIT_ADD_ALL_DIGESTS |
                            OPENSSL_INIT_NO_LOAD_CONFIG,
                        nullptr);
    acIssuerCertificatePath = std::move(certificatePath);
    acIssuerPrivateKeyPath = std::move(keyPath);
    deserializeRulesSet(BUILT_IN_RULES_SET);
    // A missing key shows only when a signature fails; the rights stay readable.
    if (!RetreiveACIssuerPrivateKey())
        VLOG(DebugLevelError, "RetreiveACIssuerPrivateKey failed.\n");
    return true;
}

std::string AuthorizationAttributesManager::serializeRulesSet() const
{
    return rulesSet.serialize();
}

void AuthorizationAttributesManager::deserializeRulesSet(std::string const& text)
{
    Deserializer deserializer(text);
    RulesSet parsed(deserializer);
    rulesSet = parsed;
}

bool AuthorizationAttributesManager::getInterfaceInfoAccessFromRulesSet(std::string const& holderPath, Rights* out)
{
    FilePtr file = openLogged(holderPath, "cannot open holder PKI certificate. Path:%s.\n");
    if (!file)
        return false;
    X509Ptr holder = readX509(file.get(), holderPath);
    return holder && rightsOfIssuer(holder.get(), out);
}

bool AuthorizationAttributesManager::rightsOfIssuer(X509* holder, Rights* out) const
{
    X509_NAME const* issuer = X509_get_issuer_name(holder);
    if (issuer == nullptr) {
        VLOG(DebugLevelError, "holder_cert is invalid.\n");
        return false;
    }
    // Any entry of the issuer's name may match, whatever its kind; the first wins.
    for (int i = 0; i < X509_NAME_entry_count(issuer); ++i) {
        X509_NAME_ENTRY const* entry = X509_NAME_get_entry(issuer, i);
        if (entry == nullptr) {
            VLOG(DebugLevelError, "X509_NAME_get_entry failed.\n");
            continue;
        }
        unsigned char* utf8 = nullptr;
        int length = ASN1_STRING_to_UTF8(&utf8, X509_NAME_ENTRY_get_data(entry));
        OpenSSLMemoryPtr text(utf8);
        if (length <= 0) {
            VLOG(DebugLevelError, "Issuer X509 Name is invalid.\n");
            continue;
        }
        auto rule = rulesSet.find(std::string(reinterpret_cast<char const*>(utf8), length));
        if (rule != rulesSet.end()) {
            *out = rule->second;
            return true;
        }
    }
    return false;
}

AuthorizationAttributesManager::Rights AuthorizationAttributesManager::lookupAuthorizationToken(uint32_t token)
{
    Mutex::ScopedLock lock(&mutex);
    auto found = authorizationTokens.find(token);
    return found == authorizationTokens.end() ? Rights() : *found->second;
}

std::shared_ptr<AuthorizationAttributesManager::Rights const>
AuthorizationAttributesManager::sharedRights(Rights const& allowed)
{
    for (auto const& rights : distinctRights)
        if (*rights == allowed)
            return rights;
    return distinctRights.emplace_back(std::make_shared<Rights const>(allowed));
}

bool AuthorizationAttributesManager::RetreiveACIssuerPrivateKey()
{
    FilePtr file = openLogged(acIssuerPrivateKeyPath, "cannot open AC issuer private key. Path:%s.\n");
    if (!file)
        return false;
    // The key file carries no pass phrase.
    EVPKeyPtr key(PEM_read_PrivateKey(file.get(), nullptr, nullptr, nullptr));
    if (!key) {
        VLOG(DebugLevelError, "cannot read AC issuer private key. Path:%s.\n", acIssuerPrivateKeyPath.c_str());
        return false;
    }
    acIssuerPrivateKey = std::move(key);
    return true;
}

uint32_t AuthorizationAttributesManager::AAMrand()
{
    uint32_t value = 0;
    if (RAND_bytes(reinterpret_cast<unsigned char*>(&value), sizeof value) != 1)
        return 0;
    return value;
}

uint32_t AuthorizationAttributesManager::drawFreeToken()
{
    // 0 means "no token" to every caller, so it is never handed out.
    for (int draw = 0; draw < TOKEN_DRAWS; ++draw) {
        uint32_t token = AAMrand();
        if (token != 0 && authorizationTokens.count(token) == 0)
            return token;
    }
    VLOG(DebugLevelError, "AAMrand failed.\n");
    return 0;
}

std::string AuthorizationAttributesManager::createTemporaryFile(std::string const& contents)
{
    for (int draw = 0; draw < TOKEN_DRAWS; ++draw) {
        uint32_t number = 0;
        if (RAND_bytes(reinterpret_cast<unsigned char*>(&number), sizeof number) != 1) {
            VLOG(DebugLevelError, "No random number for a temporary certificate file.\n");
            return std::string();
        }
        std::string name = SysRoot::path(TEMPORARY_FILE_PREFIX + std::to_string(number) + TEMPORARY_FILE_SUFFIX);
        // Never an existing file, never through a symbolic link, readable by this user alone.
        FileDescriptor file(open(name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
        if (!file && errno == EEXIST)
            continue;
        if (!file) {
            VLOG(DebugLevelError, "cannot create temporary certificate file %s (%s).\n", name.c_str(),
                 std::strerror(errno));
            return std::string();
        }
        if (!writeAll(file.get(), contents)) {
            VLOG(DebugLevelError, "cannot write temporary certificate file %s.\n", name.c_str());
            unlink(name.c_str());
            return std::string();
        }
        return name;
    }
    VLOG(DebugLevelError, "No free name for a temporary certificate file.\n");
    return std::string();
}

std::string AuthorizationAttributesManager::CertificateBufferToFileName(std::string const& buffer)
{
    return createTemporaryFile(buffer);
}

std::string AuthorizationAttributesManager::EmptyCertificateFileName()
{
    return createTemporaryFile(std::string());
}

std::string AuthorizationAttributesManager::CertificateFileToBuffer(std::string const& path)
{
    FilePtr file = openFile(path.c_str(), "rb");
    if (!file || std::fseek(file.get(), 0, SEEK_END) != 0)
        return std::string();
    long size = std::ftell(file.get());
    if (size <= 0 || std::fseek(file.get(), 0, SEEK_SET) != 0)
        return std::string();
    std::vector<char> bytes(static_cast<size_t>(size) + 1, '\0');
    size_t read = std::fread(bytes.data(), 1, static_cast<size_t>(size), file.get());
    bytes[read] = '\0';
    // Certificates are text: the contents end at the first zero byte.
    return std::string(bytes.data());
}

void AuthorizationAttributesManager::removeCertificateFile(std::string const& path)
{
    if (std::remove(path.c_str()) != 0)
        VLOG(DebugLevelError, "Could not delete file %s.\n", path.c_str());
}

FilePtr AuthorizationAttributesManager::openLogged(std::string const& path, char const* failureFormat)
{
    FilePtr file = openFile(path.c_str(), "r");
    if (!file)
        velmoraDebugPrint(DebugLevelError, MODULE, MODULE, __LINE__, failureFormat, path.c_str());
    return file;
}

X509Ptr AuthorizationAttributesManager::readX509(FILE* file, std::string const& path)
{
    X509Ptr certificate = file == nullptr ? nullptr : certificates.read(file);
    if (!certificate)
        VLOG(DebugLevelError, "PEM_read_X509 failed on:%s.\n", path.c_str());
    return certificate;
}

X509Ptr AuthorizationAttributesManager::readX509Text(std::string const& text, char const* what)
{
    X509Ptr certificate = certificates.readText(text);
    if (!certificate)
        VLOG(DebugLevelError, "PEM_read_X509 failed on:%s.\n", what);
    return certificate;
}

X509_NAME* AuthorizationAttributesManager::firstDirectoryName(GENERAL_NAMES const* names)
{
    for (int i = 0; i < sk_GENERAL_NAME_num(names); ++i) {
        int type = 0;
        void* value = GENERAL_NAME_get0_value(sk_GENERAL_NAME_value(names, i), &type);
        if (type == GEN_DIRNAME)
            return static_cast<X509_NAME*>(value);
    }
    return nullptr;
}

} // namespace Velmora
