// The process-wide keeper of application rights.
//
// A rule set, built in as JSON, says which interfaces and functions a holder
// may use, keyed by the name of whoever issued the holder's public-key
// certificate. retreiveAttributeCertificate turns the rule for one holder into
// a one-day attribute certificate signed with the issuer key;
// applyAttributeCertificate checks such a certificate against the holder and
// the issuer's certificate and mints a random 32-bit token for the rights it
// carries. Tokens are kept for the life of the process and handed to the
// service manager, which passes them on to every service. Since a box mints a
// token per launch for months, tokens with equal rights share one immutable
// copy of them: the table grows by a map node per launch, not by the rights. The text forms work
// in memory; the file-name forms read (and write) the caller's files.
//
// Threads: initialize() runs once, before anything else, unlocked. The four
// certificate operations and lookupAuthorizationToken may be called from any
// thread; each holds `mutex` for its whole run, file work, signing and the
// service manager's authorizationTokenCreation included. The other members are
// the steps of those operations and rely on their caller's lock (or on having
// the objects they are given to themselves). The certificates they read, from
// files or texts, are parsed once per content (ParsedCertificateCache), under
// that same lock.
// Ownership: serviceManager is not owned. Helpers that take a *Ptr take
// ownership of it; the X509_NAME* results point into the certificate given.
// Failures are reported by false, 0, null or an empty result, never thrown, and
// logged at level 1 under "AuthorizationAttributesManager".
#pragma once

#include "AllowedInterface.h"
#include "AttributeCertificate.h"
#include "interfaces/IServiceManager.h"
#include "serial/MapObject.h"
#include "frame/Mutex.h"
#include "OpenSSLPtr.h"
#include "ParsedCertificateCache.h"
#include "frame/Singleton.h"

#include <cstdint>
#include <cstdio>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace Velmora {

class AuthorizationAttributesManager : public Singleton<AuthorizationAttributesManager> {
public:
    using Rights = IServiceManager::Rights; // interface -> function -> flag
    using RulesSet = MapObject<Rights>;     // issuer name -> rights

    static unsigned int const VALIDITY_SECONDS; // one day
    static long const CERTIFICATE_VERSION;      // 2, the v2 form

    AuthorizationAttributesManager();
    ~AuthorizationAttributesManager() override;

    // The rule set and the tokens.
    bool initialize(std::string acIssuerCertificatePath, std::string acIssuerPrivateKeyPath,
                    IServiceManager* serviceManager);
    std::string serializeRulesSet() const;
    // Replaces the rule set; on a throw (Exception) it is left as it was.
    void deserializeRulesSet(std::string const& text);
    bool getInterfaceInfoAccessFromRulesSet(std::string const& holderPath, Rights* out);
    Rights lookupAuthorizationToken(uint32_t token);
    bool RetreiveACIssuerPrivateKey();
    uint32_t AAMrand();

    // Temporary certificate files, "/tmp/aam<n>.pem" under the sysroot, each
    // created new (see createTemporaryFile); an empty name when none could be.
    std::string CertificateBufferToFileName(std::string const& buffer);
    std::string EmptyCertificateFileName();
    std::string CertificateFileToBuffer(std::string const& path);
    void removeCertificateFile(std::string const& path);

    // Generation.
    std::string retreiveAttributeCertificate(std::string holderText);
    std::string retreiveAttributeCertificateUsingFileName(std::string holderFile, std::string outputFile);
    bool generateX509AuthAttr(std::string const& holderFile, std::string const& issuerFile, Rights allowed,
                              std::string const& outputFile);
    static bool updateAttributeVersion(ATTRIBUTE_CERTIFICATE* certificate, unsigned int version);
    static bool updateAttributeSerialNumber(ATTRIBUTE_CERTIFICATE* certificate, unsigned int serial);
    static AttributeCertificateIssuerSerialPtr dupBaseCertificateIDFromIssuer(X509* certificate);
    static bool setHolderBaseCertificateIDNoDuplicate(ATTRIBUTE_CERTIFICATE* certificate,
                                                      AttributeCertificateIssuerSerialPtr id);
    static bool updateIssuerName(ATTRIBUTE_CERTIFICATE* certificate, X509_NAME const* name);
    static bool generalNameInsert(GENERAL_NAMES* names, X509_NAME const* name);
    static bool x509NameDuplicateAndFree(X509_NAME** destination, X509_NAME const* source);
    static bool insertAttribute(ATTRIBUTE_CERTIFICATE* certificate, X509AttributePtr attribute);
    static int signKey(ATTRIBUTE_CERTIFICATE* certificate, EVP_PKEY* key, EVP_MD const* digest);
    static bool AllowedInterfaceAddValue(X509_ATTRIBUTE* attribute, AllowedInterface const* value);
    static bool AttributeAddValue(X509_ATTRIBUTE* attribute, int type, unsigned char const* bytes, int length);

    // Verification.
    uint32_t applyAttributeCertificate(std::string holderText, std::string certificateText);
    uint32_t applyAttributeCertificateUsingFileName(std::string holderFile, std::string certificateFile);
    bool processApplyACCertificate(std::string holderFile, std::string issuerFile, std::string certificateFile,
                                   Rights& allowed);
    // The checks of processApplyACCertificate on certificates already read, in
    // their fixed order, the rights read last.
    static bool checkAttributeCertificate(X509* holder, X509* issuer, ATTRIBUTE_CERTIFICATE* certificate,
                                          Rights& allowed);
    // Reads the authorization attribute's interfaces and functions into `allowed`.
    static bool readAllowedInterfaces(ATTRIBUTE_CERTIFICATE const* certificate, Rights& allowed);
    static bool cmpBaseCertificateIDWithIssuer(ATTRIBUTE_CERTIFICATE_ISSUER_SERIAL const* id, X509* certificate);
    static X509_NAME* getACCertificateIssuerName(ATTRIBUTE_CERTIFICATE const* certificate);
    static X509_NAME* retreiveHolderEntityName(ATTRIBUTE_CERTIFICATE const* certificate);

    // Diagnostics, written to standard output.
    static void PrintAttributeCertificate(ATTRIBUTE_CERTIFICATE const* certificate);
    static void PrintIssuerSerial(ATTRIBUTE_CERTIFICATE_ISSUER_SERIAL const* value);
    static void traceGeneralNames(FILE* out, GENERAL_NAMES const* names);
    static void traceGeneralName(FILE* out, GENERAL_NAME const* name);

private:
    // The rights of the rule for the holder's issuer; false when there is none.
    bool rightsOfIssuer(X509* holder, Rights* out) const;
    // A new certificate for `holder` with `allowed`, signed by the issuer of
    // `issuerFile`; null, after the log lines, when it can't be made.
    AttributeCertificatePtr signedCertificate(X509* holder, std::string const& issuerFile, Rights const& allowed);
    // The checks of checkAttributeCertificate against the issuer of
    // `issuerFile`; false for a null certificate.
    bool checkWithIssuer(X509* holder, AttributeCertificatePtr certificate, Rights& allowed,
                         std::string const& issuerFile);
    // A new token for `allowed`, told to the service manager; 0 when none can be drawn.
    uint32_t mintToken(Rights const& allowed);
    // Logs a refused certificate; 0.
    static uint32_t rejected();
    uint32_t drawFreeToken();
    // A new file holding `contents`: created exclusively (O_EXCL|O_NOFOLLOW,
    // mode 0600) under a random name, another name drawn on a collision.
    // Empty when the random source fails or no file can be made.
    std::string createTemporaryFile(std::string const& contents);
    // fopen(path, "r"), logging `failureFormat` with the path when it fails.
    static FilePtr openLogged(std::string const& path, char const* failureFormat);
    // PEM_read_X509 on `file`, through `certificates`; a null file fails like
    // an unreadable one.
    X509Ptr readX509(FILE* file, std::string const& path);
    // The same on a PEM text; `what` names it in the log line.
    X509Ptr readX509Text(std::string const& text, char const* what);
    // The attribute certificate of a PEM text; null, logged, when there is none.
    static AttributeCertificatePtr readAttributeCertificate(std::string const& text);
    // The X509_NAME of the first directoryName in `names`, or null.
    static X509_NAME* firstDirectoryName(GENERAL_NAMES const* names);

    // The shared copy of `allowed`: an equal one already held, or a new one.
    std::shared_ptr<Rights const> sharedRights(Rights const& allowed);

    RulesSet rulesSet;
    std::map<uint32_t, std::shared_ptr<Rights const>> authorizationTokens;
    std::vector<std::shared_ptr<Rights const>> distinctRights; // one per different set of rights
    std::string acIssuerCertificatePath;
    std::string acIssuerPrivateKeyPath;
    Mutex mutex{"AuthorizationAttributesManager"};
    EVPKeyPtr acIssuerPrivateKey;
    IServiceManager* serviceManager = nullptr;
    // The issuer's and the holders' certificates, read under the caller's lock.
    ParsedCertificateCache certificates{8};
};

} // namespace Velmora
