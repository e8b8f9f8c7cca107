// Applying: checks an attribute certificate against its holder and the issuer,
// in a fixed order, cheap tests first, and mints a token for its rights.
#include "AuthorizationAttributesManager.h"

#include "frame/DebugPrint.h"

#include <openssl/objects.h>
#include <openssl/x509v3.h>

namespace Velmora {

static char const MODULE[] = "AuthorizationAttributesManager";

namespace {

// Names are read into a buffer of this size: longer ones arrive cut off.
int const NAME_BUFFER_SIZE = 256;

bool checkVersion(ATTRIBUTE_CERTIFICATE_INFO const* info)
{
    long version = ASN1_INTEGER_get(info->version);
    if (version == AuthorizationAttributesManager::CERTIFICATE_VERSION)
        return true;
    VLOG(DebugLevelError, "Invalid Attribute certificate version (received v%d instead of expected v2).\n",
         static_cast<int>(version));
    return false;
}

bool checkValidity(ATTRIBUTE_CERTIFICATE_VALIDITY const* validity)
{
    // Both halves are tested, so that both can be reported.
    int notBefore = X509_cmp_current_time(validity->notBeforeTime);
    if (notBefore == 0)
        VLOG(DebugLevelError, "AC certificate not before verification error.\n");
    else if (notBefore > 0)
        VLOG(DebugLevelError, "AC certificate not before is in the futur.\n");
    int notAfter = X509_cmp_current_time(validity->notAfterTime);
    if (notAfter == 0)
        VLOG(DebugLevelError, "AC certificate not after verification error.\n");
    else if (notAfter < 0)
        VLOG(DebugLevelError, "AC certificate not after is in the past.\n");
    return notBefore < 0 && notAfter > 0;
}

bool checkSignature(ATTRIBUTE_CERTIFICATE* certificate, X509* issuer)
{
    EVPKeyPtr key(X509_get_pubkey(issuer));
    if (!key) {
        VLOG(DebugLevelError, "Cannot retreive public key from AC Issuer certificate.\n");
        return false;
    }
    if (EVP_PKEY_get_base_id(key.get()) != EVP_PKEY_RSA) {
        VLOG(DebugLevelError, "AC Issuer public key is not of RSA type.\n");
        return false;
    }
    if (ASN1_item_verify(ASN1_ITEM_rptr(ATTRIBUTE_CERTIFICATE_INFO), certificate->signatureAlgorithm,
                         certificate->signatureValue, certificate->acinfo, key.get()) <= 0) {
        VLOG(DebugLevelError, "AC Issuer signature verification failed.\n");
        return false;
    }
    return true;
}

// What every certificate verifier refuses before the signature itself: a
// signature algorithm inside the signed body that differs from the outer one
// (which the signature may not cover), a digest that no longer resists
// collisions, and an extension marked critical that this system doesn't know
// (it knows none).
bool checkSignatureForm(ATTRIBUTE_CERTIFICATE const* certificate)
{
    X509_ALGOR const* outer = certificate->signatureAlgorithm;
    if (outer == nullptr || certificate->acinfo->signature == nullptr ||
        X509_ALGOR_cmp(outer, certificate->acinfo->signature) != 0) {
        VLOG(DebugLevelError, "AC certificate signature algorithms inside and outside differ.\n");
        return false;
    }
    int digest = NID_undef;
    int const algorithm = OBJ_obj2nid(outer->algorithm);
    if (OBJ_find_sigid_algs(algorithm, &digest, nullptr) == 1 &&
        (digest == NID_md5 || digest == NID_md4 || digest == NID_md2)) {
        VLOG(DebugLevelError, "AC certificate signed with a weak digest (%s).\n", OBJ_nid2sn(algorithm));
        return false;
    }
    STACK_OF(X509_EXTENSION) const* extensions = certificate->acinfo->extensions;
    for (int i = 0; i < sk_X509_EXTENSION_num(extensions); ++i) {
        X509_EXTENSION* extension = sk_X509_EXTENSION_value(extensions, i);
        if (X509_EXTENSION_get_critical(extension) > 0) {
            char name[80];
            OBJ_obj2txt(name, sizeof name, X509_EXTENSION_get_object(extension), 1);
            VLOG(DebugLevelError, "AC certificate carries an unknown critical extension (%s).\n", name);
            return false;
        }
    }
    return true;
}

bool checkIssuerName(ATTRIBUTE_CERTIFICATE const* certificate, X509* issuer)
{
    X509_NAME const* name = AuthorizationAttributesManager::getACCertificateIssuerName(certificate);
    if (name == nullptr) {
        VLOG(DebugLevelError, "Cannot retreive issuer name from AC certificate.\n");
        return false;
    }
    X509_NAME const* subject = X509_get_subject_name(issuer);
    if (subject == nullptr) {
        VLOG(DebugLevelError, "Cannot retreive subject name from Issuer certificate.\n");
        return false;
    }
    if (X509_NAME_cmp(name, subject) != 0) {
        VLOG(DebugLevelError, "AC certificate Issuer name and Issuer Name subject name do not match.\n");
        return false;
    }
    return true;
}

// The commonName of a directoryName, cut to the buffer; false when it has none.
bool commonName(GENERAL_NAME const* name, std::string& text)
{
    char buffer[NAME_BUFFER_SIZE];
    int type = 0;
    auto* directory = static_cast<X509_NAME*>(GENERAL_NAME_get0_value(name, &type));
    if (X509_NAME_get_text_by_NID(directory, NID_commonName, buffer, sizeof buffer) == -1) {
        VLOG(DebugLevelError, "X509 Name is invalid.\n");
        return false;
    }
    text = buffer;
    return true;
}

bool isDirectoryName(GENERAL_NAME const* name)
{
    int type = -1;
    GENERAL_NAME_get0_value(name, &type);
    return type == GEN_DIRNAME;
}

// The bytes of one attribute value; only string-like values have any.
ASN1_STRING const* valueBytes(ASN1_TYPE const* value)
{
    switch (ASN1_TYPE_get(value)) {
    case 0:
    case V_ASN1_BOOLEAN:
    case V_ASN1_NULL:
    case V_ASN1_OBJECT:
        return nullptr;
    default:
        return value->value.asn1_string;
    }
}

bool readFunctions(GENERAL_NAMES const* names, MapObject<int>& functions)
{
    for (int i = 0; i < sk_GENERAL_NAME_num(names); ++i) {
        GENERAL_NAME const* name = sk_GENERAL_NAME_value(names, i);
        if (!isDirectoryName(name)) {
            VLOG(DebugLevelError, "Attribute values instance subtype is not a DIRNAME.\n");
            return false;
        }
        std::string function;
        if (!commonName(name, function))
            return false;
        functions[function] = 1;
    }
    return true;
}

bool readAllowedInterface(ASN1_TYPE const* value, AuthorizationAttributesManager::Rights& allowed)
{
    ASN1_STRING const* bytes = valueBytes(value);
    unsigned char const* cursor = bytes == nullptr ? nullptr : ASN1_STRING_get0_data(bytes);
    AllowedInterfacePtr allowedInterface(
        cursor == nullptr ? nullptr : d2i_AllowedInterface(nullptr, &cursor, ASN1_STRING_length(bytes)));
    if (!allowedInterface) {
        VLOG(DebugLevelError, "Attribute type cannot be parsed.\n");
        return false;
    }
    if (allowedInterface->functionNames == nullptr) {
        VLOG(DebugLevelError, "Function name array is NULL.\n");
        return false;
    }
    MapObject<int> functions;
    if (!readFunctions(allowedInterface->functionNames, functions))
        return false;
    if (allowedInterface->interfaceName == nullptr) {
        VLOG(DebugLevelError, "Authorization attribute interface name is absent.\n");
        return false;
    }
    if (!isDirectoryName(allowedInterface->interfaceName)) {
        VLOG(DebugLevelError, "Attribute values interface name is not a DIRNAME.\n");
        return false;
    }
    std::string interface;
    if (!commonName(allowedInterface->interfaceName, interface))
        return false;
    // A second value for the same interface replaces the first.
    allowed[interface] = functions;
    return true;
}

} // namespace

// The texts are read in memory, in the order the file form reads its files.
uint32_t AuthorizationAttributesManager::applyAttributeCertificate(std::string holderText, std::string certificateText)
{
    Mutex::ScopedLock lock(&mutex);
    Rights allowed;
    X509Ptr holder = readX509Text(holderText, "the holder's certificate text");
    bool const valid = holder && checkWithIssuer(holder.get(), readAttributeCertificate(certificateText), allowed,
                                                 acIssuerCertificatePath);
    return valid ? mintToken(allowed) : rejected();
}

uint32_t AuthorizationAttributesManager::applyAttributeCertificateUsingFileName(std::string holderFile,
                                                                                std::string certificateFile)
{
    Mutex::ScopedLock lock(&mutex);
    Rights allowed;
    bool const valid = processApplyACCertificate(holderFile, acIssuerCertificatePath, certificateFile, allowed);
    return valid ? mintToken(allowed) : rejected();
}

uint32_t AuthorizationAttributesManager::rejected()
{
    VLOG(DebugLevelError, "processApplyACCertificate failed.\n");
    return 0;
}

uint32_t AuthorizationAttributesManager::mintToken(Rights const& allowed)
{
    uint32_t token = drawFreeToken();
    if (token == 0)
        return 0;
    authorizationTokens[token] = sharedRights(allowed);
    // The token stands here even when a service can't be told: there is no
    // rollback of the services that were.
    if (serviceManager != nullptr)
        runLoggingExceptions(MODULE, __LINE__, "applyAttributeCertificate",
                             [&] { serviceManager->authorizationTokenCreation(token, allowed); });
    return token;
}

bool AuthorizationAttributesManager::processApplyACCertificate(std::string holderFile, std::string issuerFile,
                                                               std::string certificateFile, Rights& allowed)
{
    FilePtr holderStream = openLogged(holderFile, "cannot open AC holder PKI certificate. Path:%s.\n");
    if (!holderStream)
        return false;
    X509Ptr holder = readX509(holderStream.get(), holderFile);
    holderStream.reset();
    if (!holder)
        return false;
    FilePtr certificateStream = openLogged(certificateFile, "cannot open AC certificate. Path:%s.\n");
    AttributeCertificatePtr certificate(
        certificateStream ? PEM_read_ATTRIBUTE_CERTIFICATE(certificateStream.get()) : nullptr);
    if (!certificate)
        VLOG(DebugLevelError, "PEM_read_X509 failed on:%s.\n", certificateFile.c_str());
    return checkWithIssuer(holder.get(), std::move(certificate), allowed, issuerFile);
}

AttributeCertificatePtr AuthorizationAttributesManager::readAttributeCertificate(std::string const& text)
{
    BIOPtr bio(BIO_new_mem_buf(text.data(), static_cast<int>(text.size())));
    AttributeCertificatePtr certificate(bio ? PEM_read_bio_ATTRIBUTE_CERTIFICATE(bio.get()) : nullptr);
    if (!certificate)
        VLOG(DebugLevelError, "PEM_read_X509 failed on:%s.\n", "the attribute certificate text");
    return certificate;
}

bool AuthorizationAttributesManager::checkWithIssuer(X509* holder, AttributeCertificatePtr certificate, Rights& allowed,
                                                     std::string const& issuerFile)
{
    FilePtr issuerStream = openLogged(issuerFile, "cannot open AC issuer PKI certificate. Path:%s.\n");
    X509Ptr issuer = readX509(issuerStream.get(), issuerFile);
    issuerStream.reset();
    return issuer && certificate && checkAttributeCertificate(holder, issuer.get(), certificate.get(), allowed);
}

bool AuthorizationAttributesManager::checkAttributeCertificate(X509* holder, X509* issuer,
                                                               ATTRIBUTE_CERTIFICATE* certificate, Rights& allowed)
{
    ATTRIBUTE_CERTIFICATE_INFO const* info = certificate->acinfo;
    if (!checkVersion(info))
        return false;
    if (!cmpBaseCertificateIDWithIssuer(info->holder->baseCertificateID, holder)) {
        VLOG(DebugLevelError, "cmpBaseCertificateIDWithIssuer failed.\n");
        return false;
    }
    return checkValidity(info->attrCertValidityPeriod) && checkSignatureForm(certificate) &&
           checkSignature(certificate, issuer) &&
           checkIssuerName(certificate, issuer) && readAllowedInterfaces(certificate, allowed);
}

bool AuthorizationAttributesManager::readAllowedInterfaces(ATTRIBUTE_CERTIFICATE const* certificate, Rights& allowed)
{
    STACK_OF(X509_ATTRIBUTE) const* attributes = certificate->acinfo->attributes;
    int count = X509at_get_attr_count(attributes);
    if (count < 1) {
        VLOG(DebugLevelError, "No attribute found.\n");
        return false;
    }
    // Attributes of other types are passed over without a word.
    for (int i = 0; i < count; ++i) {
        X509_ATTRIBUTE* attribute = X509at_get_attr(attributes, i);
        if (OBJ_obj2nid(X509_ATTRIBUTE_get0_object(attribute)) != NID_info_access)
            continue;
        for (int v = 0; v < X509_ATTRIBUTE_count(attribute); ++v) {
            if (!readAllowedInterface(X509_ATTRIBUTE_get0_type(attribute, v), allowed))
                return false;
        }
    }
    return true;
}

bool AuthorizationAttributesManager::cmpBaseCertificateIDWithIssuer(ATTRIBUTE_CERTIFICATE_ISSUER_SERIAL const* id,
                                                                    X509* certificate)
{
    if (id == nullptr) {
        VLOG(DebugLevelError, "baseCertificateID is NULL.\n");
        return false;
    }
    if (certificate == nullptr) {
        VLOG(DebugLevelError, "x509Certificate is NULL.\n");
        return false;
    }
    X509_NAME const* holderIssuer = X509_get_issuer_name(certificate);
    if (holderIssuer == nullptr) {
        VLOG(DebugLevelError, "x509Certificate is invalid.\n");
        return false;
    }
    bool issuerFound = false;
    for (int i = 0; i < sk_GENERAL_NAME_num(id->issuer) && !issuerFound; ++i) {
        GENERAL_NAME const* name = sk_GENERAL_NAME_value(id->issuer, i);
        int type = 0;
        auto const* directory = static_cast<X509_NAME const*>(GENERAL_NAME_get0_value(name, &type));
        issuerFound = type == GEN_DIRNAME && X509_NAME_cmp(directory, holderIssuer) == 0;
    }
    if (!issuerFound)
        return false;
    // The serial number is deliberately not compared: a certificate of the same
    // issuer with another serial is accepted.
    ASN1_BIT_STRING const* holderUID = nullptr;
    X509_get0_uids(certificate, &holderUID, nullptr);
    return holderUID == nullptr || (id->issuerUID != nullptr && ASN1_STRING_cmp(holderUID, id->issuerUID) == 0);
}

X509_NAME* AuthorizationAttributesManager::getACCertificateIssuerName(ATTRIBUTE_CERTIFICATE const* certificate)
{
    if (certificate == nullptr) {
        VLOG(DebugLevelError, "acCertificate is NULL.\n");
        return nullptr;
    }
    if (certificate->acinfo == nullptr || certificate->acinfo->issuer == nullptr) {
        VLOG(DebugLevelError, "acCertificate is invalid.\n");
        return nullptr;
    }
    ATTRIBUTE_CERTIFICATE_ISSUER const* issuer = certificate->acinfo->issuer;
    if (issuer->type == 0)
        return firstDirectoryName(issuer->d.v1Form);
    if (issuer->type == 1 && issuer->d.v2Form != nullptr)
        return firstDirectoryName(issuer->d.v2Form->issuerName);
    return nullptr;
}

X509_NAME* AuthorizationAttributesManager::retreiveHolderEntityName(ATTRIBUTE_CERTIFICATE const* certificate)
{
    if (certificate == nullptr) {
        VLOG(DebugLevelError, "acCertificate is NULL.\n");
        return nullptr;
    }
    if (certificate->acinfo == nullptr || certificate->acinfo->holder == nullptr)
        return nullptr;
    return firstDirectoryName(certificate->acinfo->holder->entityName);
}

} // namespace Velmora
